#include "workbench/statistics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kLanes = 8;  // sums side by side: none waits for the one before, and they fill vectors

}  // namespace

SampleStatistics StatisticsOf(std::span<const double> samples)
{
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

bool AreFinite(std::span<const double> samples)
{
    constexpr std::size_t kBlock = 4096;  // samples between two looks at the outcome
    for (std::size_t begin = 0; begin < samples.size(); begin += kBlock) {
        const auto block = samples.subspan(begin, std::min(kBlock, samples.size() - begin));
        std::size_t finite = 0;
        for (const double sample : block)
            finite += std::abs(sample) <= std::numeric_limits<double>::max() ? 1 : 0;
        if (finite != block.size())
            return false;
    }
    return true;
}

}  // namespace Tarnwick::DSO::Workbench
