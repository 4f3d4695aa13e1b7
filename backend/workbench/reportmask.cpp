#include <cmath>
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/failure.h"
#include "workbench/htmlreport.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/wholefile.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;

std::pair<double, double> PointFrom(const json& point)
{
    if (!point.is_array() || point.size() != 2)
        throw json::other_error::create(0, "", nullptr);
    const auto value = std::pair(point[0].get<double>(), point[1].get<double>());
    if (!std::isfinite(value.first) || !std::isfinite(value.second))
        throw json::other_error::create(0, "", nullptr);
    return value;
}

}  // namespace

ReportMask ReadReportMask(const std::filesystem::path& path)
{
    constexpr std::size_t kFewestCorners = 3;
    std::string text;
    try {
        text = ReadWholeFile(path);
    } catch (const DataFailure& failure) {  // a mask is a setting, not data
        throw UsageFailure(failure.what());
    }
    const json content = ParsedJson(text, path.string());
    ReportMask mask;
    try {
        mask.name = content.value("name", path.filename().string());
        if (content.at("polygons").empty())
            throw json::other_error::create(0, "", nullptr);
        for (const json& polygon : content["polygons"]) {
            auto& points = mask.polygons.emplace_back();
            for (const json& point : polygon)
                points.push_back(PointFrom(point));
            if (points.size() < kFewestCorners)
                throw UsageFailure(fmt::format("{}: polygon {} has {} points; expected at least {}", path.string(),
                                               mask.polygons.size(), points.size(), kFewestCorners));
        }
    } catch (const json::exception&) {
        throw UsageFailure(fmt::format(
            "{}: is no mask; expected {{\"name\": \"...\", \"polygons\": [[[UI, V], ...], ...]}}", path.string()));
    }
    return mask;
}

}  // namespace Tarnwick::DSO::Workbench
