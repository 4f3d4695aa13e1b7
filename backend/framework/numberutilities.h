#pragma once

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

class TARNWICK_FRAMEWORK_API NumberUtilities {
public:
    /// `value` rounded to `digits` decimal places, halves away from zero: round(value 10^digits) / 10^digits.
    /// NaN and infinity come back as they are; so does a value too large to have that many places.
    static double Round(double value, int digits);
};

}  // namespace Tarnwick::DSO::SystemFramework
