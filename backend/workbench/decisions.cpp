#include "workbench/decisions.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "maths/equalisers/decisionfeedback.h"
#include "maths/patterns/alignment.h"

namespace Tarnwick::DSO::Workbench {

namespace {

// For each level and UI, in how many repetitions that level was decided.
using Tally = std::vector<std::vector<double>>;

// The most decisions that agree with the pattern at any rotation. At one rotation they are the sum over the levels of the
// circular correlation of "decided here" with "sent here": whole numbers, once rounded.
std::size_t MostAgreements(const Tally& tally, std::span<const int> pattern)
{
    const std::size_t count = pattern.size();
    std::vector<double> agreements(count, 0.0);
    std::vector<double> isLevel(count);
    for (std::size_t level = 0; level < tally.size(); ++level) {
        std::transform(pattern.begin(), pattern.end(), isLevel.begin(),
                       [level](int sent) { return sent == static_cast<int>(level) ? 1.0 : 0.0; });
        const std::vector<double> ofLevel = Maths::CircularCorrelation(tally[level], isLevel);
        for (std::size_t i = 0; i < count; ++i)
            agreements[i] += ofLevel[i];
    }
    return static_cast<std::size_t>(std::lround(*std::max_element(agreements.begin(), agreements.end())));
}

}  // namespace

DecisionCount CountDecisions(std::span<const double> samples, std::span<const int> pattern, int levelCount,
                             double samplesPerUi, double delay, std::size_t ignoredUi)
{
    const double period = samplesPerUi * static_cast<double>(pattern.size());
    // A period with a fraction of a sample may be cut one sample short.
    const double slack = period == std::floor(period) ? 0.0 : 1.0;
    const auto repetitions = static_cast<std::size_t>((static_cast<double>(samples.size()) + slack) / period);

    // Without taps the equaliser is a slicer, whose passes find the levels.
    DSO::Maths::DecisionFeedback slicer({}, levelCount, {pattern.size(), samplesPerUi});
    std::size_t decisions = 0;
    Tally tally(static_cast<std::size_t>(levelCount), std::vector<double>(pattern.size(), 0.0));
    std::vector<double> unchanged(static_cast<std::size_t>(period) + 1);
    for (std::size_t r = 0; r < repetitions; ++r) {
        const double position = static_cast<double>(r) * period;
        const auto begin = static_cast<std::size_t>(position);
        const auto end = std::min(samples.size(), static_cast<std::size_t>(position + period));
        slicer.Equalise(samples.subspan(begin, end - begin), delay + position - static_cast<double>(begin),
                        std::span(unchanged).first(end - begin));
        const std::size_t first = r * pattern.size();
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            if (first + i < ignoredUi || first + i + ignoredUi >= repetitions * pattern.size())
                continue;
            tally[static_cast<std::size_t>(slicer.Decisions()[i])][i] += 1.0;
            ++decisions;
        }
    }
    return {decisions, decisions == 0 ? 0 : decisions - MostAgreements(tally, pattern)};
}

}  // namespace Tarnwick::DSO::Workbench
