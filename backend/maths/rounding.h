#pragma once

#include <cmath>

namespace Tarnwick::DSO::Maths {

/// The value rounded to so many decimals, halves away from zero. Where 10^digits is 0 a finite value gives 0; a value that
/// cannot be scaled, being infinite, NaN or too large, comes back as it is.
inline double RoundedToDecimals(double value, int digits)
{
    const double scale = std::pow(10.0, digits);
    const double scaled = value * scale;
    if (!std::isfinite(scaled) || scale == 0.0)
        return scale == 0.0 && std::isfinite(value) ? 0.0 : value;
    return std::round(scaled) / scale;
}

}  // namespace Tarnwick::DSO::Maths
