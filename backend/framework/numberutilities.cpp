#include "framework/numberutilities.h"

#include "maths/responses/rounding.h"

namespace Tarnwick::DSO::SystemFramework {

double NumberUtilities::Round(double value, int digits)
{
    return Maths::RoundedToDecimals(value, digits);
}

}  // namespace Tarnwick::DSO::SystemFramework
