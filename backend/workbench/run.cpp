#include "workbench/run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "maths/captures/recordseam.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/plumbing/checkedeyes.h"
#include "workbench/plumbing/eyejson.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/statistics.h"

namespace Tarnwick::DSO::Workbench {

using DSO::SystemFramework::SignalData;

namespace {

bool KeepsNoise(const std::string& stage)
{
    return stage == "bessel-thomson" || stage == "ctle" || stage == "deembedding";
}

// A stage may run more than once.
void NoteOnce(std::vector<std::string>& notes, std::string note)
{
    if (std::find(notes.begin(), notes.end(), note) == notes.end())
        notes.push_back(std::move(note));
}

bool AreZero(std::span<const double> values)
{
    return std::all_of(values.begin(), values.end(), [](double value) { return value == 0.0; });
}

struct Release {
    void operator()(double* array) const { ::operator delete(array); }
};
using Result = std::unique_ptr<double[], Release>;

// The prepared filter on samples; null where the filter says that they are fewer than one repetition.
Result Applied(Stage& stage, std::vector<double>& samples, const std::string& chain, const std::string& capture)
{
    SignalData signal;
    signal.sampleCount = static_cast<std::int32_t>(samples.size());
    signal.samples = samples.data();
    try {
        return Result(stage.filter->Apply(&signal));
    } catch (const std::invalid_argument& failure) {
        // A filter names what it refuses: the record's length, or a size that the device gives.
        if (std::string_view(failure.what()).find("sampleCount") == std::string_view::npos)
            throw UsageFailure(fmt::format("{}: {}: {}", chain, stage.place, failure.what()));
        throw DataFailure(fmt::format("{}: {}: {}", capture, stage.place, failure.what()));
    }
}

// How far a stage that has run carries a record, by its response to an impulse.
std::size_t ReachOf(Stage& stage, std::span<const double> record, std::size_t samplesPerUi, const std::string& chain,
                    const std::string& capture)
{
    // In the middle: a filter need not take the record for a circle.
    const std::size_t count = record.size();
    std::vector<double> impulse(count, 0.0);
    impulse[count / 2] = 1.0;
    const auto response = Applied(stage, impulse, chain, capture);
    if (!response)
        return 1;
    std::rotate_copy(response.get(), response.get() + count / 2, response.get() + count, impulse.begin());
    const auto largest =
        std::max_element(impulse.begin(), impulse.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
    return Maths::ReachUi(record, impulse, samplesPerUi, largest - impulse.begin());
}

StageReport Describe(const std::string& name, const PassingRecord& record, EyeSettings eyes, bool withBathtub,
                     const Chain& chain, double seconds = 0.0)
{
    StageReport report;
    report.name = name;
    report.samples = record.samples.size();
    report.repetitions = chain.Device().patternRepeats;
    report.eye.valid = record.Valid(eyes.samplesPerUi);
    const SampleStatistics statistics = StatisticsOf(report.eye.valid.Of(record.samples));
    report.mean = statistics.mean;
    report.rms = statistics.rms;
    report.peakToPeak = statistics.high - statistics.low;
    if (eyes.levelCount > 1 && eyes.samplesPerUi >= 1.0) {
        eyes.valid = report.eye.valid;
        eyes.withBathtub = withBathtub;
        // Of finite squares all samples are finite. The ends that are not valid do not count among them.
        const bool areFinite = (eyes.circular && std::isfinite(statistics.rms)) || AreFinite(record.samples);
        report.eye = MeasureEyes(record.samples, eyes, areFinite);
    }
    report.seconds = seconds;
    return report;
}

TapFigure FigureOf(const Stage& stage, const WaveformPart& before, const PassingRecord& after, const EyeReport& behind,
                   const EyeSettings& eyes)
{
    TapFigure figure{stage.taps(), {}};
    figure.pulses = FitPulseResponses(figure.taps, before, {after.samples, behind.valid}, eyes, behind);
    return figure;
}

// As RunStage; the filter's own array, as long as the samples.
Result Filtered(Stage& stage, std::vector<double>& samples, const std::string& chain, const std::string& capture)
{
    const bool isNoiseToBeKept = stage.parameters->preserveNoise;
    SignalData signal;
    signal.sampleCount = static_cast<std::int32_t>(samples.size());
    signal.samples = samples.data();
    try {
        stage.filter->Prepare(&signal);
        stage.parameters->ResetDirty();
    } catch (const std::invalid_argument& failure) {
        throw UsageFailure(fmt::format("{}: {}: {}", chain, stage.place, failure.what()));
    } catch (const std::runtime_error& failure) {  // what a filter makes of the files that it was given
        throw DataFailure(fmt::format("{}: {}: {}", chain, stage.place, failure.what()));
    }
    Result result = Applied(stage, samples, chain, capture);
    if (!result)
        throw DataFailure(fmt::format("{}: {}: {} samples are fewer than one repetition of the pattern", capture,
                                      stage.place, samples.size()));
    const std::span<const double> filtered(result.get(), samples.size());
    if (!AreFinite(filtered) && AreFinite(samples))
        throw UsageFailure(fmt::format("{}: {}: gives values that are not finite; is one of its settings missing?",
                                       chain, stage.place));
    if (AreZero(filtered) && !AreZero(samples))
        throw UsageFailure(fmt::format(
            "{}: {}: gives nothing but zeros; is one of its settings or of the device's missing?", chain, stage.place));
    if (isNoiseToBeKept && !(stage.parameters->preserveNoise && stage.parameters->preserveNoiseApplied))
        NoteOnce(stage.notes, fmt::format("{}: {}.preserveNoise: could not be applied; {}", chain, stage.place,
                                          KeepsNoise(stage.name)
                                              ? "a corner below half the sample rate may help, or a response that "
                                                "takes less noise away"
                                              : "a " + stage.name + " keeps no noise"));
    return result;
}

std::string FindingText(const nlohmann::json& value)
{
    if (!value.is_array())
        return ReadableText(value, kFindingDigits);
    std::string text;
    for (const nlohmann::json& each : value)
        text.append(text.empty() ? "" : " ").append(FindingText(each));
    return text;
}

}  // namespace

std::vector<double> RunStage(Stage& stage, std::vector<double>& samples, const std::string& chain,
                             const std::string& capture)
{
    const Result result = Filtered(stage, samples, chain, capture);
    return {result.get(), result.get() + samples.size()};
}

ValidPart PassingRecord::Valid(double samplesPerUi) const
{
    const auto ends = circular ? 0 : std::max(endsUi, reachUi) * static_cast<std::size_t>(samplesPerUi);
    return {ends, samples.size() - 2 * ends};
}

PassingRecord RecordOf(std::vector<double> samples, const EyeSettings& eyes)
{
    PassingRecord record{std::move(samples), eyes.circular};
    if (!eyes.circular && eyes.valid && eyes.samplesPerUi >= 1.0)
        record.endsUi = static_cast<std::size_t>(std::ceil(static_cast<double>(eyes.valid->first) / eyes.samplesPerUi));
    return record;
}

double PassStage(Stage& stage, PassingRecord& record, const Chain& chain, const std::string& capture)
{
    const bool hasEnds = !record.circular && chain.SamplesPerUi() >= 1.0;
    const auto samplesPerUi = static_cast<std::size_t>(chain.SamplesPerUi());
    const auto grow = [&](std::size_t byUi) {
        const std::size_t uiCount = record.samples.size() / samplesPerUi;
        record.reachUi += byUi;
        if (4 * record.reachUi > uiCount)
            throw DataFailure(
                fmt::format("{}: {}: carries the ends of a single shot {} UI into it, {} with the stages before; "
                            "expected at most a "
                            "quarter of its {} UI",
                            capture, stage.place, byUi, record.reachUi, uiCount));
    };
    if (hasEnds && stage.spanUi > 0) {
        // At least one, which says that the record has ends; a fit leaves out the reach of its own taps as well.
        if (stage.ignoredUi != nullptr)
            *stage.ignoredUi =
                std::max({*stage.ignoredUi, static_cast<std::int32_t>(std::max(record.reachUi, record.endsUi)), 1});
        grow(stage.spanUi);
    }
    const auto start = std::chrono::steady_clock::now();
    const Result filtered = Filtered(stage, record.samples, chain.Name(), capture);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    if (hasEnds && stage.spanUi == 0)
        grow(ReachOf(stage, record.samples, samplesPerUi, chain.Name(), capture));
    std::copy_n(filtered.get(), record.samples.size(), record.samples.begin());
    return taken.count();
}

ChainResult RunChain(Chain& chain, std::span<const double> record, const EyeSettings& eyes, const std::string& name,
                     const std::function<void(const std::string&)>& begin,
                     const std::function<void(const StageReport&, std::span<const double>)>& end)
{
    return RunChain(chain, std::vector<double>(record.begin(), record.end()), eyes, name, begin, end);
}

ChainResult RunChain(Chain& chain, std::vector<double>&& record, const EyeSettings& eyes, const std::string& name,
                     const std::function<void(const std::string&)>& begin,
                     const std::function<void(const StageReport&, std::span<const double>)>& end)
{
    const auto tell = [&](const std::string& stage) {
        if (begin)
            begin(stage);
    };
    ChainResult result;
    PassingRecord passing = RecordOf(std::move(record), eyes);
    tell("capture");
    const auto tellEnd = [&] {
        if (end)
            end(result.stages.back(), passing.samples);
    };
    result.stages.push_back(Describe("capture", passing, eyes, eyes.withBathtub, chain));
    tellEnd();
    for (Stage& stage : chain.Stages()) {
        tell(stage.name);
        const bool withPulses = eyes.withPulses && stage.taps;
        const std::vector<double> before = withPulses ? passing.samples : std::vector<double>();
        const ValidPart validBefore = passing.Valid(eyes.samplesPerUi);
        const double seconds = PassStage(stage, passing, chain, name);
        const bool withBathtub = eyes.withBathtub && (eyes.bathtubOfEachStage || &stage == &chain.Stages().back());
        result.stages.push_back(Describe(stage.name, passing, eyes, withBathtub, chain, seconds));
        if (stage.findings)
            result.stages.back().findings = stage.findings(passing.samples, result.stages.back().eye.valid);
        if (withPulses)
            result.stages.back().taps = FigureOf(stage, {before, validBefore}, passing, result.stages.back().eye, eyes);
        tellEnd();
    }
    result.samples = std::move(passing.samples);
    result.valid = result.stages.back().eye.valid;
    return result;
}

ChainResult RunChain(Chain& chain, std::span<const double> record, const std::string& name,
                     const std::function<void(const std::string&)>& begin)
{
    return RunChain(chain, record, EyeSettingsOf(chain), name, begin);
}

ChainResult RunToEnd(Chain& chain, std::vector<double> record, const EyeSettings& eyes, const std::string& name)
{
    PassingRecord passing = RecordOf(std::move(record), eyes);
    std::string last = "capture";
    double seconds = 0.0;
    for (Stage& stage : chain.Stages()) {
        seconds = PassStage(stage, passing, chain, name);
        last = stage.name;
    }
    ChainResult result;
    result.stages.push_back(Describe(last, passing, eyes, eyes.withBathtub, chain, seconds));
    result.samples = std::move(passing.samples);
    result.valid = result.stages.back().eye.valid;
    return result;
}

std::string FindingsAsText(const StageReport& report)
{
    std::string text;
    if (report.findings.empty())
        return text;
    const nlohmann::json findings = JsonFrom(report.findings);
    for (const auto& [name, value] : findings.items())
        if (name != "appliedTaps" || !findings.contains("taps") || value != findings["taps"])
            text += fmt::format("{} {}: {}\n", report.name, name, FindingText(value));
    return text;
}

std::string ReportAsJson(std::span<const StageReport> stages, const std::optional<LockReport>& acquisition)
{
    Json list = Json::List();
    for (const StageReport& stage : stages) {
        Json row = {{"name", stage.name},
                    {"samples", stage.samples},
                    {"repetitions", stage.repetitions},
                    {"mean", stage.mean},
                    {"rms", stage.rms},
                    {"peakToPeak", stage.peakToPeak},
                    {"levels", stage.eye.levels},
                    {"eyes", EyesToJson(stage.eye)},
                    {"phaseUi", stage.eye.phaseUi},
                    {"seconds", stage.seconds}};
        AddErrorRatio(row, stage.eye);
        if (!stage.findings.empty())
            row.SetAll(Json::From(stage.findings));
        list.Add(std::move(row));
    }
    Json report = Json::Object();
    if (acquisition)
        report.Set("acquisition", Json::From(LockAsJson(*acquisition)));
    report.Set("stages", std::move(list));
    return report.Text(2);
}

}  // namespace Tarnwick::DSO::Workbench
