#include "maths/patterns/symboldetection.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kMostPhases = 8;  // tried over one UI

// One sample a UI, from `phaseUi` on, with linear interpolation round the period.
std::vector<double> SampledAt(std::span<const double> samples, std::size_t symbolCount, double phaseUi)
{
    const double samplesPerUi = static_cast<double>(samples.size()) / static_cast<double>(symbolCount);
    std::vector<double> values(symbolCount);
    for (std::size_t j = 0; j < symbolCount; ++j)
        values[j] = SampleAt(samples, (static_cast<double>(j) + phaseUi) * samplesPerUi);
    return values;
}

std::vector<double> MeanOfEachLevel(std::span<const double> values, const std::vector<int>& levels, int levelCount)
{
    std::vector<double> means(static_cast<std::size_t>(levelCount));
    std::vector<double> counts(means.size());
    for (std::size_t j = 0; j < values.size(); ++j) {
        means[static_cast<std::size_t>(levels[j])] += values[j];
        counts[static_cast<std::size_t>(levels[j])] += 1.0;
    }
    std::transform(means.begin(), means.end(), counts.begin(), means.begin(), std::divides<>());
    return means;
}

}  // namespace

SymbolDetection DetectSymbols(std::span<const double> samples, std::size_t symbolCount, int levelCount,
                              Decisions decisions)
{
    // Without their mean, so that a large offset does not swamp the equaliser's other columns.
    const std::vector<double> centred = WithoutMean(samples);

    const std::size_t phases = std::clamp<std::size_t>(samples.size() / symbolCount, 1, kMostPhases);
    SymbolDetection best;
    for (std::size_t phase = 0; phase < phases; ++phase) {
        const double phaseUi = static_cast<double>(phase) / static_cast<double>(phases);
        LevelDecisions found =
            DecideLevels(NeighbourColumns(SampledAt(centred, symbolCount, phaseUi)), levelCount, decisions);
        if (found.quality < best.quality)
            best = {std::move(found.levels), found.quality, phaseUi, {}};
    }
    if (!best.levels.empty())
        best.voltages = MeanOfEachLevel(SampledAt(samples, symbolCount, best.phaseUi), best.levels, levelCount);
    return best;
}

}  // namespace Tarnwick::DSO::Maths
