// Whether a capture was cut off at the ends of the instrument's range. An instrument that is overdriven gives the same extreme
// value for as long as the signal is beyond it; of an undistorted one the extreme values are its rarest.
#pragma once

#include <cstddef>
#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Samples at an end of the range.
struct RangeEnd {
    double value = 0.0;
    std::size_t samples = 0;  ///< 0: the record is not cut off there
    double step = 0.0;        ///< to the next value inwards
};

struct Clipping {
    RangeEnd low;
    RangeEnd high;
};

/// An end counts as cut off where its value is held for 3 samples or more at 8 places or more, and is at least twice as
/// frequent as the next value inwards, because noise reaches its last step least often. A waveform with less noise than a step
/// rests on its levels in the same way, and only the caller can tell how much it has.
/// @param samples  at least one, finite
TARNWICK_FRAMEWORK_API Clipping FindClipping(std::span<const double> samples);

}  // namespace Tarnwick::DSO::Maths
