// The roots of unity that short transforms multiply by, and the product with one.
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

/// Written out because the operator tests every product for NaN.
inline std::complex<double> Product(std::complex<double> a, std::complex<double> b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

}  // namespace Tarnwick::DSO::Maths
