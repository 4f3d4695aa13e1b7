// From a Hermitian spectrum to the real impulse response.
#pragma once

#include <complex>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework::Maths {

/// The normalised inverse transform of a Hermitian spectrum, its real part:
///     h[n] = (1/N) sum_k H[k] exp(2 pi i k n / N)
TARNWICK_FRAMEWORK_API std::vector<double> RealInverse(std::span<const std::complex<double>> bins);

}  // namespace Tarnwick::DSO::SystemFramework::Maths
