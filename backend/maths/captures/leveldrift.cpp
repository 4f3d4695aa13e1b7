#include "maths/captures/leveldrift.h"

#include <cmath>
#include <limits>

#include "maths/patterns/levels.h"

namespace Tarnwick::DSO::Maths {

std::vector<std::vector<double>> LevelDrift(std::span<const double> samples, const SlicedAt& at, std::size_t uiPerBlock)
{
    const std::size_t levelCount = at.thresholds.size() + 1;
    std::vector<std::vector<double>> levels(levelCount);
    std::vector<double> sums(levelCount, 0.0);
    std::vector<std::size_t> counts(levelCount, 0);
    const auto last = static_cast<double>(samples.size()) - 1.0;
    for (std::size_t ui = 0;; ++ui) {
        const double position = (static_cast<double>(ui) + at.phaseUi) * at.samplesPerUi;
        if (ui > 0 && ui % uiPerBlock == 0) {
            for (std::size_t level = 0; level < levelCount; ++level) {
                levels[level].push_back(counts[level] > 0 ? sums[level] / static_cast<double>(counts[level])
                                                          : std::numeric_limits<double>::quiet_NaN());
                sums[level] = 0.0;
                counts[level] = 0;
            }
        }
        if (!(position < last))
            return levels;
        const auto k = static_cast<std::size_t>(position);
        const double value = std::lerp(samples[k], samples[k + 1], position - static_cast<double>(k));
        const auto level = static_cast<std::size_t>(LevelOf(value, at.thresholds));
        sums[level] += value;
        ++counts[level];
    }
}

}  // namespace Tarnwick::DSO::Maths
