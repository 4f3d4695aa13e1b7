// The symbols of a repeated pattern of any number of levels, from its samples alone. At each of several sampling phases
// the samples, one a UI, are partitioned into levels (levels.h). For closed eyes a short linear equaliser is then fitted to
// the decisions, and new decisions are made behind it, until none of them changes. The phase with the tightest levels wins.
// One phase is not enough: from the one that looks best, a closed eye may settle with half of its symbols wrong.
// Source: J. G. Proakis, M. Salehi, "Digital Communications", 5th ed., section 10.1 (decision-directed equalisation).
#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Above this quality the samples hold no pattern of that many levels; white noise has about 0.14 for four.
inline constexpr double kWorstQuality = 0.05;

/// Whether symbols are decided from the samples themselves or behind a linear equaliser.
enum class Decisions { AsSampled, Equalised };

struct SymbolDetection {
    /// Of each UI, 0 the lowest; empty when no phase shows as many levels.
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
