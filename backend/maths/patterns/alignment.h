// How far a periodic record lags behind another: the lag t of their circular correlation
//     c[t] = sum_i reference[i] capture[(i + t) mod n]
// at its peak, so that capture[i + t] is what reference[i] became. Everything here counts lags in this way.
// Source: A. V. Oppenheim, R. W. Schafer, "Discrete-Time Signal Processing", 3rd ed., section 8.6.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// c[0] .. c[n - 1], by a transform.
/// @param capture    n values, at least one
/// @param reference  n values
TARNWICK_FRAMEWORK_API std::vector<double> CircularCorrelation(std::span<const double> capture,
                                                               std::span<const double> reference);

/// The same with a reference that holds each of its levels for n / levels.size() samples: one phase of the UI after the
/// other, so that it takes little memory beside the result.
/// @param capture  n values, whole UI
/// @param levels   of each UI, at least one
TARNWICK_FRAMEWORK_API std::vector<double> CircularCorrelationWithHeld(std::span<const double> capture,
                                                                       std::span<const double> levels);

struct CorrelationPeak {
    std::size_t lag;  // 0 to n - 1
    double value;     // c[lag]
};

/// Where |c| of a correlation is largest: of the largest and the smallest c the one of larger magnitude, of equal magnitudes the
/// smallest. A negative value says that one of the two records is inverted.
/// @param correlation  at least one value
TARNWICK_FRAMEWORK_API CorrelationPeak PeakOfEitherSign(std::span<const double> correlation);

/// Where c is largest; of equal ones the first in the order 1, 2, .., n - 1, 0.
TARNWICK_FRAMEWORK_API CorrelationPeak LargestCorrelation(std::span<const double> capture,
                                                          std::span<const double> reference);

/// PeakOfEitherSign of c, in the same order.
TARNWICK_FRAMEWORK_API CorrelationPeak LargestCorrelationOfEitherSign(std::span<const double> capture,
                                                                      std::span<const double> reference);

/// How a capture lies against a reference, upright or inverted.
struct Alignment {
    std::size_t lag;
    bool isInverted;
};

/// Where c, less its mean, has the largest magnitude: at the smallest c the capture is inverted. Where magnitudes are equal
/// but for rounding, as for a pattern whose second half is the first inverted, the largest c.
TARNWICK_FRAMEWORK_API Alignment AlignmentOf(std::span<const double> capture, std::span<const double> reference);

}  // namespace Tarnwick::DSO::Maths
