#include "maths/captures/resampling.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "maths/convolution/hotloops.h"
#include "maths/responses/kaiser.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kHalfWidth = 24.0;  // [samples of the lower rate]
constexpr double kKaiserBeta = 9.0;
constexpr double kPhases = 1024.0;  // in the table, a sample of the lower rate
constexpr std::size_t kFewestPhases = 16;
constexpr double kLowestRate = 1.0 / 4096.0;
constexpr std::size_t kHalfStep = 4;  // [taps] the loop takes eight at a time
constexpr std::size_t kBlock = 4096;  // [outputs] whose positions are held at a time

double LowerRate(double rate)
{
    if (!(rate >= kLowestRate))
        throw std::invalid_argument("Resampler: rate is " + std::to_string(rate) + "; expected at least 1/4096");
    return std::min(rate, 1.0);
}

std::size_t HalfTaps(double lowerRate)
{
    const auto half = static_cast<std::size_t>(std::ceil(kHalfWidth / lowerRate));
    return (half + kHalfStep - 1) / kHalfStep * kHalfStep;
}

}  // namespace

Resampler::Resampler(double rate)
    : half_(HalfTaps(LowerRate(rate))),
      phases_(std::max(kFewestPhases, static_cast<std::size_t>(std::ceil(kPhases * LowerRate(rate))))),
      rows_((phases_ + 1) * 2 * half_)
{
    const double lower = LowerRate(rate);
    for (std::size_t p = 0; p <= phases_; ++p)
        for (std::size_t j = 0; j < 2 * half_; ++j) {
            const double time = static_cast<double>(p) / static_cast<double>(phases_) +
                                (static_cast<double>(half_) - 1.0 - static_cast<double>(j));
            rows_.Data()[p * 2 * half_ + j] = lower * KaiserSinc(lower * time, kHalfWidth, kKaiserBeta);
        }
}

void Resampler::At(std::span<const double> samples, std::span<const double> positions, std::span<double> values) const
{
    const auto first = static_cast<double>(half_);
    const double last = static_cast<double>(samples.size()) - 1.0 - first;
    for (const double position : positions)
        if (!(position >= first && position <= last))
            throw std::invalid_argument("Resampler: position is " + std::to_string(position) + "; expected " +
                                        std::to_string(half_) + " to " + std::to_string(last));
    Loops().interpolate({rows_.Data(), 2 * half_, phases_}, samples.data(), positions.data(), values.data(),
                        positions.size());
}

std::vector<double> Resampled(std::span<const double> samples, const Resampler& resampler, std::size_t count,
                              const PositionsOfOutputs& positions)
{
    std::vector<double> values(count);
    std::vector<double> block(std::min(count, kBlock));
    for (std::size_t first = 0; first < count; first += kBlock) {
        const std::span<double> some(block.data(), std::min(kBlock, count - first));
        positions(first, some);
        resampler.At(samples, some, std::span<double>(values).subspan(first, some.size()));
    }
    return values;
}

AlignedRecord ResampledAlong(const SymbolClock& clock, std::span<const double> samples, std::size_t samplesPerUi)
{
    if (samplesPerUi == 0)
        throw std::invalid_argument("ResampledAlong: samples per UI are 0; expected at least 1");
    const auto parts = static_cast<double>(samplesPerUi);
    const Resampler resampler(parts / clock.samplesPerUi);
    const auto first = static_cast<double>(resampler.UsedUp());
    const double last = static_cast<double>(samples.size()) - 1.0 - first;
    AlignedRecord record;
    if (last <= first)
        return record;
    // A boundary that rounding may put just outside is left out. The last UI ends a sample before the next one begins.
    constexpr double kMargin = 1e-6;  // [UI]
    record.firstUi = std::ceil(clock.UiAt(first) + kMargin);
    const double uiCount = std::floor(clock.UiAt(last) - kMargin + 1.0 / parts) - record.firstUi;
    double position[1];
    clock.PositionsOf(record.firstUi, 1.0, 1.0, position);
    record.firstPosition = position[0];
    if (!(uiCount >= 1.0))
        return record;
    record.samples =
        Resampled(samples, resampler, static_cast<std::size_t>(uiCount) * samplesPerUi,
                  [&](std::size_t output, std::span<double> positions) {
                      const std::size_t ui = output / samplesPerUi;
                      const auto rest = static_cast<double>(output % samplesPerUi);
                      clock.PositionsOf(record.firstUi + static_cast<double>(ui) + rest / parts, 1.0, parts, positions);
                  });
    return record;
}

}  // namespace Tarnwick::DSO::Maths
