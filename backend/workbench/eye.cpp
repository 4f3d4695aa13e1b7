#include "workbench/eye.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "maths/patterns/levels.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Workbench {

namespace {

// One sampling phase: the values at it, one a UI.
class Phases {
public:
    Phases(std::span<const double> samples, double samplesPerUi)
        : samples_(samples),
          samplesPerUi_(samplesPerUi),
          count_(static_cast<int>(samplesPerUi)),
          symbols_(static_cast<std::size_t>(static_cast<double>(samples.size()) / samplesPerUi))
    {
    }
    int Count() const { return count_; }
    std::size_t Symbols() const { return symbols_; }
    /// Values at phase p of the UI; p below 0 and from Count() on lie in the UIs before and behind.
    std::vector<double> At(int p) const
    {
        std::vector<double> values(symbols_);
        const double offset = static_cast<double>(p) / count_ * samplesPerUi_;
        const bool whole = samplesPerUi_ == count_;
        for (std::size_t i = 0; i < symbols_; ++i) {
            const double at = static_cast<double>(i) * samplesPerUi_ + offset;
            values[i] = Maths::SampleAt(samples_, whole ? std::floor(at) : at);
        }
        return values;
    }

private:
    std::span<const double> samples_;
    double samplesPerUi_;
    int count_;
    std::size_t symbols_;
};

struct Decision {
    std::vector<double> levels;
    std::vector<double> thresholds;
    std::vector<double> heights;
};

std::optional<Decision> Decide(std::vector<double> values, int levelCount)
{
    std::sort(values.begin(), values.end());
    std::optional<Maths::LevelPartition> partition = Maths::PartitionIntoLevels(values, levelCount);
    if (!partition || partition->IsOfOneLevel())
        return std::nullopt;
    const std::vector<std::size_t>& bounds = partition->bounds;
    Decision decision{std::move(partition->means), std::move(partition->thresholds), {}};
    for (std::size_t k = 1; k + 1 < bounds.size(); ++k)
        decision.heights.push_back(values[bounds[k]] - values[bounds[k] - 1]);
    return decision;
}

// Opening of each eye among values whose symbols are known.
std::vector<double> Openings(const std::vector<double>& values, const std::vector<int>& symbols, int levelCount)
{
    const auto eyes = static_cast<std::size_t>(levelCount - 1);
    std::vector<double> lowest(eyes + 1, std::numeric_limits<double>::infinity());
    std::vector<double> highest(eyes + 1, -std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto symbol = static_cast<std::size_t>(symbols[i]);
        lowest[symbol] = std::min(lowest[symbol], values[i]);
        highest[symbol] = std::max(highest[symbol], values[i]);
    }
    std::vector<double> openings(eyes);
    for (std::size_t eye = 0; eye < eyes; ++eye)
        openings[eye] = *std::min_element(lowest.begin() + static_cast<std::ptrdiff_t>(eye) + 1, lowest.end()) -
                        *std::max_element(highest.begin(), highest.begin() + static_cast<std::ptrdiff_t>(eye) + 1);
    return openings;
}

// How far, in phases, the eyes stay open on one side of the best phase, up to half a UI.
std::vector<double> OpenSpan(const Phases& phases, int best, int direction, const std::vector<int>& symbols,
                             std::vector<double> openings, int levelCount)
{
    const int reach = phases.Count() / 2;
    std::vector<double> span(openings.size(), 0.0);
    std::vector<bool> open(openings.size(), true);
    for (int step = 1; step <= reach && std::find(open.begin(), open.end(), true) != open.end(); ++step) {
        const std::vector<double> next = Openings(phases.At(best + direction * step), symbols, levelCount);
        for (std::size_t eye = 0; eye < span.size(); ++eye) {
            if (!open[eye])
                continue;
            open[eye] = next[eye] > 0.0;
            span[eye] = open[eye] ? step : step - 1 + openings[eye] / (openings[eye] - next[eye]);
        }
        openings = next;
    }
    return span;
}

}  // namespace

EyeReport MeasureEyes(std::span<const double> samples, double samplesPerUi, int levelCount)
{
    const Phases phases(samples, samplesPerUi);
    EyeReport report;
    if (phases.Symbols() < static_cast<std::size_t>(levelCount) ||
        !std::all_of(samples.begin(), samples.end(), [](double sample) { return std::isfinite(sample); }))
        return report;

    // The smallest height at each phase; of a flat top of equal ones the middle counts.
    std::vector<double> smallest(static_cast<std::size_t>(phases.Count()), -1.0);
    for (int p = 0; p < phases.Count(); ++p)
        if (const auto decision = Decide(phases.At(p), levelCount))
            smallest[static_cast<std::size_t>(p)] =
                *std::min_element(decision->heights.begin(), decision->heights.end());
    const auto top = std::max_element(smallest.begin(), smallest.end());
    if (*top < 0.0)
        return report;
    constexpr double kEqual = 1e-9;
    auto plateau = top;
    while (plateau + 1 != smallest.end() && *(plateau + 1) >= *top * (1.0 - kEqual))
        ++plateau;
    const int best = static_cast<int>((top - smallest.begin()) + (plateau - top) / 2);

    const std::vector<double> values = phases.At(best);
    const Decision decision = *Decide(values, levelCount);
    std::vector<int> symbols(values.size());
    std::transform(values.begin(), values.end(), symbols.begin(),
                   [&](double value) { return Maths::LevelOf(value, decision.thresholds); });
    const auto left = OpenSpan(phases, best, -1, symbols, decision.heights, levelCount);
    const auto right = OpenSpan(phases, best, 1, symbols, decision.heights, levelCount);
    report.levels = decision.levels;
    report.phaseUi = static_cast<double>(best) / phases.Count();
    for (std::size_t eye = 0; eye < decision.heights.size(); ++eye)
        report.eyes.push_back({decision.heights[eye], std::min(1.0, (left[eye] + right[eye]) / phases.Count())});
    return report;
}

}  // namespace Tarnwick::DSO::Workbench
