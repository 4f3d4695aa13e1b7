#include "maths/patterns/levels.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Tarnwick::DSO::Maths {

namespace {

constexpr int kMostRounds = 100;  // a dozen is usual

}  // namespace

std::optional<LevelPartition> PartitionIntoLevels(std::span<const double> ascending, int levelCount)
{
    const std::size_t count = ascending.size();
    std::vector<double> sums(count + 1, 0.0);
    std::partial_sum(ascending.begin(), ascending.end(), sums.begin() + 1);

    const auto levels = static_cast<std::size_t>(levelCount);
    LevelPartition partition{std::vector<double>(levels), std::vector<double>(levels - 1), {}};
    for (std::size_t k = 0; k < levels; ++k)
        partition.means[k] = ascending[(2 * k + 1) * count / (2 * levels)];
    for (int round = 0; round < kMostRounds; ++round) {
        std::vector<std::size_t> bounds(levels + 1, 0);
        bounds.back() = count;
        for (std::size_t k = 0; k + 1 < levels; ++k) {
            partition.thresholds[k] = 0.5 * (partition.means[k] + partition.means[k + 1]);
            const auto end = std::upper_bound(ascending.begin(), ascending.end(), partition.thresholds[k]);
            bounds[k + 1] = static_cast<std::size_t>(end - ascending.begin());
        }
        if (round == 0 && bounds[1] == count) {
            partition.bounds = std::move(bounds);
            break;
        }
        for (std::size_t k = 0; k < levels; ++k) {
            if (bounds[k + 1] <= bounds[k])
                return std::nullopt;
            partition.means[k] =
                (sums[bounds[k + 1]] - sums[bounds[k]]) / static_cast<double>(bounds[k + 1] - bounds[k]);
        }
        if (bounds == partition.bounds)
            break;
        partition.bounds = std::move(bounds);
    }
    return partition;
}

}  // namespace Tarnwick::DSO::Maths
