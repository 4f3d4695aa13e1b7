// Noise-preserving correction of a sampled response: see DSP_Helpers::preserve_noise_TF.
#pragma once

#include <span>

#include "framework/export.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

/// Corrects `response` (M bins, bin M - k the conjugate of bin k) in place.
/// @param frequencies  [Hz] of bins 0 .. M/2
/// @return false, and nothing changed, when the correction does not apply
TARNWICK_FRAMEWORK_API bool PreserveNoise(std::span<Complex> response, std::span<const double> frequencies,
                                          double corner, double upper);

/// The same for bins k spacing.
/// @param spacing  [Hz] between two bins
TARNWICK_FRAMEWORK_API bool PreserveNoiseOnGrid(std::span<Complex> response, double spacing, double corner,
                                                double upper);

inline constexpr double kNoiseUpperFrequency = 2e11;  // [Hz] where the correction ends unless told otherwise

}  // namespace Tarnwick::DSO::Maths
