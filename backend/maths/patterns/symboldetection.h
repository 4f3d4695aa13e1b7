// The symbols of a repeated pattern of any number of levels, from its samples alone. At each of several sampling phases
// the levels of the samples, one a UI, are decided (leveldecisions.h). The phase with the tightest levels wins. One phase is
// not enough: from the one that looks best, a closed eye may settle with half of its symbols wrong.
#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/patterns/leveldecisions.h"

namespace Tarnwick::DSO::Maths {

struct SymbolDetection {
    /// The level of each UI, 0 the lowest; empty when no phase shows as many levels.
    std::vector<int> levels;
    /// Mean squared distance of the decided values from their level, over the square of the smallest level spacing.
    double quality = std::numeric_limits<double>::infinity();
    double phaseUi = 0.0;          ///< [UI] where symbol 0 was sampled; symbol j was sampled j UI later
    std::vector<double> voltages;  ///< mean sample of each level, as captured
};

/// @param samples      one period, finite values; s = samples / symbolCount of them a UI, which need not be whole
/// @param symbolCount  UI in the period, 1 to the number of samples
/// @param levelCount   at least 2; see PartitionIntoLevels
TARNWICK_FRAMEWORK_API SymbolDetection DetectSymbols(std::span<const double> samples, std::size_t symbolCount,
                                                     int levelCount, Decisions decisions = Decisions::Equalised);

}  // namespace Tarnwick::DSO::Maths
