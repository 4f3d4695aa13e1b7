#include "maths/captures/bandlimited.h"

#include <algorithm>
#include <cmath>
#include <limits>
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

struct NearestWeights {
    std::size_t first = 0;
    std::vector<double> weights;
    double perBend = 0.0;
};

// What stands for weights whose sum is 1 when only the nearest samples are read: those beyond, on either side, are moved to the two
// outermost samples that are kept, so that their sum and their first moment stay. What is left is a sum of second differences of
// the samples, whose weights are those left out summed twice.
// @param weights  other than 0 from `first` to before `end`
NearestWeights WithNearest(std::span<const double> weights, std::size_t first, std::size_t end)
{
    constexpr std::size_t kKept = 6;  // on either side
    double position = 0.0;
    for (std::size_t k = first; k < end; ++k)
        position += weights[k] * static_cast<double>(k);
    const auto centre = static_cast<std::size_t>(std::max(position, 0.0));
    std::size_t from = std::max(centre + 1 > kKept ? centre + 1 - kKept : 0, first);
    std::size_t to = std::min(centre + 1 + kKept, end);
    if (to < from + 4) {  // too few to move others to
        from = first;
        to = end;
    }
    NearestWeights nearest{
        from,
        {weights.begin() + static_cast<std::ptrdiff_t>(from), weights.begin() + static_cast<std::ptrdiff_t>(to)},
        0.0};
    const auto moveTo = [&](std::size_t inner, std::size_t begin, std::size_t behind) {
        double sum = 0.0;
        double moment = 0.0;
        for (std::size_t k = begin; k < behind; ++k) {
            sum += weights[k];
            moment += weights[k] * (static_cast<double>(k) - static_cast<double>(inner));
        }
        nearest.weights[inner - from] += sum - moment;
        nearest.weights[inner + 1 - from] += moment;
    };
    if (from > first)
        moveTo(from, first, from);
    if (end > to)
        moveTo(to - 2, to, end);
    double once = 0.0;
    double twice = 0.0;
    for (std::size_t k = first; k < end; ++k) {
        const bool isKept = k >= from && k < to;
        once += weights[k] - (isKept ? nearest.weights[k - from] : 0.0);
        twice += once;
        nearest.perBend += std::abs(twice);
    }
    return nearest;
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
      first_(std::ranges::min(readings, {}, &BandLimitedReading::sample).sample - (kInterpolationReach - 1)),
      sampleCount_(static_cast<std::size_t>(std::ranges::max(readings, {}, &BandLimitedReading::sample).sample +
                                            kInterpolationReach - first_) +
                   1),
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

void BandLimitedPhases::ReadApart(const double* samples, std::size_t samplesPerUi, std::size_t uiCount,
                                  std::span<double* const> to) const
{
    Loops().readPhasesApart({weights_.Data(), sampleCount_, Pitch(), used_.data()}, samples, samplesPerUi, uiCount,
                            to.data());
}

void PhaseScreening::Keep(Bank& bank, std::size_t phase, std::size_t first, std::span<const double> weights) const
{
    if (weights.empty())
        return;  // there for the sake of the pitch
    double sum = 0.0;
    for (std::size_t k = 0; k < weights.size(); ++k) {
        bank.weights.Data()[(phase / kLine * phases_->sampleCount_ + first + k) * kLine + phase % kLine] =
            static_cast<float>(weights[k]);
        sum += std::abs(weights[k]);
    }
    bank.largest = std::max(bank.largest, sum);
    std::size_t* const used = bank.used.data() + 2 * (phase / kLine);
    used[0] = used[1] == 0 ? first : std::min(used[0], first);
    used[1] = std::max(used[1], first + weights.size());
}

PhaseScreening::PhaseScreening(const BandLimitedPhases& phases, std::span<const double> samples) : phases_(&phases)
{
    constexpr double kLeftOut = 0.005;  // sum of the magnitudes of weights, of 1
    constexpr std::size_t kNarrow = BandLimitedPhases::kLine;
    const std::size_t count = phases.sampleCount_;
    for (Bank* const bank : {&narrow_, &wide_}) {
        bank->weights = AlignedBuffer<float>(count * Pitch());
        std::fill_n(bank->weights.Data(), count * Pitch(), 0.0F);
        bank->used.assign(2 * Pitch() / kLine, 0);
    }
    for (std::size_t phase = 0; phase < phases.Pitch(); ++phase) {
        std::vector<double> weights(count);
        for (std::size_t k = 0; k < count; ++k)
            weights[k] = phases.weights_.Data()[(phase / kNarrow * count + k) * kNarrow + phase % kNarrow];
        std::size_t first = 0;
        std::size_t end = count;
        while (first < end && weights[first] == 0.0)
            ++first;
        while (first < end && weights[end - 1] == 0.0)
            --end;
        // Outer weights that matter little are left out on either side, and counted into the margin.
        std::size_t from = first;
        std::size_t to = end;
        for (double left = 0.0; from + 1 < to && left + std::abs(weights[from]) < kLeftOut; ++from)
            left += std::abs(weights[from]);
        for (double right = 0.0; from + 1 < to && right + std::abs(weights[to - 1]) < kLeftOut; --to)
            right += std::abs(weights[to - 1]);
        Keep(wide_, phase, from, std::span(weights).subspan(from, to - from));
        const NearestWeights nearest = WithNearest(weights, first, end);
        narrow_.perBend = std::max(narrow_.perBend, nearest.perBend);
        Keep(narrow_, phase, nearest.first, nearest.weights);
    }

    constexpr std::size_t kStretches = 64;
    constexpr std::size_t kStretch = 64;  // [samples]
    constexpr double kRoom = 1.25;        // times the range that the stretches have
    double low = samples.front();
    double high = samples.front();
    for (std::size_t n = 0; n < kStretches; ++n) {
        const std::size_t begin = samples.size() / kStretches * n;
        for (const double sample : samples.subspan(begin, std::min(kStretch, samples.size() - begin))) {
            low = std::min(low, sample);
            high = std::max(high, sample);
        }
    }
    middle_ = 0.5 * low + 0.5 * high;
    scale_ = 1.0 / (kRoom * (0.5 * high - 0.5 * low));
    // Of the scaled samples, which lie from -1 to 1, and of the weights one rounding each in single precision, then one for each
    // product and for each sum, and a few for the limits and the second differences. In double precision so many of the values
    // themselves, and the weights' sum is 1 to as many.
    constexpr double kRoundings = 2.0 * static_cast<double>(kWeights) + 16.0;
    constexpr double kFloatRounding = 0x1p-24;
    constexpr double kDoubleRounding = 0x1p-53;
    for (Bank* const bank : {&narrow_, &wide_})
        bank->margin = 2.0 * kRoundings * (std::max(narrow_.largest, wide_.largest) + 2.0 * kLeftOut) *
                       (kFloatRounding + kDoubleRounding * (1.0 + std::abs(middle_) * scale_));
    wide_.margin += 2.0 * kLeftOut;
    if (!std::isfinite(scale_) || !std::isfinite(wide_.margin))
        scale_ = 0.0;
}

void PhaseScreening::SetLimits(std::span<const double> low, std::span<const double> high, std::span<float> limits) const
{
    // Phases that are there for the sake of the pitch reach nothing.
    constexpr float kNever = std::numeric_limits<float>::infinity();
    std::fill_n(limits.begin(), Pitch(), -kNever);
    std::fill_n(limits.begin() + static_cast<std::ptrdiff_t>(Pitch()), Pitch(), kNever);
    for (std::size_t p = 0; p < low.size(); ++p) {
        limits[p] = static_cast<float>((low[p] - middle_) * scale_);
        limits[Pitch() + p] = static_cast<float>((high[p] - middle_) * scale_);
    }
}

void PhaseScreening::Screen(const double* samples, std::size_t samplesPerUi, std::span<const float* const> limits,
                            std::span<unsigned char> counts)
{
    if (scale_ == 0.0) {
        std::fill(counts.begin(), counts.end(), static_cast<unsigned char>(1));
        return;
    }
    scaled_.resize((counts.size() - 1) * samplesPerUi + phases_->sampleCount_);
    const auto bankOf = [&](const Bank& bank) {
        return ScreenBank{bank.weights.Data(), phases_->sampleCount_, bank.used.data(), static_cast<float>(bank.margin),
                          static_cast<float>(bank.perBend)};
    };
    Loops().screenPhases({bankOf(narrow_), bankOf(wide_), Pitch(), middle_, scale_}, samples, samplesPerUi,
                         counts.size(), limits.data(), scaled_.data(), counts.data());
}

void AddStretches(std::span<const double* const> stretches, std::span<double> sum)
{
    Loops().addStretches(stretches.data(), stretches.size(), sum.size(), sum.data());
}

}  // namespace Tarnwick::DSO::Maths
