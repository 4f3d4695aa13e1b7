#include "workbench/chainresponse.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/run.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;

constexpr const char* kWhole = "whole";
constexpr std::int32_t kMostSamples = 1 << 26;  // half a gigabyte an array: no pattern is that long

[[noreturn]] void RefuseDevice(const json& device, const std::string& name, const std::string& key,
                               const char* expected)
{
    if (!device.contains(key))
        throw UsageFailure(fmt::format("{}: device.{}: is missing; response needs it", name, key));
    throw UsageFailure(fmt::format("{}: device.{}: is {}; expected {}", name, key, JsonText(device[key]), expected));
}

// The first repetition, rotated so that the impulse, which was sent in its middle, is at sample 0.
std::vector<double> FirstRepetition(const std::vector<double>& samples, const ImpulseRecord& record)
{
    std::vector<double> first(samples.begin(),
                              samples.begin() + static_cast<std::ptrdiff_t>(record.RepetitionLength()));
    std::rotate(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(first.size() / 2), first.end());
    return first;
}

std::vector<double> RunOnImpulse(Stage& stage, std::vector<double>& samples, const std::string& name)
{
    std::vector<double> result = RunStage(stage, samples, name, name);
    if (!std::all_of(result.begin(), result.end(), [](double value) { return std::isfinite(value); }))
        throw UsageFailure(fmt::format("{}: {}: its response to an impulse is not finite", name, stage.place));
    return result;
}

}  // namespace

ImpulseRecord ImpulseRecordFor(const ChainFile& file)
{
    const std::string& name = file.Name();
    // Without filters: what the device lacks is named before what a filter misses because of it.
    json withoutFilters = JsonOf(file);
    if (withoutFilters.is_object() && withoutFilters.contains("filters"))
        withoutFilters["filters"] = json::array();
    const Chain chain(ChainFileOf(withoutFilters, name), 0);
    const DeviceConfiguration& device = chain.Device();
    const json keys = withoutFilters.value("device", json::object());
    if (!(device.baudRateGBd > 0.0))
        RefuseDevice(keys, name, "baudRateGBd", "a positive symbol rate");
    if (device.useFractionalSampling) {
        if (!(device.uiDuration > 0.0))
            RefuseDevice(keys, name, "uiDuration", "a positive time");
        if (!(device.sampleSpacing > 0.0 && device.sampleSpacing <= device.uiDuration))
            RefuseDevice(keys, name, "sampleSpacing", "a positive time of at most uiDuration");
    } else if (device.samplesPerUi < 1) {
        RefuseDevice(keys, name, "samplesPerUi", "at least 1");
    }
    if (device.patternLengthUi < 1)
        RefuseDevice(keys, name, "patternLengthUi", "at least 1");
    const bool namesRepetitions = keys.contains("patternRepeats");
    if (namesRepetitions && device.patternRepeats < 1)
        RefuseDevice(keys, name, "patternRepeats", "at least 1");

    const double period = device.useFractionalSampling || !keys.contains("samplesPerPattern")
                              ? chain.SamplesPerUi() * device.patternLengthUi
                              : device.samplesPerPattern;
    if (period < 1.0)
        RefuseDevice(keys, name, "samplesPerPattern", "at least 1");
    const int repetitions = namesRepetitions ? device.patternRepeats : 1;
    const double count = std::ceil(period * repetitions);
    if (count > kMostSamples)
        throw UsageFailure(
            fmt::format("{}: device: patternLengthUi * samplesPerUi * patternRepeats is {}; expected at most {}", name,
                        count, kMostSamples));
    return {static_cast<std::size_t>(count), static_cast<std::size_t>(repetitions),
            device.baudRateGBd * kGiga * chain.SamplesPerUi()};
}

void ChainResponse::ForEach(
    const std::function<void(const std::string& label, const TransferFunction& function)>& visit) const
{
    for (const FilterResponse& filter : filters)
        visit(filter.label, filter.function);
    visit(kWhole, whole);
}

ChainResponse MeasureResponse(Chain& chain, const ImpulseRecord& record, double symbolRate,
                              const std::function<void(const std::string& what)>& begin)
{
    // In the middle, so that what a filter puts before the impulse stays in this repetition.
    std::vector<double> impulse(record.sampleCount, 0.0);
    impulse[record.RepetitionLength() / 2] = 1.0;

    ChainResponse response;
    response.symbolRate = symbolRate;
    response.samplesPerUi = record.sampleRate / symbolRate;
    response.bandEnd = kSymbolRatesShown * symbolRate;
    std::vector<double> whole = impulse;
    for (Stage& stage : chain.Stages()) {
        if (begin)
            begin(stage.name);
        std::string label = fmt::format("{} {}", stage.index, stage.name);
        const auto addTaps = [&](std::span<const double> front, std::span<const double> behind) {
            FilterTaps& taps = response.taps.emplace_back(FilterTaps{stage.name, stage.index, {stage.taps(), {}}});
            if (response.leftOut.empty())
                taps.figure.pulses = IdealPulseResponses(taps.figure.taps, front, behind, response.samplesPerUi);
        };
        if (stage.taps && !stage.adaptive && !stage.linear)
            addTaps(FirstRepetition(whole, record), {});
        if (!stage.linear || stage.adaptive) {
            response.leftOut.push_back(std::move(label));
            continue;
        }
        const std::vector<double> alone = RunOnImpulse(stage, impulse, chain.Name());
        const std::vector<double> front = stage.taps ? FirstRepetition(whole, record) : std::vector<double>();
        whole = response.filters.empty() ? alone : RunOnImpulse(stage, whole, chain.Name());
        if (stage.taps)
            addTaps(front, FirstRepetition(whole, record));
        FilterResponse& filter = response.filters.emplace_back();
        filter.label = std::move(label);
        filter.index = stage.index;
        if (stage.name == "deembedding")
            response.bandEnd = 0.5 * record.sampleRate;
        filter.function = Transform(FirstRepetition(alone, record), record.sampleRate);
        if (stage.channel)
            filter.channel = CorrectChannel(*stage.channel, filter.function, symbolRate);
    }
    if (begin)
        begin(kWhole);
    response.whole = Transform(FirstRepetition(whole, record), record.sampleRate);
    return response;
}

}  // namespace Tarnwick::DSO::Workbench
