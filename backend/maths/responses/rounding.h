// Rounding to decimal places, by which the cutoffs and the peaking of designs are compared.
#pragma once

#include <cmath>

namespace Tarnwick::DSO::Maths {

/// `value` rounded to `digits` decimal places, halves away from zero: round(value 10^digits) / 10^digits.
/// NaN and infinity come back as they are; so does a value too large to have that many places.
inline double RoundedToDecimals(double value, int digits)
{
    const double scale = std::pow(10.0, digits);
    const double scaled = value * scale;
    if (!std::isfinite(scaled) || scale == 0.0)
        return scale == 0.0 && std::isfinite(value) ? 0.0 : value;
    return std::round(scaled) / scale;
}

}  // namespace Tarnwick::DSO::Maths
