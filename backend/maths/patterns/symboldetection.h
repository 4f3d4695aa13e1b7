// Symbols of a repeated pattern from its samples alone: PAM4, and by the same way NRZ and PAM3. For several starting
// phases the samples, one a UI, are parted into levels; where the eye is closed a short linear equaliser is fitted to
// the decisions and the decisions are made anew behind it, until they stay. The phase whose levels are tightest wins.
// One start is not enough: from the phase that looks best a closed eye may settle with half of its symbols wrong.
// Source: J. G. Proakis, M. Salehi, "Digital Communications", 5th ed., section 10.1 (decision-directed equalisation);
// S. P. Lloyd, "Least squares quantization in PCM", IEEE Trans. Inf. Theory 28 (1982) 129-137 (levels).
#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Above this quality there is no pattern of that many levels. White noise comes out at about 0.14.
inline constexpr double kWorstQuality = 0.05;

enum class Decisions { AsSampled, Equalised };

struct SymbolDetection {
    std::vector<int> levels;  // of each UI, 0 the lowest; none when no phase shows as many levels
    double quality = std::numeric_limits<double>::infinity();  // mean squared distance to the level, over the square of
                                                               // the smallest level spacing; at the decisions
    double phaseUi = 0.0;                                      // where symbol 0 was sampled; symbol j at j UI after it
    std::vector<double> voltages;                              // mean sample of each level, as captured
};

/// @param samples      one period, finite values; s = samples / symbolCount of them a UI, which need not be whole
/// @param symbolCount  UI in the period, 1 to the number of samples
/// @param levelCount   at least 2. Levels should be about equally frequent: the search starts at their quantiles
TARNWICK_FRAMEWORK_API SymbolDetection DetectSymbols(std::span<const double> samples, std::size_t symbolCount,
                                                     int levelCount, Decisions decisions = Decisions::Equalised);

}  // namespace Tarnwick::DSO::Maths
