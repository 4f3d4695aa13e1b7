#include "maths/captures/recordseam.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "maths/captures/symbolresponse.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/factors.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kLargestRatio = 2.5;
constexpr double kSmallestShare = 1e-3;  // of the span of the samples
constexpr std::size_t kFewestSymbols = 64;
constexpr double kLargestChange = 1e-3;  // of the rms

}  // namespace

double SeamTest::Ratio() const
{
    const double interior = std::max(interiorRms, smallestRms);
    return interior > 0.0 ? seamRms / interior : 0.0;
}

bool SeamTest::Joins() const
{
    return Ratio() <= kLargestRatio;
}

std::optional<SeamTest> TestSeam(std::span<const double> samples, std::size_t samplesPerUi,
                                 std::span<const double> symbolLevels)
{
    const std::size_t count = symbolLevels.size();
    if (count < kFewestSymbols)
        return std::nullopt;
    constexpr SymbolSpan kSpan;
    const SymbolRange interior = WithWholeSpan({0, count}, count, kSpan, Wrapping::None);
    const SymbolResponse response =
        FitSymbolResponse(samples, samplesPerUi, symbolLevels, kSpan, Wrapping::Circular, interior);
    const auto restOf = [&](SymbolRange range) {
        return UnexplainedRms(response, samples, symbolLevels, Wrapping::Circular, range);
    };
    const double behind = restOf({0, kSpan.before});
    const double ahead = restOf({count - kSpan.after, kSpan.after});
    const auto [lowest, highest] = std::minmax_element(samples.begin(), samples.end());
    return SeamTest{std::sqrt(0.5 * (behind * behind + ahead * ahead)), restOf(interior),
                    kSmallestShare * (*highest - *lowest)};
}

std::size_t ReachUi(std::span<const double> record, std::span<const double> kernel, std::size_t samplesPerUi,
                    long long delay)
{
    const std::size_t count = record.size();
    if (count == 0)
        return 1;
    const std::size_t whole = (count + 2 * samplesPerUi - 1) / (2 * samplesPerUi);  // [UI] nothing is farther away
    const std::size_t length = QuickEvenLength(count);
    const auto transform = RealTransform::Of(length);
    AlignedBuffer<double> values(length);
    AlignedBuffer<Complex> bins(length / 2 + 1);

    const double mean = Mean(record);
    double power = 0.0;
    for (std::size_t m = 0; m < count; ++m) {
        values.Data()[m] = record[m] - mean;
        power += values.Data()[m] * values.Data()[m];
    }
    std::fill(values.Data() + count, values.Data() + length, 0.0);
    transform->Forward(values.Data(), bins.Data());
    std::vector<double> spectrum(length / 2 + 1);
    for (std::size_t k = 0; k < spectrum.size(); ++k)
        spectrum[k] = std::norm(bins.Data()[k]) * (k == 0 || 2 * k == length ? 1.0 : 2.0);

    std::size_t reach = 1;
    for (; reach < whole; reach *= 2) {
        // The farther taps, later ones from the start of the buffer on and earlier ones from its end back.
        std::fill(values.Data(), values.Data() + length, 0.0);
        const std::size_t nearest = reach * samplesPerUi + 1;
        for (std::size_t lag = nearest; 2 * lag <= count; ++lag)
            values.Data()[lag] = kernel[WrappedIndex(delay + static_cast<long long>(lag), count)];
        for (std::size_t lag = nearest; 2 * lag < count; ++lag)
            values.Data()[length - lag] = kernel[WrappedIndex(delay - static_cast<long long>(lag), count)];
        transform->Forward(values.Data(), bins.Data());
        double changed = 0.0;
        for (std::size_t k = 0; k < spectrum.size(); ++k)
            changed += spectrum[k] * std::norm(bins.Data()[k]);
        if (changed / static_cast<double>(length) <= kLargestChange * kLargestChange * power)
            return reach;
    }
    return std::max<std::size_t>(1, std::min(reach, whole));
}

}  // namespace Tarnwick::DSO::Maths
