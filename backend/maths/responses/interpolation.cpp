#include "maths/responses/interpolation.h"

#include <algorithm>
#include <limits>

namespace Tarnwick::DSO::Maths {

std::optional<std::size_t> FirstNotAscending(std::span<const double> x)
{
    if (!x.empty() && !(x[0] == x[0]))
        return 0;
    for (std::size_t k = 1; k < x.size(); ++k)
        if (!(x[k] > x[k - 1]))
            return k;
    return std::nullopt;
}

void InterpolateLinear(std::span<const double> x, std::span<const double> y, std::span<const double> points,
                       std::span<double> result)
{
    std::transform(points.begin(), points.end(), result.begin(), [x, y](double point) {
        if (x.empty() || !(point >= x.front() && point <= x.back()))
            return std::numeric_limits<double>::quiet_NaN();
        const auto above = static_cast<std::size_t>(std::upper_bound(x.begin(), x.end(), point) - x.begin());
        const std::size_t k = above - 1;
        // Exact at a node, even where its neighbour is infinite.
        if (point == x[k])
            return y[k];
        return y[k] + (y[above] - y[k]) * ((point - x[k]) / (x[above] - x[k]));
    });
}

}  // namespace Tarnwick::DSO::Maths
