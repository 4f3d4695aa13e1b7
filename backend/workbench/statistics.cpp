#include "workbench/statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Tarnwick::DSO::Workbench {

SampleStatistics StatisticsOf(std::span<const double> samples)
{
    const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
    const auto count = static_cast<double>(samples.size());
    return {*low, *high, std::accumulate(samples.begin(), samples.end(), 0.0) / count,
            std::sqrt(std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0) / count)};
}

}  // namespace Tarnwick::DSO::Workbench
