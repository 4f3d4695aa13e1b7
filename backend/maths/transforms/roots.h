// The roots of unity that short transforms multiply by.
#pragma once

#include <complex>
#include <cstddef>
#include <numbers>

namespace Tarnwick::DSO::Maths {

/// exp(-2 pi i n / count). The same bits for n/count in lowest terms or not, as long as they differ by a power of two.
inline std::complex<double> RootOfUnity(std::size_t n, std::size_t count)
{
    return std::polar(1.0, -2.0 * std::numbers::pi * static_cast<double>(n) / static_cast<double>(count));
}

}  // namespace Tarnwick::DSO::Maths
