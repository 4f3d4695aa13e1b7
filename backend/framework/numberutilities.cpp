#include "framework/numberutilities.h"

#include <cmath>

namespace Tarnwick::DSO::SystemFramework {

double NumberUtilities::Round(double value, int digits)
{
    const double scale = std::pow(10.0, digits);
    const double scaled = value * scale;
    if (!std::isfinite(scaled) || scale == 0.0)
        return scale == 0.0 && std::isfinite(value) ? 0.0 : value;
    return std::round(scaled) / scale;
}

}  // namespace Tarnwick::DSO::SystemFramework
