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

#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/eyejson.h"
#include "workbench/statistics.h"

namespace Tarnwick::DSO::Workbench {

using DSO::SystemFramework::SignalData;

namespace {

bool AreFinite(const std::vector<double>& values)
{
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

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

bool AreZero(const std::vector<double>& values)
{
    return std::all_of(values.begin(), values.end(), [](double value) { return value == 0.0; });
}

}  // namespace

std::vector<double> RunStage(Stage& stage, std::vector<double>& samples, const std::string& chain,
                             const std::string& capture)
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
    struct Release {
        void operator()(double* array) const { ::operator delete(array); }
    };
    std::unique_ptr<double[], Release> result;
    try {
        result.reset(stage.filter->Apply(&signal));
    } catch (const std::invalid_argument& failure) {
        // A filter names what it refuses: the record's length, or a size that the device gives.
        if (std::string_view(failure.what()).find("sampleCount") == std::string_view::npos)
            throw UsageFailure(fmt::format("{}: {}: {}", chain, stage.place, failure.what()));
        throw DataFailure(fmt::format("{}: {}: {}", capture, stage.place, failure.what()));
    }
    if (!result)
        throw DataFailure(fmt::format("{}: {}: {} samples are fewer than one repetition of the pattern", capture,
                                      stage.place, samples.size()));
    std::vector<double> filtered(samples.size());
    std::copy_n(result.get(), filtered.size(), filtered.begin());
    if (AreFinite(samples) && !AreFinite(filtered))
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
    return filtered;
}

StageReport Describe(const std::string& name, std::span<const double> samples, const Chain& chain, double seconds)
{
    StageReport report;
    report.name = name;
    report.samples = samples.size();
    report.repetitions = chain.Device().patternRepeats;
    const SampleStatistics statistics = StatisticsOf(samples);
    report.mean = statistics.mean;
    report.rms = statistics.rms;
    report.peakToPeak = statistics.high - statistics.low;
    const int levels = LevelCount(chain.Device().signalCoding);
    if (levels > 1 && chain.SamplesPerUi() >= 1.0)
        report.eye = MeasureEyes(samples, EyeSettingsOf(chain));
    report.seconds = seconds;
    return report;
}

ChainResult RunChain(Chain& chain, std::span<const double> capture, const std::string& name,
                     const std::function<void(const std::string&)>& begin)
{
    const auto tell = [&](const std::string& stage) {
        if (begin)
            begin(stage);
    };
    ChainResult result;
    result.samples.assign(capture.begin(), capture.end());
    tell("capture");
    result.stages.push_back(Describe("capture", capture, chain));
    for (Stage& stage : chain.Stages()) {
        tell(stage.name);
        const auto start = std::chrono::steady_clock::now();
        result.samples = RunStage(stage, result.samples, chain.Name(), name);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        result.stages.push_back(Describe(stage.name, result.samples, chain, taken.count()));
        if (stage.findings)
            result.stages.back().findings = stage.findings(result.samples);
    }
    return result;
}

std::string ReportAsJson(std::span<const StageReport> stages)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const StageReport& stage : stages) {
        list.push_back({{"name", stage.name},
                        {"samples", stage.samples},
                        {"repetitions", stage.repetitions},
                        {"mean", stage.mean},
                        {"rms", stage.rms},
                        {"peakToPeak", stage.peakToPeak},
                        {"levels", stage.eye.levels},
                        {"eyes", EyesToJson(stage.eye)},
                        {"phaseUi", stage.eye.phaseUi},
                        {"seconds", stage.seconds}});
        AddErrorRatio(list.back(), stage.eye);
        if (!stage.findings.empty())
            list.back().update(nlohmann::ordered_json::parse(stage.findings));
    }
    return nlohmann::ordered_json{{"stages", list}}.dump(2);
}

}  // namespace Tarnwick::DSO::Workbench
