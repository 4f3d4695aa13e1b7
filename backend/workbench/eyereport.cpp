#include "workbench/eyereport.h"

#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/eyejson.h"

namespace Tarnwick::DSO::Workbench {

namespace {

std::string Joined(const EyeReport& report, double EyeOpening::*value)
{
    std::vector<double> values;
    values.reserve(report.eyes.size());
    for (const EyeOpening& eye : report.eyes)
        values.push_back(eye.*value);
    return values.empty() ? "-" : fmt::format("{:.4g}", fmt::join(values, " "));
}

}  // namespace

nlohmann::ordered_json EyesToJson(const EyeReport& report)
{
    nlohmann::ordered_json eyes = nlohmann::ordered_json::array();
    for (const EyeOpening& eye : report.eyes)
        eyes.push_back({{"height", eye.height}, {"widthUi", eye.widthUi}});
    return eyes;
}

std::string HeightsText(const EyeReport& report)
{
    return Joined(report, &EyeOpening::height);
}

std::string WidthsText(const EyeReport& report)
{
    return Joined(report, &EyeOpening::widthUi);
}

void RequireEyes(const Chain& chain, const std::string& name, const std::string& user)
{
    if (LevelCount(chain.Device().signalCoding) < 2)
        throw UsageFailure(fmt::format("{}: device.signalCoding: is missing; {} needs it", name, user));
    if (chain.SamplesPerUi() < 1.0)
        throw UsageFailure(fmt::format("{}: device.samplesPerUi: is missing; {} needs it", name, user));
}

}  // namespace Tarnwick::DSO::Workbench
