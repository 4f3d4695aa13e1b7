// The noise-free waveform that the symbols of a pattern stand for.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

struct Swing {
    double low;      // of the lowest level
    double high;     // of the highest
    int levelCount;  // evenly spaced, at least 2
};

/// The waveform of a repeated pattern. Sample m holds the level of symbol floor(m/s) mod symbols, s the samples per UI:
///     y = low + (high - low) level / (levelCount - 1)
/// An edge of more than 0 UI turns each step into a straight line of that duration about the symbol boundary, which is
/// read at the middle of each sample's interval.
/// @param levels        at least one
/// @param samplesPerUi  s, positive; need not be whole
/// @param count         samples to make; the pattern is repeated to fill them
/// @param edgeUi        [UI] 0 to 1
TARNWICK_FRAMEWORK_API std::vector<double> IdealSignal(std::span<const int> levels, Swing swing, double samplesPerUi,
                                                       std::size_t count, double edgeUi = 0.0);

}  // namespace Tarnwick::DSO::Maths
