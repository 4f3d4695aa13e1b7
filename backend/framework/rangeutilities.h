#pragma once

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// Extremes and mean of `count` values, read only. NaN and infinity among the values flow through as the comparisons
/// and the sum take them.
class TARNWICK_FRAMEWORK_API RangeUtilities {
public:
    /// @throws std::invalid_argument  values is null or count is below 1
    static double Min(const double* values, int count);
    /// @throws std::invalid_argument  values is null or count is below 1
    static double Max(const double* values, int count);
    /// @throws std::invalid_argument  values is null or count is below 1
    static double Average(const double* values, int count);
};

}  // namespace Tarnwick::DSO::SystemFramework
