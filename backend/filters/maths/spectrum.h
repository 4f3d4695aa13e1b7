// From the lower half of a Hermitian spectrum to the real impulse response.
#pragma once

#include <complex>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Filters::Maths {

/// Bins 0 .. M - 1 followed by the conjugates of bins M - 1 .. 1: the 2M - 1 bins of a real impulse response; none for
/// none.
TARNWICK_FILTERS_API std::vector<std::complex<double>> Mirrored(std::span<const std::complex<double>> half);

/// The normalised inverse transform of a Hermitian spectrum, its real part:
///     h[n] = (1/N) sum_k H[k] exp(2 pi i k n / N)
TARNWICK_FILTERS_API std::vector<double> RealInverse(std::span<const std::complex<double>> bins);

}  // namespace Tarnwick::DSO::Filters::Maths
