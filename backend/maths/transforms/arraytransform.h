// Fourier transforms of an array wherever it lies, of any length.
//     X[k] = sum_n x[n] exp(-2 pi i k n / N),   x[n] = (1/N) sum_k X[k] exp(2 pi i k n / N)
// They pass through an aligned buffer of their own: the last bits of a transform depend on how its array is aligned.
#pragma once

#include <span>

#include "framework/export.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

enum class Scaling { None, ByLength };  ///< of the inverse transform: the sum itself, or divided by N

TARNWICK_FRAMEWORK_API void ForwardTransform(std::span<Complex> values);
TARNWICK_FRAMEWORK_API void InverseTransform(std::span<Complex> values, Scaling scaling);

}  // namespace Tarnwick::DSO::Maths
