// From a captured pattern and its symbols to the taps of a feed-forward equaliser: by least squares against an ideal copy
// of the pattern, or those of the TDECQ reference equaliser.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "maths/equalisers/ffetaps.h"
#include "maths/equalisers/tdecq.h"

namespace Tarnwick::DSO::Maths {

/// A captured pattern and what it was sent as.
struct CapturedPattern {
    std::span<const double> samples;  // whole repetitions, finite
    std::span<const int> levels;      // of the symbols of one repetition, 0 the lowest
    int levelCount;                   // of the coding, at least 2
    double samplesPerUi;              // need not be whole
};

/// The levels of as many UI as the samples hold, counted without the ones that the pattern never visits.
/// @param samplesPerUi  whole, as the reference equaliser needs it
TARNWICK_FRAMEWORK_API ReferenceSymbols HeldSymbols(const CapturedPattern& pattern, std::size_t samplesPerUi);

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
};

/// The ideal copy, low-passed and aligned by its circular correlation, is what the taps have to come nearest to.
/// @return nothing when the capture cannot tell the taps apart
TARNWICK_FRAMEWORK_API std::optional<TapSolution> FindLeastSquaresTaps(const LeastSquaresProblem& problem);

/// What the reference equaliser is asked for.
struct TdecqProblem {
    CapturedPattern pattern;            // of whole samples per UI, behind the reference low-pass
    ReferenceSymbols symbols;           // of the pattern, 2 to 4 levels
    std::size_t samplesPerUi;           // whole
    std::size_t numberOfTaps;           // 1 or more, a UI apart
    std::optional<std::size_t> cursor;  // the place of the largest tap; none: the first three are tried
};

/// @return nothing when no taps have their largest where it has to be
TARNWICK_FRAMEWORK_API std::optional<ReferenceEqualizer> FindTdecqTaps(const TdecqProblem& problem);

/// Taps `spacing` samples apart with zeros between them; taps beyond `numberOfTaps` are left out, missing ones are zero.
TARNWICK_FRAMEWORK_API std::vector<double> SpacedTaps(std::span<const double> taps, std::size_t numberOfTaps,
                                                      std::size_t spacing);

}  // namespace Tarnwick::DSO::Maths
