#include "workbench/chaininput.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/captures.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/stageplans.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

// What a file says by itself; sizes that follow from a record stay open.
struct ChainDevice {
    explicit ChainDevice(const ChainFile& file)
    {
        config.oeChannel = oeChannels;
        ReadChainDevice(file, 0, config);
        const json& content = JsonOf(file);
        keys = content.contains("device") ? content["device"] : json::object();
        acquisition = AcquisitionKeysOf(keys, {file.Name(), "device"});
    }

    DeviceConfiguration config;
    bool oeChannels[4] = {};
    json keys;
    AcquisitionKeys acquisition;
};

bool KeepsFractionalSampling(const ChainDevice& device)
{
    const double samplesPerUi = SamplesPerUiOf(device.config);
    return !device.acquisition.resample && samplesPerUi != std::round(samplesPerUi);
}

// Whether an equaliser leaves to the one behind it what that is to take off.
bool LeavesEchoes(const json& chain)
{
    const json filters = chain.value("filters", json::array());
    return std::any_of(filters.begin(), filters.end(), [](const json& filter) {
        return filter.is_object() && filter.contains("dfeTaps") && filter["dfeTaps"] != 0;
    });
}

// The file with the record's device: what it leaves out comes from what was found; samples per UI, and of a single shot the
// pattern, are those of the record.
ChainFile WithDeviceOf(const ChainFile& file, const ChainDevice& asWritten, const LockedCapture& capture)
{
    const LockReport& report = capture.report;
    const bool isSingleShot = report.mode == RecordKind::SingleShot;
    json device = asWritten.keys;
    for (const char* const key : {"useFractionalSampling", "uiDuration", "sampleSpacing"})
        device.erase(key);
    // Sizes of a pattern that the record does not hold would only be in the way.
    if (isSingleShot || report.resampled || report.removedNoiseRms > 0.0)
        for (const char* const key : {"patternRepeats", "samplesPerPattern", "multiplePatternRecord"})
            device.erase(key);
    if (isSingleShot)
        for (const char* const key : {"patternLengthUi", "patternSymbols", "useUserPattern"})
            device.erase(key);
    const json locked = LockedDevice(capture, asWritten.config.withoutGrayCoding);
    for (const auto& [key, value] : locked.items())
        if (!device.contains(key) || key == "samplesPerUi")
            device[key] = value;
    // A filter that looks for the symbols by itself takes a single shot for a period, and what an equaliser has left to the
    // one behind it for the line.
    const bool areKnown = isSingleShot || !asWritten.keys.contains("patternSymbols") || LeavesEchoes(JsonOf(file));
    if (areKnown && device.contains("patternSymbols") && !device.contains("useUserPattern"))
        device["useUserPattern"] = true;
    json content = JsonOf(file);
    content["device"] = std::move(device);
    return ChainFileOf(std::move(content), file.Name());
}

ChainInput AsRead(const ChainFile& file, Waveform capture, const std::string& name)
{
    std::vector<std::string> notes;
    ChainInput input{WithSymbols(file, capture.samples, name, notes)};
    input.samples = std::move(capture.samples);
    input.interval = capture.interval;
    input.start = capture.start;
    input.notes = std::move(notes);
    if (!capture.gap.empty())
        input.notes.push_back(capture.gap);
    json content = JsonOf(input.chain);
    content["filters"] = json::array();
    const Chain chain(ChainFileOf(std::move(content), file.Name()), input.samples.size());
    if (auto note = KeepWholeRepetitions(input.samples, chain, name))
        input.notes.push_back(std::move(*note));
    input.eyes = EyeSettingsOf(chain);
    return input;
}

ChainInput InputOf(const ChainFile& file, const ChainDevice& device, LockedCapture locked, const std::string& name)
{
    ChainInput input{WithDeviceOf(file, device, locked)};
    input.interval = locked.interval;
    input.start = locked.start;
    input.eyes = EyeSettingsOf(locked);
    input.notes = locked.report.warnings;
    if (locked.report.mode == RecordKind::Periodic && locked.report.leftOut > 0)
        input.notes.push_back(
            fmt::format("{}: {} samples after the last whole repetition are left out", name, locked.report.leftOut));
    input.samples = std::move(locked.samples);
    input.acquisition = std::move(locked.report);
    return input;
}

CaptureFacts FactsOf(const ChainDevice& device, CaptureFacts given)
{
    const DeviceConfiguration& config = device.config;
    if (given.symbolRateGBd == 0.0 && device.keys.contains("baudRateGBd"))
        given.symbolRateGBd = config.baudRateGBd;
    if (given.samplesPerUi == 0.0)
        given.samplesPerUi = std::max(SamplesPerUiOf(config), 0.0);
    if (given.coding == SIGNAL_CODING_UNKNOWN)
        given.coding = config.signalCoding;
    if (given.patternLengthUi == 0) {
        given.patternLengthUi = std::max(config.patternLengthUi, 0);
        if (given.pattern.empty() && !config.patternSymbols.empty() && given.coding == config.signalCoding)
            given.pattern = LevelsOf(config.patternSymbols, config.signalCoding, config.withoutGrayCoding);
    }
    if (given.record == RecordKind::Auto)
        given.record = device.acquisition.record;
    if (given.clock == ClockKind::Constant)
        given.clock = device.acquisition.clock;
    if (given.loopBandwidthMHz == 0.0)
        given.loopBandwidthMHz = device.acquisition.loopBandwidthMHz;
    return given;
}

}  // namespace

CaptureFacts FactsOf(const ChainFile& file, CaptureFacts given)
{
    return FactsOf(ChainDevice(file), std::move(given));
}

ChainInput InputFor(const ChainFile& file, LockedCapture locked, const std::string& name)
{
    return InputOf(file, ChainDevice(file), std::move(locked), name);
}

ChainInput InputFor(const ChainFile& file, Waveform capture, const CaptureFacts& given, const std::string& name)
{
    const ChainDevice device(file);
    if (KeepsFractionalSampling(device))
        return AsRead(file, std::move(capture), name);
    LockedCapture locked;
    try {
        locked = Lock(std::move(capture), FactsOf(device, given), name);
    } catch (const NoClockFailure& failure) {
        if (NeedsTiming(file))
            throw;
        // A lock that finds no clock has not taken it.
        // cppcheck-suppress accessMoved
        ChainInput input = AsRead(file, std::move(capture), name);  // NOLINT(bugprone-use-after-move)
        input.notes.insert(input.notes.begin(), std::string(failure.what()) + "; it is filtered as it was read");
        return input;
    }
    return InputOf(file, device, std::move(locked), name);
}

void RequireEyes(const ChainInput& input, const std::string& name, const std::string& user)
{
    if (input.acquisition)
        RequireLevels(*input.acquisition, name);
    for (const auto& [isKnown, key] : {std::pair(input.eyes.levelCount > 1, "signalCoding"),
                                       std::pair(input.eyes.samplesPerUi >= 1.0, "samplesPerUi")})
        if (!isKnown)
            throw UsageFailure(fmt::format("{}: device.{}: is missing; {} needs it", input.chain.Name(), key, user));
}

std::string ChainFileFor(const LockedCapture& capture)
{
    json device = LockedDevice(capture, false);
    if (capture.report.mode == RecordKind::SingleShot) {
        device["record"] = "single-shot";
        device.erase("patternLengthUi");
        device.erase("patternSymbols");
    }
    return JsonText(json{{"device", std::move(device)}, {"filters", json::array()}}, 4) + "\n";
}

}  // namespace Tarnwick::DSO::Workbench
