#include "maths/captures/samplestatistics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace Tarnwick::DSO::Maths {

SampleStatistics StatisticsOf(std::span<const double> samples)
{
    constexpr std::size_t kLanes = 8;  // sums side by side: none waits for the one before, and they fill vectors
    std::array<double, kLanes> low;
    std::array<double, kLanes> high;
    std::array<double, kLanes> sum{};
    std::array<double, kLanes> squares{};
    low.fill(samples.front());
    high.fill(samples.front());
    const auto take = [&](std::size_t lane, double sample) {
        low[lane] = sample < low[lane] ? sample : low[lane];
        high[lane] = sample > high[lane] ? sample : high[lane];
        sum[lane] += sample;
        squares[lane] += sample * sample;
    };
    std::size_t k = 0;
    for (; k + kLanes <= samples.size(); k += kLanes)
        for (std::size_t lane = 0; lane < kLanes; ++lane)
            take(lane, samples[k + lane]);
    for (std::size_t lane = 0; k < samples.size(); ++k, ++lane)
        take(lane, samples[k]);
    const auto count = static_cast<double>(samples.size());
    return {*std::min_element(low.begin(), low.end()), *std::max_element(high.begin(), high.end()),
            std::accumulate(sum.begin(), sum.end(), 0.0) / count,
            std::sqrt(std::accumulate(squares.begin(), squares.end(), 0.0) / count)};
}

}  // namespace Tarnwick::DSO::Maths
