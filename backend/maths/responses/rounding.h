// Rounding to decimal places, by which the cutoffs and the peaking of designs are compared.
#pragma once

#include <cmath>
#include <cstdlib>

namespace Tarnwick::DSO::Maths {

/// 10^n, correctly rounded for |n| <= 22, where 10^|n| is a number itself; std::pow is a last bit off in some C libraries.
inline double PowerOfTen(int n)
{
    constexpr int kLargestExact = 22;  // 5^22 < 2^53
    if (n < -kLargestExact || n > kLargestExact)
        return std::pow(10.0, n);
    double power = 1.0;
    for (int k = 0; k < std::abs(n); ++k)
        power *= 10.0;
    return n < 0 ? 1.0 / power : power;
}

/// `value` rounded to `digits` decimal places, halves away from zero: round(value 10^digits) / 10^digits.
/// NaN and infinity come back as they are; so does a value too large to have that many places.
inline double RoundedToDecimals(double value, int digits)
{
    const double scale = PowerOfTen(digits);
    const double scaled = value * scale;
    if (!std::isfinite(scaled) || scale == 0.0)
        return scale == 0.0 && std::isfinite(value) ? 0.0 : value;
    return std::round(scaled) / scale;
}

}  // namespace Tarnwick::DSO::Maths
