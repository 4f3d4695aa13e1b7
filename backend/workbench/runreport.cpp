#include "workbench/runreport.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "maths/captures/clipping.h"
#include "maths/captures/leveldrift.h"
#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;

constexpr double kMostImpulseSamples = 131072.0;  // 8192 UI of 16 samples: the period of PRBS13
constexpr std::size_t kMostStagesWithBathtub = 16;
constexpr std::size_t kLevelBlocks = 100;
constexpr double kNoNoise = 1e-6;  // of the range: less is rounding

// The filters that one impulse response describes, on a record that is long enough for it.
ChainFile ImpulseChainOf(const ChainFile& file, const std::vector<Stage>& stages, double samplesPerUi)
{
    json content = JsonOf(file);
    json& device = content["device"];
    const double most = std::floor(kMostImpulseSamples / samplesPerUi);
    device["patternRepeats"] = 1;
    if (device.value("patternLengthUi", 0.0) > most) {
        device["patternLengthUi"] = static_cast<int>(most);
        for (const char* const key : {"patternSymbols", "useUserPattern"})
            device.erase(key);
    }
    for (const char* const key : {"samplesPerPattern", "multiplePatternRecord"})
        device.erase(key);
    for (const Stage& stage : stages)
        if (!stage.linear || stage.adaptive)
            content["filters"][stage.index]["enabled"] = false;
    return ChainFileOf(std::move(content), file.Name());
}

// Taps that a feed-forward equaliser has found are a filter like any other.
std::vector<double> DelaysOf(const StageTaps& taps, double samplesPerUi)
{
    std::vector<double> delays;
    for (const double offset : taps.offsetsUi)
        delays.push_back(std::round((offset + taps.delayUi) * samplesPerUi));
    return delays;
}

std::vector<double> ThroughTaps(const std::vector<double>& impulse, const StageTaps& taps,
                                const std::vector<double>& delays)
{
    std::vector<double> response(impulse.size(), 0.0);
    for (std::size_t k = 0; k < taps.values.size(); ++k) {
        const std::size_t shift = static_cast<std::size_t>(delays[k]) % impulse.size();
        for (std::size_t n = 0; n < impulse.size(); ++n)
            response[(n + shift) % impulse.size()] += taps.values[k] * impulse[n];
    }
    return response;
}

ChainResponse ResponseOf(const ChainFile& file, std::vector<Stage>& stages, double samplesPerUi)
{
    const ChainFile impulseFile = ImpulseChainOf(file, stages, samplesPerUi);
    const ImpulseRecord record = ImpulseRecordFor(impulseFile);
    Chain chain(impulseFile, record.sampleCount);
    ChainResponse response = MeasureResponse(chain, record, chain.Device().baudRateGBd * kGiga);
    for (Stage& stage : stages) {
        if (stage.linear && !stage.adaptive)
            continue;
        const std::string label = fmt::format("{} {}", stage.index, stage.name);
        const StageTaps taps = stage.taps ? stage.taps() : StageTaps{.kind = StageTaps::Kind::Feedback};
        if (taps.kind == StageTaps::Kind::Feedback || taps.values.empty()) {
            response.leftOut.push_back(label);
            continue;
        }
        std::vector<double> impulse(record.RepetitionLength(), 0.0);
        impulse.front() = 1.0;
        const std::vector<double> delays = DelaysOf(taps, response.samplesPerUi);
        response.filters.push_back(
            {label, Transform(ThroughTaps(impulse, taps, delays), record.sampleRate), stage.index, {}});
        response.whole = Transform(ThroughTaps(response.whole.impulse, taps, delays), record.sampleRate);
    }
    return response;
}

LevelsOverRecord LevelsOf(std::span<const double> samples, double samplesPerUi, const EyeReport& eye)
{
    std::vector<double> thresholds;
    for (const EyeOpening& opening : eye.eyes)
        thresholds.push_back(opening.threshold);
    const std::span<const double> valid = eye.valid.Of(samples);
    const auto uiCount = static_cast<std::size_t>(static_cast<double>(valid.size()) / samplesPerUi);
    if (thresholds.empty() || uiCount < kLevelBlocks)
        return {};
    const std::size_t blockUi = uiCount / kLevelBlocks;
    const auto first = static_cast<double>(eye.valid.first) / samplesPerUi;
    return {first + 0.5 * static_cast<double>(blockUi), static_cast<double>(blockUi),
            Maths::LevelDrift(valid, {samplesPerUi, eye.phaseUi, thresholds}, blockUi)};
}

// Samples at an end of the range. A capture with less noise than a step of its values rests on its outer levels in the same way.
std::vector<std::string> ClippingOf(std::span<const double> samples, const StageReport& capture)
{
    std::vector<std::string> sentences;
    const double noise = capture.eye.noiseRms.value_or(0.0);
    if (noise <= kNoNoise * capture.peakToPeak)
        return sentences;
    const Maths::Clipping clipping = Maths::FindClipping(samples);
    for (const auto& [end, name] : {std::pair(clipping.low, "smallest"), std::pair(clipping.high, "largest")})
        if (end.samples > 0 && noise > end.step)
            sentences.push_back(
                fmt::format("{} samples ({:.2g} %) have the {} value, {:.4g} V, several in a row: the capture is cut "
                            "off there, and "
                            "its levels, heights and noise are wrong by what is missing",
                            end.samples, 100.0 * static_cast<double>(end.samples) / static_cast<double>(samples.size()),
                            name, end.value));
    return sentences;
}

void NoteOnce(std::vector<std::string>& notes, const std::string& note)
{
    if (std::find(notes.begin(), notes.end(), note) == notes.end())
        notes.push_back(note);
}

}  // namespace

RunReport RunForReport(const ChainFile& file, const Waveform& capture, const CaptureFacts& given,
                       const std::string& name, const std::function<void(const std::string&)>& begin)
{
    return RunForReport(InputFor(file, capture, given, name), capture, name, begin);
}

RunReport RunForReport(ChainInput input, const Waveform& capture, const std::string& name,
                       const std::function<void(const std::string&)>& begin)
{
    RunReport report{input.chain};
    report.samplesPerUi = input.eyes.samplesPerUi;
    report.symbolRateGBd = input.eyes.symbolRateGBd;
    report.hasEyes = input.eyes.levelCount > 1 && input.eyes.samplesPerUi >= 1.0;
    report.notes = capture.notes;
    for (const std::string& note : input.notes)
        if (!input.acquisition || std::find(input.acquisition->warnings.begin(), input.acquisition->warnings.end(),
                                            note) == input.acquisition->warnings.end())
            NoteOnce(report.notes, note);
    Chain chain(input.chain, input.samples.size());
    const std::size_t stageCount = chain.Stages().size() + 1;
    input.eyes.withPulses = true;
    input.eyes.withBathtub = true;
    input.eyes.bathtubOfEachStage = stageCount <= kMostStagesWithBathtub;
    EyeGrid grid{};
    if (report.hasEyes)
        grid = GridForReport(stageCount,
                             static_cast<std::size_t>(static_cast<double>(input.samples.size()) / report.samplesPerUi));
    const auto count = [&](const StageReport& stage, std::span<const double> samples) {
        const std::span<const double> valid = stage.eye.valid.Of(samples);
        report.eyes.push_back(report.hasEyes
                                  ? CountEye(valid, report.samplesPerUi, stage.eye.phaseUi, RangeOf(valid), grid)
                                  : EyeCounts());
    };
    ChainResult result = RunChain(chain, input.samples, input.eyes, name, begin, count);
    report.stages = std::move(result.stages);
    for (const Stage& stage : chain.Stages()) {
        report.places.push_back(stage.index);
        for (const std::string& note : stage.notes)
            NoteOnce(report.notes, note);
    }
    if (begin)
        begin("responses");
    report.clipping = ClippingOf(capture.samples, report.stages.front());
    if (report.hasEyes)
        report.levels = LevelsOf(input.samples, report.samplesPerUi, report.stages.front().eye);
    try {
        if (!chain.Stages().empty() && report.samplesPerUi >= 1.0)
            report.response = ResponseOf(input.chain, chain.Stages(), report.samplesPerUi);
    } catch (const UsageFailure& failure) {
        report.whyNoResponse = failure.what();
    } catch (const DataFailure& failure) {
        report.whyNoResponse = failure.what();
    }
    report.acquisition = std::move(input.acquisition);
    return report;
}

}  // namespace Tarnwick::DSO::Workbench
