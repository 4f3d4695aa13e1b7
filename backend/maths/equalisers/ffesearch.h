// From a captured pattern and its symbols to the taps of a feed-forward equaliser, by least squares against an ideal copy
// of the pattern (ffetaps.h). The taps of the TDECQ reference equaliser are in tdecq.h.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/equalisers/ffetaps.h"

namespace Tarnwick::DSO::Maths {

/// A captured pattern and what it was sent as.
struct CapturedPattern {
    std::span<const double> samples;  // whole repetitions, finite
    std::span<const int> levels;      // of the symbols of one repetition, 0 the lowest
    int levelCount;                   // of the coding, at least 2
    double samplesPerUi;              // need not be whole
};

/// What least-squares taps are asked for.
struct LeastSquaresProblem {
    CapturedPattern pattern;
    int samplesPerUi;        // without the fraction: the spacing of the taps is counted in these
    int numberOfTaps;        // 1 or more
    int tapsPerUi;           // 1 to samplesPerUi
    int mainCursorPosition;  // 1 to numberOfTaps; below 1: the delay is searched
    bool narrowDelaySearch;  // 7 delays instead of four a tap
    double sampleRate;       // [GHz]
    double bandwidth;        // [GHz] of the low-pass on the ideal copy
    /// [samples] at both ends of the capture that neither a row's samples nor its target may come from; nor do mean, swing and
    /// alignment. 0: the capture wraps round and all of it counts.
    std::size_t ignoredSamples = 0;
};

/// The ideal copy, low-passed and aligned by its circular correlation, is what the taps have to come nearest to.
/// @return nothing when the capture cannot tell the taps apart, or what is not ignored is shorter than their reach
TARNWICK_FRAMEWORK_API std::optional<TapSolution> FindLeastSquaresTaps(const LeastSquaresProblem& problem);

/// Taps `spacing` samples apart with zeros between them; taps beyond `numberOfTaps` are left out, missing ones are zero.
TARNWICK_FRAMEWORK_API std::vector<double> SpacedTaps(std::span<const double> taps, std::size_t numberOfTaps,
                                                      std::size_t spacing);

}  // namespace Tarnwick::DSO::Maths
