#include "workbench/ranking.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "workbench/plumbing/fields.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr double kNone = -std::numeric_limits<double>::infinity();

constexpr struct {
    const char* name;
    RankBy rank;
} kRanks[] = {{"opening", RankBy::Opening},
              {"height", RankBy::Height},
              {"width", RankBy::Width},
              {"ber", RankBy::Ber},
              {"tdecq", RankBy::Tdecq}};

}  // namespace

std::vector<std::string> RankNames()
{
    return NamesOf(kRanks);
}

std::string NameOf(RankBy rank)
{
    return kRanks[static_cast<std::size_t>(rank)].name;
}

std::optional<RankBy> RankOf(std::string_view name)
{
    const auto* const row =
        std::find_if(std::begin(kRanks), std::end(kRanks), [&](const auto& one) { return name == one.name; });
    return row == std::end(kRanks) ? std::nullopt : std::optional(row->rank);
}

double SmallestOf(const EyeReport& report, double EyeOpening::*figure)
{
    double smallest = report.eyes.empty() ? kNone : -kNone;
    for (const EyeOpening& eye : report.eyes)
        smallest = std::min(smallest, eye.*figure);
    return smallest;
}

std::optional<double> SmallestOf(const EyeReport& report, std::optional<double> EyeOpening::*figure)
{
    std::optional<double> smallest;
    for (const EyeOpening& eye : report.eyes)
        if (const std::optional<double>& value = eye.*figure)
            smallest = std::min(smallest.value_or(*value), *value);
    return smallest;
}

double FigureOf(const EyeReport& report, std::optional<double> tdecqDb, RankBy rank)
{
    switch (rank) {
        case RankBy::Opening: return SmallestOf(report, &EyeOpening::openingPercent);
        case RankBy::Height: return SmallestOf(report, &EyeOpening::height);
        case RankBy::Width: return SmallestOf(report, &EyeOpening::widthUi).value_or(kNone);
        case RankBy::Ber: return report.ber ? -*report.ber : kNone;
        case RankBy::Tdecq: return tdecqDb ? -*tdecqDb : kNone;
    }
    return kNone;
}

}  // namespace Tarnwick::DSO::Workbench
