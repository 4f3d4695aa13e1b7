// The levels that samples of a multilevel signal lie about, found in the samples alone.
// Source: S. P. Lloyd, "Least squares quantization in PCM", IEEE Trans. Inf. Theory 28 (1982) 129-137.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Values parted into levels, lowest first: thresholds lie half way between neighbouring means.
struct LevelPartition {
    std::vector<double> means;
    std::vector<double> thresholds;   // one fewer
    std::vector<std::size_t> bounds;  // level k holds the values bounds[k] .. bounds[k + 1] - 1
    /// Whether all values are in the lowest level, which is where the search ends when its first thresholds are not below
    /// the largest value, as of a pattern that is nearly always at its highest level.
    bool IsOfOneLevel() const { return bounds[1] == bounds.back(); }
};

/// Lloyd's method (k-means in one dimension) from the quantiles: in ascending order each level is a stretch of values, and
/// prefix sums give its mean at once.
/// @param ascending   finite values, at least one
/// @param levelCount  at least 2. Levels should be about equally frequent, as the search starts at their quantiles
/// @return nothing when a level loses all its values; otherwise every level has some, or IsOfOneLevel()
TARNWICK_FRAMEWORK_API std::optional<LevelPartition> PartitionIntoLevels(std::span<const double> ascending,
                                                                         int levelCount);

/// The level on whose side of the thresholds a value lies, 0 the lowest; a value on a threshold belongs to the lower one.
/// @param thresholds  ascending
inline int LevelOf(double value, std::span<const double> thresholds)
{
    int level = 0;
    for (const double threshold : thresholds)
        level += value > threshold ? 1 : 0;
    return level;
}

}  // namespace Tarnwick::DSO::Maths
