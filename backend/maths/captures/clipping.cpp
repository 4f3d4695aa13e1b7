#include "maths/captures/clipping.h"

#include <algorithm>
#include <cmath>

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kShortestRun = 3;  // [samples] two equal ones happen to quantised noise
constexpr std::size_t kFewestRuns = 8;
constexpr std::size_t kTimesTheNext = 2;

// @param isInside  whether its first value lies farther inside the range than its second
template <typename IsInside>
RangeEnd EndAt(std::span<const double> samples, double extreme, IsInside isInside)
{
    std::size_t count = 0;
    std::size_t runs = 0;
    std::size_t length = 0;
    std::size_t countOfNext = 0;
    double next = extreme;
    for (const double sample : samples) {
        if (sample == extreme) {
            ++count;
            runs += ++length == kShortestRun ? 1 : 0;
            continue;
        }
        length = 0;
        if (next == extreme || isInside(next, sample)) {
            next = sample;
            countOfNext = 0;
        }
        countOfNext += sample == next ? 1 : 0;
    }
    const bool isCutOff = runs >= kFewestRuns && next != extreme && count >= kTimesTheNext * countOfNext;
    return {extreme, isCutOff ? count : 0, std::abs(next - extreme)};
}

}  // namespace

Clipping FindClipping(std::span<const double> samples)
{
    const auto [lowest, highest] = std::minmax_element(samples.begin(), samples.end());
    return {EndAt(samples, *lowest, [](double one, double other) { return one > other; }),
            EndAt(samples, *highest, [](double one, double other) { return one < other; })};
}

}  // namespace Tarnwick::DSO::Maths
