// Linear interpolation of a sampled function.
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// The first index whose abscissa does not lie above the one before it; nothing when all of them ascend.
TARNWICK_FRAMEWORK_API std::optional<std::size_t> FirstNotAscending(std::span<const double> x);

/// The straight line between the neighbours of each point; exactly y[k] at x[k], NaN outside x and for a point that is NaN.
///     y(xi) = y[k] + (y[k + 1] - y[k]) (xi - x[k]) / (x[k + 1] - x[k])
/// @param x       strictly ascending
/// @param y       as many values
/// @param result  as many values as there are points
TARNWICK_FRAMEWORK_API void InterpolateLinear(std::span<const double> x, std::span<const double> y,
                                              std::span<const double> points, std::span<double> result);

}  // namespace Tarnwick::DSO::Maths
