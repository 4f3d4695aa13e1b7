#include "workbench/lockedchain.h"

#include <algorithm>
#include <cmath>
#include <string>

#include <nlohmann/json.hpp>

#include "maths/patterns/codings.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/stageplans.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

// The configuration that a file gives by itself; sizes that follow from a record stay open.
DeviceConfiguration GivenDevice(const ChainFile& file, bool* oeChannels)
{
    DeviceConfiguration config;
    config.oeChannel = oeChannels;
    ReadChainDevice(file, 0, config);
    return config;
}

json DeviceOf(const ChainFile& file)
{
    const json& content = JsonOf(file);
    return content.contains("device") ? content["device"] : json::object();
}

std::string SymbolText(const LockedCapture& capture, E_SIGNAL_CODING coding, bool withoutGrayCoding)
{
    const auto map = withoutGrayCoding ? Maths::SymbolMap::Level : Maths::SymbolMap::Gray;
    return Maths::SymbolsOf(capture.symbols, Maths::Alphabet(coding, map, {}));
}

json DeviceOf(const LockedCapture& capture)
{
    const LockReport& report = capture.report;
    json device = {{"samplesPerUi", report.samplesPerUiOut}};
    if (report.symbolRateGBd > 0.0)
        device["baudRateGBd"] = report.symbolRateGBd;
    if (report.coding != SIGNAL_CODING_UNKNOWN)
        device["signalCoding"] = NameOf(report.coding);
    device["patternLengthUi"] = report.mode == RecordKind::Periodic
                                    ? static_cast<std::size_t>(report.periodUi)
                                    : capture.samples.size() / static_cast<std::size_t>(report.samplesPerUiOut);
    return device;
}

}  // namespace

CaptureFacts FactsOf(const ChainFile& file)
{
    bool oeChannels[4] = {};
    const DeviceConfiguration config = GivenDevice(file, oeChannels);
    const json device = DeviceOf(file);
    CaptureFacts facts;
    facts.symbolRateGBd = device.contains("baudRateGBd") ? config.baudRateGBd : 0.0;
    facts.samplesPerUi = std::max(SamplesPerUiOf(config), 0.0);
    facts.coding = config.signalCoding;
    facts.patternLengthUi = std::max(config.patternLengthUi, 0);
    if (!config.patternSymbols.empty())
        facts.pattern = LevelsOf(config.patternSymbols, config.signalCoding, config.withoutGrayCoding);
    const AcquisitionKeys keys = AcquisitionKeysOf(device, {file.Name(), "device"});
    facts.record = keys.record;
    facts.clock = keys.clock;
    facts.loopBandwidthMHz = keys.loopBandwidthMHz;
    return facts;
}

bool KeepsFractionalSampling(const ChainFile& file)
{
    bool oeChannels[4] = {};
    const DeviceConfiguration config = GivenDevice(file, oeChannels);
    const double samplesPerUi = SamplesPerUiOf(config);
    return !AcquisitionKeysOf(DeviceOf(file), {file.Name(), "device"}).resample &&
           samplesPerUi != std::round(samplesPerUi);
}

bool NeedsTiming(const ChainFile& file)
{
    bool oeChannels[4] = {};
    DeviceConfiguration config = GivenDevice(file, oeChannels);
    const std::vector<StagePlan> plans = PlanStages(file, config);
    return std::any_of(plans.begin(), plans.end(), [](const StagePlan& plan) { return plan.stage.needsTiming; });
}

ChainFile CompletedFor(const ChainFile& file, const LockedCapture& capture)
{
    const LockReport& report = capture.report;
    bool oeChannels[4] = {};
    const DeviceConfiguration given = GivenDevice(file, oeChannels);
    json device = DeviceOf(file);
    for (const char* const key : {"useFractionalSampling", "uiDuration", "sampleSpacing"})
        device.erase(key);
    const bool isSingleShot = report.mode == RecordKind::SingleShot;
    // Sizes of a pattern that the record does not hold would only be in the way.
    if (isSingleShot || report.resampled || report.removedNoiseRms > 0.0)
        for (const char* const key : {"patternRepeats", "samplesPerPattern", "multiplePatternRecord"})
            device.erase(key);
    const json found = DeviceOf(capture);
    for (const auto& [key, value] : found.items())
        if (!device.contains(key) || key == "samplesPerUi" || (isSingleShot && key == "patternLengthUi"))
            device[key] = value;
    if (!capture.symbols.empty() && (isSingleShot || given.patternSymbols.empty()))
        device["patternSymbols"] = SymbolText(capture, report.coding, given.withoutGrayCoding);
    json content = JsonOf(file);
    content["device"] = std::move(device);
    return ChainFileOf(std::move(content), file.Name());
}

std::string ChainFileFor(const LockedCapture& capture)
{
    json device = DeviceOf(capture);
    if (!capture.symbols.empty() && capture.report.mode == RecordKind::Periodic)
        device["patternSymbols"] = SymbolText(capture, capture.report.coding, false);
    if (capture.report.mode == RecordKind::SingleShot) {
        device["record"] = "single-shot";
        device.erase("patternLengthUi");
    }
    return json{{"device", std::move(device)}, {"filters", json::array()}}.dump(4) + "\n";
}

}  // namespace Tarnwick::DSO::Workbench
