#include "maths/captures/bandlimited.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "maths/convolution/hotloops.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/responses/kaiser.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kKaiserBeta = 9.0;
constexpr std::size_t kWeights = 2 * kInterpolationReach;
constexpr std::size_t kExactRows = 64;   // a sample interval
constexpr std::size_t kFineRows = 1024;  // a sample interval

// Row r: the weights of the samples from 23 before to 24 after a position r/rows behind a sample.
std::vector<double> RowsOfWeights(std::size_t rows)
{
    constexpr auto kReach = static_cast<double>(kInterpolationReach);
    std::vector<double> weights((rows + 1) * kWeights);
    for (std::size_t r = 0; r <= rows; ++r) {
        double* const row = weights.data() + r * kWeights;
        double sum = 0.0;
        for (std::size_t j = 0; j < kWeights; ++j) {
            const double u = static_cast<double>(r) / static_cast<double>(rows) + kReach - 1.0 - static_cast<double>(j);
            row[j] = KaiserSinc(u, kReach, kKaiserBeta);
            sum += row[j];
        }
        for (std::size_t j = 0; j < kWeights; ++j)
            row[j] /= sum;
    }
    return weights;
}

}  // namespace

BandLimitedReading ReadingAt(double position)
{
    static const std::vector<double> kExact = RowsOfWeights(kExactRows);
    const double whole = std::floor(position);
    const double fraction = position - whole;
    const auto sample = static_cast<std::ptrdiff_t>(whole);
    if (fraction == 0.0)
        return {sample, nullptr, 0.0};
    const double exact = fraction * static_cast<double>(kExactRows);
    if (exact == std::floor(exact))
        return {sample, kExact.data() + static_cast<std::size_t>(exact) * kWeights, 0.0};
    static const std::vector<double> kFine = RowsOfWeights(kFineRows);
    const double fine = fraction * static_cast<double>(kFineRows);
    const double row = std::floor(fine);
    return {sample, kFine.data() + static_cast<std::size_t>(row) * kWeights, fine - row};
}

bool BandLimitedRecord::Covers(double low, double high) const
{
    return wrapping_ == Wrapping::Circular ||
           (low >= static_cast<double>(kInterpolationReach - 1) &&
            high + static_cast<double>(kInterpolationReach) < static_cast<double>(samples_.size()));
}

void BandLimitedRecord::Read(std::span<const BandLimitedReading> readings, std::ptrdiff_t shift,
                             std::span<double> values) const
{
    if (readings.empty())
        return;
    const std::ptrdiff_t lowest = readings.front().sample + shift - (kInterpolationReach - 1);
    const std::ptrdiff_t highest = readings.back().sample + shift + kInterpolationReach;
    const double* samples = samples_.data() + shift;
    std::vector<double> stretch;
    if (lowest < 0 || highest >= static_cast<std::ptrdiff_t>(samples_.size())) {
        stretch.resize(static_cast<std::size_t>(highest - lowest) + 1);
        for (std::size_t k = 0; k < stretch.size(); ++k)
            stretch[k] = samples_[WrappedIndex(lowest + static_cast<std::ptrdiff_t>(k), samples_.size())];
        samples = stretch.data() + (shift - lowest);
    }
    for (std::size_t k = 0; k < readings.size(); ++k) {
        const BandLimitedReading& reading = readings[k];
        const double* const at = samples + reading.sample;
        if (reading.weights == nullptr) {
            values[k] = *at;
            continue;
        }
        const double* const from = at - (kInterpolationReach - 1);
        values[k] = Dot(reading.weights, from, kWeights);
        if (reading.towardsNext != 0.0)
            values[k] += reading.towardsNext * (Dot(reading.weights + kWeights, from, kWeights) - values[k]);
    }
}

BandLimitedPhases::BandLimitedPhases(std::span<const BandLimitedReading> readings)
    : lines_((readings.size() + kLine - 1) / kLine),
      first_(readings.front().sample - (kInterpolationReach - 1)),
      sampleCount_(static_cast<std::size_t>(readings.back().sample + kInterpolationReach - first_) + 1),
      weights_(lines_ * sampleCount_ * kLine)
{
    std::fill_n(weights_.Data(), lines_ * sampleCount_ * kLine, 0.0);
    for (std::size_t line = 0; line < lines_; ++line) {
        std::size_t first = sampleCount_;
        std::size_t end = 0;
        for (std::size_t k = line * kLine; k < std::min((line + 1) * kLine, readings.size()); ++k) {
            const BandLimitedReading& reading = readings[k];
            const std::size_t count = reading.weights == nullptr ? 1 : kWeights;
            const auto from = static_cast<std::size_t>(
                reading.sample - (reading.weights == nullptr ? 0 : kInterpolationReach - 1) - first_);
            for (std::size_t j = 0; j < count; ++j) {
                double weight = 1.0;
                if (reading.weights != nullptr)
                    weight = reading.weights[j] +
                             (reading.towardsNext != 0.0
                                  ? reading.towardsNext * (reading.weights[kWeights + j] - reading.weights[j])
                                  : 0.0);
                weights_.Data()[(line * sampleCount_ + from + j) * kLine + k % kLine] = weight;
            }
            first = std::min(first, from);
            end = std::max(end, from + count);
        }
        used_.insert(used_.end(), {first, end});
    }
}

void BandLimitedPhases::Read(const double* samples, std::size_t samplesPerUi, std::size_t uiCount, double* values) const
{
    Loops().readPhases({weights_.Data(), sampleCount_, Pitch(), used_.data()}, samples, samplesPerUi, uiCount, values);
}

}  // namespace Tarnwick::DSO::Maths
