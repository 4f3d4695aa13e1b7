// From the lower half of a Hermitian spectrum to the real impulse response.
#pragma once

#include <complex>
#include <span>
#include <vector>

#include "framework/export.h"
#include "framework/maths/spectrum.h"

namespace Tarnwick::DSO::Filters::Maths {

/// Bins 0 .. M - 1 followed by the conjugates of bins M - 1 .. 1: the 2M - 1 bins of a real impulse response; none for
/// none.
TARNWICK_FILTERS_API std::vector<std::complex<double>> Mirrored(std::span<const std::complex<double>> half);

using SystemFramework::Maths::RealInverse;

}  // namespace Tarnwick::DSO::Filters::Maths
