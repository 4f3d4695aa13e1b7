// The levels of a multilevel signal over its record: what an amplifier's droop or a laser's warming does to them.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Where a waveform is read once a UI, and by what its symbols are decided there.
struct SlicedAt {
    double samplesPerUi;                 ///< real, at least 1
    double phaseUi;                      ///< [UI] 0 to below 1, from the start of a UI, which is sample 0
    std::span<const double> thresholds;  ///< ascending
};

/// Means of the samples of each level, block by block of as many UI; between two samples the waveform is read along a line. A level
/// that a block does not hold is not a number there.
/// @param uiPerBlock  at least 1; a last block that is not full is left out
/// @return [level][block], one level more than thresholds
TARNWICK_FRAMEWORK_API std::vector<std::vector<double>> LevelDrift(std::span<const double> samples, const SlicedAt& at,
                                                                   std::size_t uiPerBlock);

}  // namespace Tarnwick::DSO::Maths
