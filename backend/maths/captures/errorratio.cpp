#include "maths/captures/errorratio.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kBinsPerSigma = 16.0;
constexpr double kMostBins = 0x1p18;  // beyond, sorting is faster than bins that are mostly empty
constexpr double kFarthest = 9.0;     // sigma: Q is 1e-19 there, below the rounding of larger sums
constexpr double kNeverThere = 37.0;  // sigma: Q is 6e-300 there
constexpr double kRounding = 1e-12;   // of the largest value: a smaller spread is that of reading between the samples
constexpr int kHalvings = 40;         // of a stretch of 18 sigma and the values' range

double UpperTail(double z)
{
    return 0.5 * std::erfc(z / std::sqrt(2.0));
}

}  // namespace

NoiseSplitter::NoiseSplitter(std::span<const int> levels, Wrapping wrapping, std::size_t period)
    : sent_(levels.begin(), levels.end()),
      wrapping_(wrapping),
      period_(period),
      areAlike_(period > 0 && period <= levels.size() &&
                std::equal(levels.begin() + static_cast<std::ptrdiff_t>(period), levels.end(), levels.begin()))
{
}

NoiseSplit NoiseSplitter::Of(const PhaseValues& phase)
{
    const std::size_t repetitions = period_ > 0 ? phase.range.count / period_ : 0;
    NoiseSplit split =
        repetitions >= kFewestRepetitions ? SplitByRepetitions(phase, repetitions) : SplitBySymbols(phase);
    double largest = 0.0;
    for (const double value : split.explained)
        largest = std::max(largest, std::abs(value));
    if (split.residualRms <= kRounding * largest) {
        split.residualRms = 0.0;
        split.noiseRms = 0.0;
    }
    return split;
}

NoiseSplit NoiseSplitter::SplitByRepetitions(const PhaseValues& phase, std::size_t repetitions) const
{
    NoiseSplit split;
    split.byRepetitions = true;
    const double* const values = phase.values.data() + phase.range.first;
    std::vector<double> means(period_, 0.0);
    for (std::size_t r = 0; r < repetitions; ++r)
        for (std::size_t i = 0; i < period_; ++i)
            means[i] += values[r * period_ + i];
    for (double& mean : means)
        mean /= static_cast<double>(repetitions);
    double power = 0.0;
    for (std::size_t r = 0; r < repetitions; ++r)
        for (std::size_t i = 0; i < period_; ++i) {
            const double rest = values[r * period_ + i] - means[i];
            power += rest * rest;
        }
    const auto count = static_cast<double>(repetitions);
    split.residualRms = std::sqrt(power / (count * static_cast<double>(period_)));
    split.noiseRms = split.residualRms * std::sqrt(count / (count - 1.0));
    // What is the same in all repetitions is counted once.
    const std::size_t copies = areAlike_ ? 1 : repetitions;
    split.range = {phase.range.first, period_ * copies};
    for (std::size_t r = 0; r < copies; ++r)
        split.explained.insert(split.explained.end(), means.begin(), means.end());
    return split;
}

NoiseSplit NoiseSplitter::SplitBySymbols(const PhaseValues& phase)
{
    if (!fit_ || fitted_.first != phase.range.first || fitted_.count != phase.range.count) {
        fit_.emplace(sent_, SymbolSpan{}, wrapping_, phase.range);
        fitted_ = phase.range;
    }
    NoiseSplit split;
    split.range = fit_->Range();
    if (split.range.count == 0)
        return split;
    const SymbolResponse response = fit_->Of(phase.values, 1);
    split.explained = ExplainedSamples(response, sent_, wrapping_, split.range);
    split.residualRms = response.residualRms.front();
    // What the fit takes of the noise along with the signal.
    const auto count = static_cast<double>(split.range.count);
    const double left = 1.0 - static_cast<double>(response.unknowns) / count;
    split.noiseRms = left > 0.0 ? split.residualRms / std::sqrt(left) : split.residualRms;
    return split;
}

NoiseSplit SplitNoise(const PhaseValues& phase, std::span<const int> levels, Wrapping wrapping, std::size_t period)
{
    return NoiseSplitter(levels, wrapping, period).Of(phase);
}

WrongSide::WrongSide(std::vector<double> values, double sigma, std::size_t total)
    : sigma_(sigma), total_(static_cast<double>(total))
{
    const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
    const double low = *lowest;
    const double width = sigma / kBinsPerSigma;
    if (*highest - low < width * kMostBins) {
        std::vector<double> sums(static_cast<std::size_t>((*highest - low) / width) + 1, 0.0);
        std::vector<double> counts(sums.size(), 0.0);
        for (const double value : values) {
            const auto bin = static_cast<std::size_t>((value - low) / width);
            sums[bin] += value - low;
            counts[bin] += 1.0;
        }
        for (std::size_t bin = 0; bin < sums.size(); ++bin)
            if (counts[bin] > 0.0)
                Append(low + sums[bin] / counts[bin], counts[bin]);
    } else {  // too many bins for so little noise, or none
        std::sort(values.begin(), values.end());
        for (auto from = values.begin(); from != values.end();) {
            const double first = *from;
            double sum = 0.0;
            double count = 0.0;
            while (from != values.end() && *from <= first + width) {
                sum += *from - first;
                count += 1.0;
                ++from;
            }
            Append(first + sum / count, count);
        }
    }
}

void WrongSide::Append(double mean, double count)
{
    means_.push_back(mean);
    counts_.push_back(count);
    before_.push_back(before_.back() + count);
}

double WrongSide::Beyond(double threshold) const
{
    return Beyond(threshold, kNeverThere);
}

double WrongSide::Beyond(double threshold, double reach) const
{
    const auto from = std::lower_bound(means_.begin(), means_.end(), threshold - kFarthest * sigma_);
    const auto to = std::lower_bound(from, means_.end(), threshold + reach * sigma_);
    auto bin = static_cast<std::size_t>(from - means_.begin());
    double sum = before_[bin];
    for (; bin < static_cast<std::size_t>(to - means_.begin()); ++bin)
        sum += counts_[bin] * UpperTail((means_[bin] - threshold) / sigma_);
    return sum / total_;
}

double WrongSide::ThresholdAt(double ratio) const
{
    double low = means_.front() - kFarthest * sigma_;
    double high = means_.back() + kFarthest * sigma_;
    if (sigma_ == 0.0)
        return means_.front();
    for (int halving = 0; halving < kHalvings; ++halving) {
        const double middle = 0.5 * (low + high);
        (Beyond(middle, kFarthest) < ratio ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

ErrorRatios::ErrorRatios(const NoiseSplit& split, std::span<const int> levels, int levelCount)
    : levelCount_(levelCount), least_(split.residualRms > 0.0 ? kLeastRatio : 0.0)
{
    for (int eye = 0; eye + 1 < levelCount; ++eye) {
        std::vector<double> above;
        std::vector<double> below;
        for (std::size_t i = 0; i < split.explained.size(); ++i) {
            if (levels[split.range.first + i] > eye)
                above.push_back(split.explained[i]);
            else
                below.push_back(-split.explained[i]);
        }
        above_.emplace_back(std::move(above), split.residualRms, split.explained.size());
        below_.emplace_back(std::move(below), split.residualRms, split.explained.size());
    }
}

double ErrorRatios::OfBits(std::span<const double> thresholds) const
{
    double wrong = 0.0;
    for (std::size_t eye = 0; eye < above_.size(); ++eye)
        wrong += above_[eye].Beyond(thresholds[eye]) + below_[eye].Beyond(-thresholds[eye]);
    return std::max(wrong / std::log2(static_cast<double>(levelCount_)), least_);
}

ErrorRatios::Opening ErrorRatios::At(std::size_t eye, double ratio) const
{
    return {-below_[eye].ThresholdAt(ratio), above_[eye].ThresholdAt(ratio)};
}

std::vector<double> QFactors(const PhaseValues& phase, std::span<const int> levels, int levelCount)
{
    const auto count = static_cast<std::size_t>(levelCount);
    std::vector<double> numbers(count, 0.0);
    std::vector<double> means(count, 0.0);
    std::vector<double> powers(count, 0.0);
    const std::size_t end = phase.range.first + phase.range.count;
    for (std::size_t i = phase.range.first; i < end; ++i) {
        numbers[static_cast<std::size_t>(levels[i])] += 1.0;
        means[static_cast<std::size_t>(levels[i])] += phase.values[i];
    }
    for (std::size_t k = 0; k < count; ++k)
        means[k] /= numbers[k];
    for (std::size_t i = phase.range.first; i < end; ++i) {
        const auto level = static_cast<std::size_t>(levels[i]);
        powers[level] += (phase.values[i] - means[level]) * (phase.values[i] - means[level]);
    }
    const auto rms = [&](std::size_t k) { return std::sqrt(powers[k] / numbers[k]); };
    std::vector<double> factors;
    for (std::size_t k = 0; k + 1 < count; ++k) {
        const double noise = rms(k) + rms(k + 1);
        const double rounding = kRounding * std::max(std::abs(means[k]), std::abs(means[k + 1]));
        factors.push_back(noise > rounding ? (means[k + 1] - means[k]) / noise
                                           : std::numeric_limits<double>::infinity());
    }
    return factors;
}

}  // namespace Tarnwick::DSO::Maths
