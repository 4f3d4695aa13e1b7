// Corrects a receiver's sampled response so that white record noise leaves it with the power that band-limited front-end
// noise would have: by Parseval, the mean of |H|^2 over all bins is made that over the bins up to a corner. The bins above
// the corner are lifted over a raised-cosine ramp of at most one octave to one level; the phase stays as it is.
#pragma once

#include <span>

#include "framework/export.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

/// Corrects `response` (M bins, bin M - k the conjugate of bin k) in place.
/// @param frequencies  [Hz] of bins 0 .. M/2, ascending
/// @param corner       [Hz] where the lift begins
/// @param upper        [Hz] where it ends
/// @return false, and nothing changed, when there is nothing to correct or it cannot be: fewer than 3 bins, a value that is
///         not finite, a corner that is not positive, no bin between the corner and `upper`, or more noise than the lifted
///         band can make up for
TARNWICK_FRAMEWORK_API bool PreserveNoise(std::span<Complex> response, std::span<const double> frequencies,
                                          double corner, double upper);

/// The same for bins at the frequencies k spacing.
/// @param spacing  [Hz] between two bins
TARNWICK_FRAMEWORK_API bool PreserveNoiseOnGrid(std::span<Complex> response, double spacing, double corner,
                                                double upper);

inline constexpr double kNoiseUpperFrequency = 2e11;  // [Hz] where the correction ends unless told otherwise

}  // namespace Tarnwick::DSO::Maths
