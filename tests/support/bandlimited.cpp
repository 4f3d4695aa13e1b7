#include "support/bandlimited.h"

#include <cmath>
#include <numbers>

#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::Testing {

double BandLimitedAt(std::span<const double> levels, double ui, double edgeUi)
{
    constexpr double kEdgeReach = 9.0;  // [edgeUi] beyond, an edge is done to the last bit
    const auto levelOf = [&](long long symbol) { return levels[DSO::Maths::WrappedIndex(symbol, levels.size())]; };
    const auto first = static_cast<long long>(std::floor(ui - kEdgeReach * edgeUi));
    const auto last = static_cast<long long>(std::ceil(ui + kEdgeReach * edgeUi));
    double value = levelOf(first);
    for (long long k = first + 1; k <= last; ++k)
        value += (levelOf(k) - levelOf(k - 1)) * 0.5 *
                 std::erfc((static_cast<double>(k) - ui) / (edgeUi * std::numbers::sqrt2));
    return value;
}

std::vector<double> BandLimited(std::span<const double> levels, std::size_t count,
                                const std::function<double(double position)>& uiAt, double edgeUi)
{
    std::vector<double> samples(count);
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = BandLimitedAt(levels, uiAt(static_cast<double>(i)), edgeUi);
    return samples;
}

std::vector<double> WithEchoes(std::span<const double> levels, std::span<const double> taps)
{
    std::vector<double> behind(levels.size());
    for (std::size_t j = 0; j < taps.size(); ++j)
        DSO::Maths::AddRotated(behind, taps[j], levels, -static_cast<long long>(j));
    return behind;
}

}  // namespace Tarnwick::Testing
