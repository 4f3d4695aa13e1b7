#include "workbench/statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "maths/captures/samplestatistics.h"

namespace Tarnwick::DSO::Workbench {

SampleStatistics StatisticsOf(std::span<const double> samples)
{
    const Maths::SampleStatistics statistics = Maths::StatisticsOf(samples);
    return {statistics.low, statistics.high, statistics.mean, statistics.rms};
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
