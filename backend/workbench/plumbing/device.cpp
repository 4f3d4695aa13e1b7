#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include <nlohmann/json.hpp>

#include "maths/patterns/codings.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/jsontext.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

constexpr std::size_t kChannels = 4;

void SetCoding(DeviceConfiguration& config, const json& value, const Place& place)
{
    config.signalCoding = RowFrom(Maths::kCodings, value, place).coding;
}

// One flag for all four channels, or a list of four.
void SetFlags(bool* flags, const json& value, const Place& place)
{
    if (value.is_array() && value.size() == kChannels) {
        for (std::size_t k = 0; k < kChannels; ++k)
            flags[k] = FlagFrom(value[k], place.Below(std::to_string(k)));
        return;
    }
    if (!value.is_boolean())
        place.Fail(fmt::format("is {}; expected true, false or a list of four of them", JsonText(value)));
    std::fill_n(flags, kChannels, value.get<bool>());
}

void ReadPatternSymbols(const json& symbols, const Place& place, DeviceConfiguration& config)
{
    const auto named = [&](auto&& run) {
        try {
            return run();
        } catch (const UsageFailure& failure) {
            place.Fail(failure.what());
        }
    };
    if (!symbols.is_object()) {
        config.patternSymbols = TextFrom(symbols, place);
        named([&] { return LevelsOf(config.patternSymbols, config.signalCoding, config.withoutGrayCoding); });
        return;
    }
    for (const auto& item : symbols.items())
        if (item.key() != "prbs")
            RefuseUnknownKey(item.key(), {"prbs"}, place);
    if (!symbols.contains("prbs"))
        place.Fail(R"(is empty; expected a text or {"prbs": n})");
    const int order = IntegerFrom(symbols["prbs"], place.Below("prbs"));
    config.patternSymbols = named([&] { return PrbsSymbols(order, config.signalCoding); });
}

}  // namespace

const std::vector<Field<DeviceConfiguration>>& DeviceFields()
{
    using D = DeviceConfiguration;
    static const std::vector<Field<D>> fields = {
        {"baudRateGBd", &D::baudRateGBd, "GBd", "symbol rate", "found in a capture with times"},
        {"samplesPerUi", &D::samplesPerUi, "samples", "whole samples per UI; not read with `useFractionalSampling`",
         "found in the capture"},
        {"useFractionalSampling", &D::useFractionalSampling, "",
         "samples per UI are `uiDuration` / `sampleSpacing` instead of `samplesPerUi`"},
        {"uiDuration", &D::uiDuration, "any time", "one UI, in the unit of `sampleSpacing`", ""},
        {"sampleSpacing", &D::sampleSpacing, "any time", "time between two samples", ""},
        {"signalCoding", Setter<D>{&SetCoding, "text"}, "", "line coding", "found in the capture", CodingNames()},
        {"patternSymbols",
         // Read last: which symbols there are depends on the coding.
         Setter<D>{[](D&, const json&, const Place&) {}, "text or object"}, "",
         "a digit a symbol, or `{\"prbs\": n}` with n = 7, 9, 11, 13, 15 or 23", "found in the capture"},
        {"patternLengthUi", &D::patternLengthUi, "UI", "length of the pattern",
         "that of `patternSymbols`, or found in the capture"},
        {"withoutGrayCoding", &D::withoutGrayCoding, "", "PAM4 symbols are level indices, not Gray codes"},
        {"useUserPattern", &D::useUserPattern, "", "PAM4: `patternSymbols` are taken as they stand"},
        {"patternRepeats", &D::patternRepeats, "", "repetitions of the pattern in the capture",
         "what the capture holds"},
        {"samplesPerPattern", &D::samplesPerPattern, "samples", "length of one repetition",
         "`samplesPerUi` × `patternLengthUi`"},
        {"multiplePatternRecord", &D::multiplePatternRecord, "", "the capture holds several repetitions",
         "`patternRepeats` > 1"},
        {"patternLocked",
         Setter<D>{[](D& d, const json& value, const Place& place) { SetFlags(d.patternLocked, value, place); },
                   "true or false, or a list of four"},
         "", "pattern lock on the channels", "true"},
        {"oeChannel",
         Setter<D>{[](D& d, const json& value, const Place& place) { SetFlags(d.oeChannel, value, place); },
                   "true or false, or a list of four"},
         "", "the channels are fed through an optical-to-electrical converter", "false"},
        {"oeReceiverSelector", &D::oeReceiverSelector, "",
         "`sirc`: which of an optical channel's three responses applies; a chain gives all three the same"},
        {"channelBandwidths",
         Setter<D>{[](D& d, const json& value, const Place& place) { d.channelBandwidths = NumbersFrom(value, place); },
                   "list of numbers"},
         "Hz", "`sirc`: bandwidth of each channel; 0 stands for 39.8 GHz", "0 for each channel"},
    };
    return fields;
}

namespace {

struct NamedRecordKind {
    const char* name;
    RecordKind kind;
};
constexpr NamedRecordKind kRecordKinds[] = {
    {"auto", RecordKind::Auto}, {"periodic", RecordKind::Periodic}, {"single-shot", RecordKind::SingleShot}};

struct NamedClockKind {
    const char* name;
    ClockKind kind;
};
constexpr NamedClockKind kClockKinds[] = {{"constant", ClockKind::Constant}, {"tracked", ClockKind::Tracked}};

}  // namespace

const std::vector<Field<AcquisitionKeys>>& AcquisitionFields()
{
    using A = AcquisitionKeys;
    static const std::vector<Field<A>> fields = {
        {"record",
         Setter<A>{
             [](A& a, const json& value, const Place& place) { a.record = RowFrom(kRecordKinds, value, place).kind; },
             "text"},
         "", "whole periods of the pattern, or a single shot whose ends are left out behind the filters", "auto",
         NamesOf(kRecordKinds)},
        {"clock",
         Setter<A>{
             [](A& a, const json& value, const Place& place) { a.clock = RowFrom(kClockKinds, value, place).kind; },
             "text"},
         "", "symbol clock along which the capture is resampled", "constant", NamesOf(kClockKinds)},
        {"loopBandwidthMHz", &A::loopBandwidthMHz, "MHz", "of the tracked clock", "symbol rate / 1667"},
        {"resample", &A::resample, "",
         "a capture without a whole number of samples per UI is resampled; otherwise the filters' rules for it hold"},
    };
    return fields;
}

AcquisitionKeys AcquisitionKeysOf(const json& device, const Place& place)
{
    AcquisitionKeys keys;
    for (const auto& field : AcquisitionFields())
        if (device.contains(field.name))
            SetField(keys, field, device[field.name], place.Below(field.name));
    if (!(keys.loopBandwidthMHz >= 0.0))
        place.Below("loopBandwidthMHz").Fail(fmt::format("is {}; expected 0 or more", keys.loopBandwidthMHz));
    return keys;
}

void ReadDevice(const json& chain, const Place& top, std::size_t sampleCount, DeviceConfiguration& config)
{
    std::fill(std::begin(config.patternLocked), std::end(config.patternLocked), true);
    const Place place = top.Below("device");
    const json device = chain.contains("device") ? chain["device"] : json::object();
    for (const auto& [name, value] : ObjectFrom(device, place).items()) {
        const auto* const field = FindField(DeviceFields(), name);
        if (field == nullptr && FindField(AcquisitionFields(), name) != nullptr)
            continue;  // of the capture's acquisition, checked with the others below
        if (field == nullptr) {
            std::vector<std::string> known;
            AppendNames(DeviceFields(), known);
            AppendNames(AcquisitionFields(), known);
            RefuseUnknownKey(name, known, place);
        }
        SetField(config, *field, value, place.Below(name));
    }
    (void)AcquisitionKeysOf(device, place);
    if (device.contains("patternSymbols")) {
        ReadPatternSymbols(device["patternSymbols"], place.Below("patternSymbols"), config);
        if (!device.contains("patternLengthUi"))
            config.patternLengthUi = static_cast<int>(config.patternSymbols.size());
    }

    const double period = SamplesPerUiOf(config) * config.patternLengthUi;
    // Sizes whose product does not fit are left to the filters, which name them.
    const double product = static_cast<double>(config.samplesPerUi) * config.patternLengthUi;
    if (!device.contains("samplesPerPattern") && std::abs(product) <= std::numeric_limits<std::int32_t>::max())
        config.samplesPerPattern = static_cast<std::int32_t>(product);
    if (device.contains("patternRepeats") && config.patternRepeats < 1)
        place.Below("patternRepeats").Fail(fmt::format("is {}; expected at least 1", config.patternRepeats));
    if (!device.contains("patternRepeats") && period >= 1.0)
        config.patternRepeats = static_cast<int>(static_cast<double>(sampleCount) / period);
    if (!device.contains("multiplePatternRecord"))
        config.multiplePatternRecord = config.patternRepeats > 1;
}

json LockedDevice(const LockedCapture& capture, bool withoutGrayCoding)
{
    const LockReport& report = capture.report;
    json device = {{"samplesPerUi", report.samplesPerUiOut}};
    if (report.symbolRateGBd > 0.0)
        device["baudRateGBd"] = report.symbolRateGBd;
    if (report.coding != SIGNAL_CODING_UNKNOWN)
        device["signalCoding"] = Maths::FindCoding(report.coding)->name;
    device["patternLengthUi"] = report.mode == RecordKind::Periodic
                                    ? static_cast<std::size_t>(report.periodUi)
                                    : capture.samples.size() / static_cast<std::size_t>(report.samplesPerUiOut);
    const auto map = withoutGrayCoding ? Maths::SymbolMap::Level : Maths::SymbolMap::Gray;
    if (!capture.symbols.empty())
        device["patternSymbols"] = Maths::SymbolsOf(capture.symbols, Maths::Alphabet(report.coding, map, {}));
    return device;
}

double SamplesPerUiOf(const DeviceConfiguration& config)
{
    const double samples =
        config.useFractionalSampling ? config.uiDuration / config.sampleSpacing : config.samplesPerUi;
    return std::isfinite(samples) ? samples : 0.0;
}

}  // namespace Tarnwick::DSO::Workbench
