// The taps of a centred moving average.
#pragma once

#include <cstddef>
#include <limits>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// The odd window of at least 3 samples that is used for a requested one.
TARNWICK_FRAMEWORK_API int OddWindow(int requested);

/// 1/w at lags -h .. h, h = w/2, as a circular kernel: lag -m at index recordLength - m. Where h < recordLength < w the
/// two ends meet and a tap is set once, not added up.
/// @param windowLength  odd, at least 3, half of it less than recordLength
TARNWICK_FRAMEWORK_API std::vector<double> CentredBoxcar(int windowLength, std::size_t recordLength);

/// Error of the mean over the largest sample: one rounding a sample of the window and that of the division.
constexpr double MovingAverageError(int window)
{
    return (window + 1) * std::numeric_limits<double>::epsilon();
}

}  // namespace Tarnwick::DSO::Maths
