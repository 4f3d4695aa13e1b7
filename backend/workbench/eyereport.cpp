#include "workbench/eyereport.h"

#include <optional>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/eyejson.h"

namespace Tarnwick::DSO::Workbench {

namespace {

std::vector<double> ValuesOf(const EyeReport& report, double EyeOpening::*value)
{
    std::vector<double> values;
    values.reserve(report.eyes.size());
    for (const EyeOpening& eye : report.eyes)
        values.push_back(eye.*value);
    return values;
}

std::string Joined(const EyeReport& report, double EyeOpening::*value)
{
    return report.eyes.empty() ? "-" : fmt::format("{:.4g}", fmt::join(ValuesOf(report, value), " "));
}

nlohmann::ordered_json OrNull(const std::optional<double>& value)
{
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
}

}  // namespace

nlohmann::ordered_json EyesToJson(const EyeReport& report)
{
    nlohmann::ordered_json eyes = nlohmann::ordered_json::array();
    for (const EyeOpening& eye : report.eyes)
        eyes.push_back({{"height", eye.height},
                        {"openingPercent", eye.openingPercent},
                        {"widthUi", eye.widthUi},
                        {"widthPs", OrNull(eye.widthPs)},
                        {"threshold", eye.threshold},
                        {"heightAtBer", OrNull(eye.heightAtBer)},
                        {"q", eye.q}});
    return eyes;
}

void AddErrorRatio(nlohmann::ordered_json& target, const EyeReport& report)
{
    target["ber"] = OrNull(report.ber);
    target["noiseRms"] = OrNull(report.noiseRms);
    target["symbolsKnown"] = report.symbolsKnown;
    target["valid"] = {{"first", report.valid.first}, {"count", report.valid.count}};
}

std::string HeightsText(const EyeReport& report)
{
    return Joined(report, &EyeOpening::height);
}

std::string WidthsText(const EyeReport& report)
{
    return Joined(report, &EyeOpening::widthUi);
}

std::string OpeningsText(const EyeReport& report)
{
    return report.eyes.empty() ? "-"
                               : fmt::format("{:.1f}", fmt::join(ValuesOf(report, &EyeOpening::openingPercent), " "));
}

std::string BerText(const EyeReport& report)
{
    constexpr double kSmallest = 1e-30;  // smaller ones stand for nothing that could ever be counted
    if (!report.ber)
        return "-";
    if (*report.ber > 0.0 && *report.ber < kSmallest)
        return fmt::format("below {:g}", kSmallest);
    return fmt::format("{:.2g}", *report.ber);
}

EyeSettings EyeSettingsOf(const Chain& chain)
{
    const DeviceConfiguration& device = chain.Device();
    EyeSettings settings{.samplesPerUi = chain.SamplesPerUi(),
                         .levelCount = LevelCount(device.signalCoding),
                         .symbolRateGBd = device.baudRateGBd};
    settings.pattern = LevelsOf(device.patternSymbols, device.signalCoding, device.withoutGrayCoding);
    if (device.patternRepeats > 1 && device.patternLengthUi > 0)
        settings.periodUi = static_cast<std::size_t>(device.patternLengthUi);
    return settings;
}

void RequireEyes(const Chain& chain, const std::string& name, const std::string& user)
{
    if (LevelCount(chain.Device().signalCoding) < 2)
        throw UsageFailure(fmt::format("{}: device.signalCoding: is missing; {} needs it", name, user));
    if (chain.SamplesPerUi() < 1.0)
        throw UsageFailure(fmt::format("{}: device.samplesPerUi: is missing; {} needs it", name, user));
}

}  // namespace Tarnwick::DSO::Workbench
