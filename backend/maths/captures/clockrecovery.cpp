#include "maths/captures/clockrecovery.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>

#include "maths/patterns/periodicrecord.h"
#include "maths/transforms/factors.h"
#include "maths/transforms/fft.h"
#include "maths/transforms/roots.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

constexpr std::size_t kFewestSamples = 128;
constexpr double kFewestUi = 16.0;

// [samples] Half a block with its guards: spectrum and squared derivative of a block lie in the second-level cache.
constexpr std::size_t kMostBlock = 8192;
// [samples] at either end of a block, over which it is faded in: its seam reaches no further.
constexpr std::size_t kGuard = 64;
// [a UI] at least of the squared derivative where a clock is demodulated: all that the line is made of lies within twice the
// symbol rate, and its square within four times.
constexpr double kValuesPerUi = 8.0;
// [samples] of the squared derivative in which slow clocks are searched again.
constexpr double kSlowerSpacings[] = {1.0, 2.0, 4.0, 8.0};
constexpr double kPassedWhole = 0.75;  // of the band of the derivative that is kept; above, it is faded out

constexpr std::size_t kMostSearched = 262144;  // [samples] 30 ppm of resolution at 8 samples per UI
constexpr std::size_t kFewestSearched = 1024;  // [samples] where a repeated pattern is cut short
constexpr std::size_t kMostBackgroundBins = 401;
constexpr std::size_t kFewestBackgroundBins = 33;
constexpr std::size_t kRecordPerBackground = 8;
constexpr std::size_t kBackgroundStep = 32;  // [bins] that share one background
// Between the lines of a repeated pattern there is nothing, and everything would stand out of it.
constexpr double kMostScore = 1000.0;
constexpr double kFaintestBackground =
    1e-5;                                   // of the squared derivative's mean; what is fainter is rounding and fading
constexpr double kLeastMeanSquare = 1e-24;  // of the derivative of a record of range 1; below is rounding
constexpr double kLineShare = 0.5;          // of the largest score, for a line to count
constexpr double kMeanOfLines = 2.0;        // over the median; 1.06 for the magnitudes of noise
constexpr double kClusterEnd = 1.03;        // over the lowest line: a clock that moves has lines so near each other
constexpr double kSimilarScore = 0.8;       // of the strongest score, for a line to be its like
constexpr std::size_t kLineWidth = 4;       // [bins] either side, of a Hann-windowed line
constexpr std::size_t kMostSpectrumPoints = 4096;  // kept of the spectrum: more than a picture has columns

constexpr std::size_t kMostSpacing = 16;     // [samples] of the demodulated line
constexpr double kBeside = 1e-3;             // [cycles in such a spacing] that change its sum by 1e-6
constexpr std::size_t kFewestValues = 1024;  // of the demodulated line, where the record has as many samples
constexpr double kUiPerFineBlock = 16.0;     // below, the pattern moves the phase of a block
constexpr std::size_t kBlocksOfPhase[] = {8, 16, 32};
constexpr std::size_t kStretchGrowth = 4;  // from one stretch that is refined to the next

constexpr double kDefaultLoopDivisor = 1667.0;  // symbol rate over loop bandwidth
constexpr double kLeastLoopDivisor = 100.0;
constexpr double kStepsPerBandwidth = 128.0;  // steps of the loop in one period of its bandwidth
constexpr double kFewestUiPerStep = 4.0;
constexpr double kFaintest = 0.1;            // of the line's rms
constexpr double kMostCertainChange = 0.45;  // [UI] from one phase to the next
constexpr double kMovingClock = 0.1;         // [UI] rms of the phases; jitter and noise leave a tenth of that
constexpr double kLeastRise = 0.5;           // of the constant clock's, from knot to knot

void Check(bool holds, const std::string& field, double value, const char* expected)
{
    if (!holds)
        throw std::invalid_argument("ClockRecovery: " + field + " is " + std::to_string(value) + "; expected " +
                                    expected);
}

Complex Phasor(double turns)
{
    return std::polar(1.0, kTwoPi * (turns - std::floor(turns)));
}

/// Phasor(first + k step) for k = 0, 1, 2, ..., one after the other, each within 1e-14.
class Phasors {
public:
    Phasors(double first, double step) : first_(first), perValue_(step), step_(Phasor(step)) {}
    Complex Next()
    {
        constexpr std::size_t kRenewed = 32;  // values, after which rounding errors are left behind
        value_ =
            count_ % kRenewed == 0 ? Phasor(first_ + perValue_ * static_cast<double>(count_)) : Product(value_, step_);
        ++count_;
        return value_;
    }

private:
    double first_;
    double perValue_;
    Complex step_;
    Complex value_;
    std::size_t count_ = 0;
};

std::vector<double> HannWindow(std::size_t count)
{
    Phasors turns(0.5 / static_cast<double>(count), 1.0 / static_cast<double>(count));
    std::vector<double> weights(count);
    for (double& weight : weights)
        weight = 0.5 - 0.5 * turns.Next().real();
    return weights;
}

/// A record, and what brings it to a mean of 0 and a range of 1.
struct ScaledRecord {
    std::span<const double> samples;
    double mean = 0.0;
    double scale = 0.0;  // 0 where there is nothing to differentiate

    ScaledRecord(std::span<const double> record, const SampleStatistics& statistics)
        : samples(record), mean(statistics.mean)
    {
        const double ofRange = 1.0 / (statistics.high - statistics.low);
        // What is not a number may hide from the comparisons, but not from the mean.
        if (std::isfinite(ofRange) && std::isfinite(mean))
            scale = ofRange;
    }
};

/// The spacing [samples] of a line's values that is demodulated from a record.
std::size_t SpacingIn(std::size_t sampleCount)
{
    return std::clamp<std::size_t>(std::bit_floor(sampleCount / kFewestValues), 1, kMostSpacing);
}

/// The squared derivative of a record, block by block, two values a sample or fewer.
class SquaredDerivative {
public:
    /// @param spacing  [samples] of the values, a power of 2 up to kMostSpacing / 2: 1/2, which keeps all that the record
    ///                 has, or more, which keeps what lies below 1/(4 spacing) of the sample rate
    explicit SquaredDerivative(const ScaledRecord& record, double spacing = 0.5)
        : record_(record),
          spacing_(spacing),
          length_(std::min(kMostBlock, std::bit_ceil(record.samples.size() + 2 * kGuard))),
          forward_(ComplexTransform::Of(length_)),
          inverse_(ComplexTransform::Of(ValuesOf(length_))),
          bins_(2 * length_),
          values_(4 * length_)
    {
        for (std::size_t i = 0; i < kGuard; ++i)
            fade_[i] = 0.5 - 0.5 * std::cos(std::numbers::pi * (static_cast<double>(i) + 0.5) / kGuard);
        const double middle = 0.5 * static_cast<double>(kGuard - 1);
        for (std::size_t i = 0; i < length_; ++i)
            ramp_.push_back(static_cast<double>(i) - middle);
        const double ofInverse = 1.0 / static_cast<double>(length_);
        const std::size_t kept = ValuesOf(length_) / 4;
        for (std::size_t k = 0; k < kept; ++k)
            factors_.push_back(ofInverse * std::numbers::pi * static_cast<double>(2 * k) /
                               static_cast<double>(length_));
        if (kept == length_ / 2)
            return;
        const auto whole = static_cast<std::size_t>(kPassedWhole * static_cast<double>(kept));
        for (std::size_t k = whole; k < kept; ++k)
            factors_[k] *= 0.5 + 0.5 * std::cos(std::numbers::pi * static_cast<double>(k - whole) /
                                                static_cast<double>(kept - whole));
    }

    std::size_t BlockLength() const { return 2 * HalfLength(); }
    std::size_t SampleCount() const { return record_.samples.size(); }
    double Spacing() const { return spacing_; }
    std::size_t ValuesOf(std::size_t samples) const
    {
        return static_cast<std::size_t>(static_cast<double>(samples) / spacing_);
    }

    /// The values at first, first + spacing, first + 2 spacing, ... for `count` samples, which the next call replaces.
    std::span<const double> Block(std::size_t first, std::size_t count)
    {
        // What differentiates has real weights: two halves are transformed as one complex sequence and stay apart.
        const std::size_t counts[] = {std::min(count, HalfLength()), count - std::min(count, HalfLength())};
        double* const halves[] = {values_.Data(), values_.Data() + length_};
        const double slopes[] = {LoadHalf(first, counts[0], halves[0]),
                                 LoadHalf(first + counts[0], counts[1], halves[1])};
        Complex* const bins = bins_.Data();
        for (std::size_t i = 0; i < length_; ++i)
            bins[i] = {halves[0][i], halves[1][i]};
        forward_->Forward(bins);
        const double* const factors = factors_.data();
        const std::size_t kept = factors_.size();
        const std::size_t length = ValuesOf(length_);
        const auto times = [](Complex bin, double factor) {
            return Complex(-factor * bin.imag(), factor * bin.real());
        };
        for (std::size_t k = 0; k < kept; ++k)
            bins[k] = times(bins[k], factors[k]);
        for (std::size_t k = 1; k < kept; ++k)
            bins[length - k] = times(bins[length_ - k], -factors[k]);
        std::fill(bins + kept, bins + length - kept + 1, Complex{});
        inverse_->Inverse(bins);
        const double* const parts = RealsOf(bins + ValuesOf(kGuard));
        double* const values = values_.Data();
        const std::size_t valuesOf[] = {ValuesOf(counts[0]), ValuesOf(counts[1])};
        for (std::size_t half = 0; half < 2; ++half) {
            double* const squared = values + half * valuesOf[0];
            for (std::size_t i = 0; i < valuesOf[half]; ++i) {
                const double value = parts[2 * i + half] + slopes[half];
                squared[i] = value * value;
            }
        }
        return {values, valuesOf[0] + valuesOf[1]};
    }

private:
    std::size_t HalfLength() const { return length_ - 2 * kGuard; }
    static double* RealsOf(Complex* values) { return reinterpret_cast<double*>(values); }

    /// Beyond an end the record goes on turned about it, so that its slope does.
    double Continued(std::ptrdiff_t index) const
    {
        const std::span<const double> samples = record_.samples;
        const auto last = static_cast<std::ptrdiff_t>(samples.size()) - 1;
        if (index < 0)
            return 2.0 * samples.front() - samples[static_cast<std::size_t>(-index)];
        if (index > last)
            return 2.0 * samples.back() - samples[static_cast<std::size_t>(2 * last - index)];
        return samples[static_cast<std::size_t>(index)];
    }

    /// `count` samples with their guards, scaled and without their trend, and zeros up to the transform's length.
    /// @return  the slope of the trend: windowed with the rest, it would drown what is small
    double LoadHalf(std::size_t first, std::size_t count, double* values) const
    {
        const std::size_t used = count > 0 ? count + 2 * kGuard : 0;
        std::fill(values + used, values + length_, 0.0);
        if (count == 0)
            return 0.0;
        const double mean = record_.mean;
        const double scale = record_.scale;
        if (first >= kGuard && first + count + kGuard <= record_.samples.size()) {
            const double* const from = record_.samples.data() + (first - kGuard);
            for (std::size_t i = 0; i < used; ++i)
                values[i] = scale * (from[i] - mean);
        } else {
            const auto begin = static_cast<std::ptrdiff_t>(first) - static_cast<std::ptrdiff_t>(kGuard);
            for (std::size_t i = 0; i < used; ++i)
                values[i] = scale * (Continued(begin + static_cast<std::ptrdiff_t>(i)) - mean);
        }
        const double left = Mean({values, kGuard});
        const double right = Mean({values + used - kGuard, kGuard});
        const double slope = (right - left) / static_cast<double>(used - kGuard);
        const double* const ramp = ramp_.data();
        for (std::size_t i = 0; i < used; ++i)
            values[i] -= left + slope * ramp[i];
        for (std::size_t i = 0; i < kGuard; ++i) {
            values[i] *= fade_[i];
            values[used - 1 - i] *= fade_[i];
        }
        return slope;
    }

    ScaledRecord record_;
    double spacing_;
    std::size_t length_;  // of the transform of two halves
    std::shared_ptr<const ComplexTransform> forward_;
    std::shared_ptr<const ComplexTransform> inverse_;
    AlignedBuffer<Complex> bins_;
    AlignedBuffer<double> values_;
    double fade_[kGuard];
    std::vector<double> ramp_;     // [samples] from the middle of the guard on the left
    std::vector<double> factors_;  // of the bins that are kept, what differentiates and what the inverse multiplies by
};

struct Stretch {
    std::size_t first;
    std::size_t count;
};

/// Calls visit(values, stretch) with the squared derivative of each block of a stretch of the record.
template <typename Visit>
void ForBlocks(SquaredDerivative& derivative, Stretch stretch, Visit visit)
{
    for (std::size_t done = 0; done < stretch.count;) {
        const std::size_t count = std::min(derivative.BlockLength(), stretch.count - done);
        visit(derivative.Block(stretch.first + done, count), Stretch{stretch.first + done, count});
        done += count;
    }
}

double MeanSquare(SquaredDerivative& derivative, Stretch stretch)
{
    double sum = 0.0;
    ForBlocks(derivative, stretch, [&](std::span<const double> squared, Stretch) {
        sum = std::accumulate(squared.begin(), squared.end(), sum);
    });
    return sum / static_cast<double>(derivative.ValuesOf(stretch.count));
}

// ---- the line

std::size_t FastEvenLength(std::size_t atLeast)
{
    std::size_t length = atLeast + atLeast % 2;
    while (!HasOnlyFactors(length, {2, 3, 5}))
        length += 2;
    return length;
}

struct Line {
    double score = 0.0;
    double frequency = 0.0;
    bool ofPattern = false;  // the spectrum is one of separate lines
    Stretch searched{};
    std::optional<LineSpectrum> spectrum;
};

/// The bins about one that its background is taken from: fewer in a short record, where the noise itself, whose derivative
/// rises with frequency, is not even over so many.
std::size_t BackgroundBins(std::size_t length)
{
    return std::clamp(length / kRecordPerBackground, kFewestBackgroundBins, kMostBackgroundBins);
}

/// Whether a spectrum is one of separate lines: in most neighbourhoods of so many bins the mean is far above the median.
enum class Spectrum { Even, OfLines };

/// Magnitudes over the medians about them, in place: the scores of bins first .. last; the others are lost.
/// @param faintest  magnitudes below are nothing
Spectrum DivideByBackground(std::vector<double>& magnitude, std::size_t first, std::size_t last, double faintest)
{
    const auto at = [&](std::size_t k) { return magnitude.begin() + static_cast<std::ptrdiff_t>(k); };
    const double least = std::max(*std::max_element(at(first), at(last + 1)) / kMostScore, faintest);
    const std::size_t bins = BackgroundBins(2 * magnitude.size());
    std::vector<double> scores(last + 1 - first);
    std::vector<double> window;
    std::size_t ofLines = 0;
    std::size_t windows = 0;
    for (std::size_t begin = first; begin <= last; begin += kBackgroundStep) {
        const std::size_t end = std::min(begin + kBackgroundStep, last + 1);
        const std::size_t middle = (begin + end) / 2;
        const std::size_t from = middle > bins / 2 ? middle - bins / 2 : 0;
        window.assign(at(from), at(std::min(from + bins, magnitude.size())));
        const auto median = window.begin() + static_cast<std::ptrdiff_t>(window.size() / 2);
        std::nth_element(window.begin(), median, window.end());
        ++windows;
        ofLines += Mean(window) > kMeanOfLines * *median ? 1 : 0;
        const double background = std::max(*median, least);
        for (std::size_t k = begin; k < end; ++k)
            scores[k - first] = background > 0.0 ? magnitude[k] / background : 0.0;
    }
    std::copy(scores.begin(), scores.end(), at(first));
    return 2 * ofLines > windows ? Spectrum::OfLines : Spectrum::Even;
}

/// The bin of the clock among lines of at least `least` from `lowest` on: the strongest of those within a few per cent, or
/// the centre of several that are alike, as a clock that moves has them. [bins]
double CentreOfLine(std::span<const double> scores, std::size_t lowest, std::size_t last, double least)
{
    const std::size_t end = std::min(last, static_cast<std::size_t>(kClusterEnd * static_cast<double>(lowest))) + 1;
    const auto best = static_cast<std::size_t>(std::max_element(scores.begin() + static_cast<std::ptrdiff_t>(lowest),
                                                                scores.begin() + static_cast<std::ptrdiff_t>(end)) -
                                               scores.begin());
    double weight = 0.0;
    double moment = 0.0;
    bool alone = true;
    for (std::size_t k = lowest; k < end; ++k) {
        const std::size_t away = k > best ? k - best : best - k;
        alone = alone && (away <= kLineWidth || scores[k] < kSimilarScore * scores[best]);
        if (scores[k] < least)
            continue;
        weight += scores[k] * scores[k];
        moment += scores[k] * scores[k] * static_cast<double>(k);
    }
    return alone ? static_cast<double>(best) : moment / weight;
}

/// The scores of bins first .. last, of neighbours that would share a point of a picture the largest, so that no line is lost.
LineSpectrum Thinned(std::span<const double> scores, std::size_t first, std::size_t last, std::size_t line,
                     double binsPerCycle)
{
    const std::size_t bins = last + 1 - first;
    const std::size_t group = (bins + kMostSpectrumPoints - 1) / kMostSpectrumPoints;
    LineSpectrum spectrum;
    spectrum.first = (static_cast<double>(first) + 0.5 * static_cast<double>(group - 1)) / binsPerCycle;
    spectrum.spacing = static_cast<double>(group) / binsPerCycle;
    spectrum.line = (line - first) / group;
    for (std::size_t begin = first; begin <= last; begin += group) {
        const auto from = scores.begin() + static_cast<std::ptrdiff_t>(begin);
        spectrum.score.push_back(
            *std::max_element(from, from + static_cast<std::ptrdiff_t>(std::min(group, last + 1 - begin))));
    }
    return spectrum;
}

Line FindLine(SquaredDerivative& derivative, Stretch stretch, const ClockSearch& search)
{
    const std::size_t count = derivative.ValuesOf(stretch.count);
    const std::size_t length = FastEvenLength(count);
    AlignedBuffer<double> values(length);
    Line line;
    line.searched = stretch;
    double sum = 0.0;
    ForBlocks(derivative, stretch, [&](std::span<const double> squared, Stretch block) {
        std::copy(squared.begin(), squared.end(), values.Data() + derivative.ValuesOf(block.first - stretch.first));
        sum = std::accumulate(squared.begin(), squared.end(), sum);
    });
    const double meanSquare = sum / static_cast<double>(count);
    if (meanSquare < kLeastMeanSquare)
        return line;
    const std::vector<double> window = HannWindow(count);
    for (std::size_t i = 0; i < count; ++i)
        values.Data()[i] = (values.Data()[i] - meanSquare) * window[i];
    std::fill(values.Data() + count, values.Data() + length, 0.0);
    AlignedBuffer<Complex> bins(length / 2 + 1);
    RealTransform::Of(length)->Forward(values.Data(), bins.Data());

    // Bin k is k cycles in so many samples.
    const double binsPerCycle = static_cast<double>(length) * derivative.Spacing();
    const double padding = static_cast<double>(length) / static_cast<double>(count);
    const double lowest = std::max(binsPerCycle / search.mostSamplesPerUi, kFewestUi * padding);
    const auto first = static_cast<std::size_t>(std::ceil(lowest));
    const auto last = static_cast<std::size_t>(binsPerCycle / search.fewestSamplesPerUi);
    if (first > last)
        return line;
    std::vector<double> scores(length / 2 + 1);
    std::transform(bins.Data(), bins.Data() + scores.size(), scores.begin(),
                   [](Complex bin) { return std::sqrt(std::norm(bin)); });
    // A line at a limit needs its neighbour beyond it.
    const double dc = 0.5 * static_cast<double>(count) * meanSquare;  // a Hann window's mean is 1/2
    line.ofPattern = DivideByBackground(scores, first - 1, last + 1, kFaintestBackground * dc) == Spectrum::OfLines;

    const auto isPeak = [&](std::size_t k) { return scores[k] > scores[k - 1] && scores[k] >= scores[k + 1]; };
    double largest = 0.0;
    for (std::size_t k = first; k <= last; ++k)
        if (isPeak(k))
            largest = std::max(largest, scores[k]);
    if (!(largest > 0.0))
        return line;
    std::size_t peak = first;
    while (!isPeak(peak) || scores[peak] < kLineShare * largest)
        ++peak;
    const double centre = CentreOfLine(scores, peak, last, kLineShare * largest);
    const auto taken = static_cast<std::size_t>(std::round(centre));
    // The score is that of the strongest bin of the line, which need not be the one at its centre.
    line.score = std::max(scores[peak], scores[taken]);
    line.frequency = centre / binsPerCycle;
    if (search.keepSpectrum)
        line.spectrum = Thinned(scores, first, last, taken, binsPerCycle);
    return line;
}

/// The same where the pattern may be repeated many times: its own lines would stand out of the nothing between them like the
/// clock's. Half the stretch has half as many repetitions in it.
Line FindLineOfAnyPattern(SquaredDerivative& derivative, Stretch stretch, const ClockSearch& search)
{
    Line line = FindLine(derivative, stretch, search);
    while (line.ofPattern && stretch.count / 2 >= kFewestSearched) {
        stretch = {stretch.first + stretch.count / 4, stretch.count / 2};
        Line shorter = FindLine(derivative, stretch, search);
        if (shorter.score < kLeastClockScore)
            break;
        line = std::move(shorter);
    }
    return line;
}

// ---- the line demodulated

/// sum_t (s(t) - mean) exp(-2 pi i frequency t) over stretches of `spacing` samples.
struct Demodulated {
    double frequency;  // [cycles a sample]
    std::size_t spacing;
    double ofSquare;  // [samples] spacing of the squared derivative
    std::vector<Complex> values;

    double Middle(double index) const { return (index + 0.5) * static_cast<double>(spacing) - 0.5 * ofSquare; }
};

class Demodulator {
public:
    /// @param frequency  [cycles a sample]
    /// @param mean       of the squared derivative
    Demodulator(double frequency, double mean, const SquaredDerivative& derivative)
        : mean_(mean),
          line_{frequency, SpacingIn(derivative.SampleCount()), derivative.Spacing(), {}},
          turns_(0.0, -frequency * static_cast<double>(line_.spacing)),
          cosine_(derivative.ValuesOf(line_.spacing)),
          sine_(cosine_.size())
    {
        line_.values.reserve(derivative.SampleCount() / line_.spacing);
        for (std::size_t i = 0; i < cosine_.size(); ++i) {
            const Complex phasor = Phasor(-frequency * derivative.Spacing() * static_cast<double>(i));
            cosine_[i] = phasor.real();
            sine_[i] = phasor.imag();
        }
    }

    /// The values that follow those taken before.
    void Take(std::span<const double> squared)
    {
        for (std::size_t begin = 0; begin < squared.size(); begin += cosine_.size()) {
            // Two running sums each: the values come in pairs.
            double real[2] = {};
            double imag[2] = {};
            for (std::size_t i = 0; i < cosine_.size(); i += 2)
                for (std::size_t j = 0; j < 2; ++j) {
                    const double value = squared[begin + i + j] - mean_;
                    real[j] += value * cosine_[i + j];
                    imag[j] += value * sine_[i + j];
                }
            line_.values.push_back(Product({real[0] + real[1], imag[0] + imag[1]}, turns_.Next()));
        }
    }
    Demodulated Finish() { return std::move(line_); }

private:
    double mean_;
    Demodulated line_;
    Phasors turns_;
    std::vector<double> cosine_;
    std::vector<double> sine_;
};

/// At one frequency or several [cycles a sample], in one pass over the record. The mean is that of as much as is searched.
std::vector<Demodulated> Demodulate(SquaredDerivative& derivative, std::span<const double> frequencies)
{
    const std::size_t spacing = SpacingIn(derivative.SampleCount());
    const std::size_t searched = std::min(derivative.SampleCount(), kMostSearched) / spacing * spacing;
    const double mean = MeanSquare(derivative, {(derivative.SampleCount() - searched) / 2, searched});
    std::vector<Demodulator> demodulators;
    for (const double frequency : frequencies)
        demodulators.emplace_back(frequency, mean, derivative);
    const Stretch whole{0, derivative.SampleCount() / spacing * spacing};
    ForBlocks(derivative, whole, [&](std::span<const double> squared, Stretch) {
        for (Demodulator& demodulator : demodulators)
            demodulator.Take(squared);
    });
    std::vector<Demodulated> lines;
    lines.reserve(demodulators.size());
    for (Demodulator& demodulator : demodulators)
        lines.push_back(demodulator.Finish());
    return lines;
}

/// Demodulates what is left: by `offset` [cycles a sample].
void Shift(Demodulated& line, double offset)
{
    Phasors turns(-offset * line.Middle(0.0), -offset * static_cast<double>(line.spacing));
    for (Complex& value : line.values)
        value = Product(value, turns.Next());
    line.frequency += offset;
}

/// Phases of the line over equal parts of the record, each within half a UI of the one before it.
struct Phases {
    PhaseOverTime series;
    std::vector<bool> faint;  // without transitions there is no phase: the one before is kept, and counts for nothing
    bool certain = true;      // none comes near half a UI from the one before, where it could be either way round
};

Phases Unwrapped(std::span<const Complex> sums, double first, double spacing)
{
    double power = 0.0;
    for (const Complex sum : sums)
        power += std::norm(sum);
    const double faintest = kFaintest * std::sqrt(power / static_cast<double>(sums.size()));
    Phases phases{{first, spacing, {}}, {}, true};
    const auto start = std::find_if(sums.begin(), sums.end(), [&](Complex sum) { return std::abs(sum) >= faintest; });
    double before = start == sums.end() ? 0.0 : std::arg(*start) / kTwoPi;
    for (const Complex sum : sums) {
        phases.faint.push_back(std::abs(sum) < faintest);
        if (!phases.faint.back()) {
            const double ahead = std::arg(sum) / kTwoPi - before;
            const double change = ahead - std::round(ahead);
            phases.certain = phases.certain && std::abs(change) <= kMostCertainChange;
            before += change;
        }
        phases.series.ui.push_back(before);
    }
    return phases;
}

/// The phases of `blocks` Hann-windowed blocks of a stretch of values, shifted by `offset` [cycles a sample].
Phases BlockPhases(const Demodulated& line, Stretch stretch, double offset, std::size_t blocks)
{
    // A few values are shifted as the first few are, and their sum then as a whole.
    constexpr std::size_t kTogether = 32;
    const double perValue = -offset * static_cast<double>(line.spacing);
    std::array<Complex, kTogether> turns;
    for (std::size_t i = 0; i < kTogether; ++i)
        turns[i] = Phasor(perValue * static_cast<double>(i));
    std::vector<Complex> sums(blocks);
    std::vector<double> window;
    for (std::size_t b = 0; b < blocks; ++b) {
        const std::size_t begin = stretch.count * b / blocks;
        const std::size_t count = stretch.count * (b + 1) / blocks - begin;
        if (window.size() != count)
            window = HannWindow(count);
        const double first = -offset * line.Middle(static_cast<double>(stretch.first + begin));
        for (std::size_t done = 0; done < count; done += kTogether) {
            const Complex* const values = line.values.data() + stretch.first + begin + done;
            Complex sum;
            for (std::size_t i = 0; i < std::min(kTogether, count - done); ++i)
                sum += window[done + i] * Product(values[i], turns[i]);
            sums[b] += Product(sum, Phasor(first + perValue * static_cast<double>(done)));
        }
    }
    const double valuesPerBlock = static_cast<double>(stretch.count) / static_cast<double>(blocks);
    return Unwrapped(sums, line.Middle(static_cast<double>(stretch.first) + 0.5 * valuesPerBlock - 0.5),
                     valuesPerBlock * static_cast<double>(line.spacing));
}

/// The phases of steps of about `length` [samples] each, as many as there are.
Phases StepPhases(const Demodulated& line, double length)
{
    const auto perStep = static_cast<std::size_t>(std::clamp(std::round(length / static_cast<double>(line.spacing)),
                                                             1.0, static_cast<double>(line.values.size())));
    std::vector<Complex> sums(line.values.size() / perStep);
    for (std::size_t k = 0; k < sums.size(); ++k)
        for (std::size_t i = 0; i < perStep; ++i)
            sums[k] += line.values[k * perStep + i];
    return Unwrapped(sums, line.Middle(0.5 * static_cast<double>(perStep - 1)),
                     static_cast<double>(perStep * line.spacing));
}

struct Trend {
    double mean = 0.0;   // [UI]
    double rms = 0.0;    // [UI] about the mean
    double slope = 0.0;  // [UI a sample] of the least-squares line
};

Trend TrendOf(const Phases& phases)
{
    const std::vector<double>& ui = phases.series.ui;
    double count = 0.0;
    double centre = 0.0;
    Trend trend;
    for (std::size_t b = 0; b < ui.size(); ++b)
        if (!phases.faint[b]) {
            count += 1.0;
            centre += static_cast<double>(b);
            trend.mean += ui[b];
        }
    if (count == 0.0)
        return trend;
    centre /= count;
    trend.mean /= count;
    double products = 0.0;
    double squares = 0.0;
    for (std::size_t b = 0; b < ui.size(); ++b)
        if (!phases.faint[b]) {
            const double x = static_cast<double>(b) - centre;
            const double y = ui[b] - trend.mean;
            products += x * y;
            squares += x * x;
            trend.rms += y * y;
        }
    trend.rms = std::sqrt(trend.rms / count);
    if (squares > 0.0)
        trend.slope = products / squares / phases.series.spacing;
    return trend;
}

/// Whether each of so many blocks would hold enough UI. The fewest blocks are taken in any case.
bool HoldsBlocks(double ui, std::size_t blocks)
{
    return blocks == kBlocksOfPhase[0] || ui >= kUiPerFineBlock * static_cast<double>(blocks);
}

/// Moves the line's frequency onto the capture's: first over the stretch in which it was found, then over longer ones about
/// it, up to the whole record.
/// @param frequency  [cycles a sample] at which the line was found
void Refine(Demodulated& line, Stretch searched, double frequency)
{
    Stretch stretch{searched.first / line.spacing, searched.count / line.spacing};
    stretch.count = std::min(stretch.count, line.values.size() - stretch.first);
    double offset = frequency - line.frequency;
    while (true) {
        for (const std::size_t blocks : kBlocksOfPhase) {
            const double ui = static_cast<double>(stretch.count * line.spacing) * (line.frequency + offset);
            if (HoldsBlocks(ui, blocks))
                offset += TrendOf(BlockPhases(line, stretch, offset, blocks)).slope;
        }
        if (stretch.count == line.values.size())
            break;
        const std::size_t count = std::min(kStretchGrowth * stretch.count, line.values.size());
        const std::size_t middle = stretch.first + stretch.count / 2;
        const std::size_t first = middle > count / 2 ? middle - count / 2 : 0;
        stretch = {std::min(first, line.values.size() - count), count};
    }
    Shift(line, offset);
}

// ---- the clock that moves

/// A second-order loop of damping 1/sqrt 2 over the phases of equal steps. Its transfer function
///     H(s) = (2 zeta w s + w^2) / (s^2 + 2 zeta w s + w^2)
/// is 3 dB down at w sqrt(2 + sqrt 5). Source: F. M. Gardner, "Phaselock Techniques", 3rd edition, Wiley 2005, chapter 2.
struct Loop {
    double proportional;
    double integral;
    double phase = 0.0;
    double perStep = 0.0;

    explicit Loop(double bandwidthPerStep)
        : proportional(std::numbers::sqrt2 * NaturalAngle(bandwidthPerStep)),
          integral(NaturalAngle(bandwidthPerStep) * NaturalAngle(bandwidthPerStep))
    {
    }
    static double NaturalAngle(double bandwidthPerStep)
    {
        return kTwoPi * bandwidthPerStep / std::sqrt(2.0 + std::sqrt(5.0));
    }
    /// @return the phase in the middle of the step, which has seen half of it
    double Step(const Phases& steps, std::size_t k)
    {
        phase += perStep;
        if (steps.faint[k])
            return phase;
        double error = steps.series.ui[k] - phase;
        // Noise may have unwrapped a step the wrong way: the turn nearest to the loop's phase counts.
        if (!steps.certain)
            error -= std::round(error);
        phase += proportional * error;
        perStep += integral * error;
        return phase - 0.5 * proportional * error;
    }
};

double StepLength(double loopBandwidth, double samplesPerUi)
{
    return std::max(1.0 / (kStepsPerBandwidth * loopBandwidth), kFewestUiPerStep * samplesPerUi);
}

void Track(const Demodulated& line, double loopBandwidth, SymbolClock& clock)
{
    const Phases steps = StepPhases(line, StepLength(loopBandwidth, clock.samplesPerUi));
    const std::size_t count = steps.series.ui.size();
    clock.knotSpacing = steps.series.spacing;
    clock.firstKnot = steps.series.first;

    // Backwards first, so that the loop has settled where the record begins.
    Loop loop(loopBandwidth * clock.knotSpacing);
    loop.phase = steps.series.ui.back();
    for (std::size_t k = count; k-- > 0;)
        loop.Step(steps, k);
    loop.perStep = -loop.perStep;
    loop.phase -= loop.perStep;  // the first step forwards is at the place of the last one backwards
    clock.deviationUi.resize(count);
    const double start = clock.boundary / clock.samplesPerUi;
    const double steepest = (1.0 - kLeastRise) * clock.knotSpacing / clock.samplesPerUi;
    for (std::size_t k = 0; k < count; ++k) {
        clock.deviationUi[k] = loop.Step(steps, k) + start;
        if (k > 0)
            clock.deviationUi[k] = std::max(clock.deviationUi[k], clock.deviationUi[k - 1] - steepest);
    }
    // The loop's phase may be any whole number of UI away.
    const double whole = std::round(Mean(clock.deviationUi));
    for (double& deviation : clock.deviationUi)
        deviation -= whole;
}

/// The phases from which the constant clock follows: those of the blocks, or of short steps where the blocks lose their way
/// because the clock moves.
Phases ConstantPhases(const Demodulated& line)
{
    const double ui = static_cast<double>(line.values.size() * line.spacing) * line.frequency;
    std::size_t blocks = kBlocksOfPhase[0];
    for (const std::size_t more : kBlocksOfPhase)
        if (HoldsBlocks(ui, more))
            blocks = more;
    Phases phases = BlockPhases(line, {0, line.values.size()}, 0.0, blocks);
    if (TrendOf(phases).rms <= kMovingClock)
        return phases;
    Phases steps = StepPhases(line, StepLength(line.frequency / kDefaultLoopDivisor, 1.0 / line.frequency));
    return steps.certain && steps.series.ui.size() >= blocks ? steps : phases;
}

double RootMeanSquareAboutMean(std::span<const double> values)
{
    const double mean = Mean(values);
    double sum = 0.0;
    for (const double value : values)
        sum += (value - mean) * (value - mean);
    return std::sqrt(sum / static_cast<double>(values.size()));
}

/// Phase, residual and, where asked for, the moving clock of a line at its final frequency.
RecoveredClock Described(const Demodulated& line, Phases phases, const ClockSearch& search)
{
    RecoveredClock result;
    result.found = true;
    SymbolClock& clock = result.clock;
    clock.samplesPerUi = 1.0 / line.frequency;
    const Trend trend = TrendOf(phases);
    clock.boundary = (std::ceil(trend.mean) - trend.mean) * clock.samplesPerUi;
    if (clock.boundary >= clock.samplesPerUi)
        clock.boundary = 0.0;
    result.phaseResidualUi = trend.rms;
    result.phase = std::move(phases.series);
    for (double& ui : result.phase.ui)
        ui -= trend.mean;
    if (search.tracking == ClockTracking::Constant)
        return result;
    const double bandwidth = search.loopBandwidth.value_or(line.frequency / kDefaultLoopDivisor);
    Check(bandwidth <= line.frequency / kLeastLoopDivisor, "loop bandwidth over symbol rate",
          bandwidth / line.frequency, "at most 0.01");
    Track(line, bandwidth, clock);
    result.trackedUi = RootMeanSquareAboutMean(clock.deviationUi);
    return result;
}

void CheckSearch(const ClockSearch& search)
{
    Check(search.fewestSamplesPerUi >= 2.0, "fewest samples per UI", search.fewestSamplesPerUi, "at least 2");
    Check(search.mostSamplesPerUi >= search.fewestSamplesPerUi, "most samples per UI", search.mostSamplesPerUi,
          "at least the fewest");
    if (search.loopBandwidth)
        Check(*search.loopBandwidth > 0.0, "loop bandwidth", *search.loopBandwidth, "more than 0 cycles a sample");
}

}  // namespace

double SymbolClock::UiAt(double position) const
{
    const double constant = (position - boundary) / samplesPerUi;
    if (deviationUi.empty())
        return constant;
    const double place =
        std::clamp((position - firstKnot) / knotSpacing, 0.0, static_cast<double>(deviationUi.size() - 1));
    const auto knot = static_cast<std::size_t>(place);
    const double here = deviationUi[knot];
    const double next = deviationUi[std::min(knot + 1, deviationUi.size() - 1)];
    return constant + here + (place - static_cast<double>(knot)) * (next - here);
}

void SymbolClock::PositionsOf(double firstUi, double step, double parts, std::span<double> positions) const
{
    const auto uiOf = [&](std::size_t i) { return firstUi + static_cast<double>(i) * step / parts; };
    if (deviationUi.empty()) {
        for (std::size_t i = 0; i < positions.size(); ++i)
            positions[i] = boundary + samplesPerUi * uiOf(i);
        return;
    }
    const auto positionOf = [&](std::size_t knot) { return firstKnot + knotSpacing * static_cast<double>(knot); };
    const auto uiAtKnot = [&](std::size_t knot) {
        return (positionOf(knot) - boundary) / samplesPerUi + deviationUi[knot];
    };
    // The last knot at or before the first instant, then along with the instants.
    std::size_t knot = 0;
    for (std::size_t above = deviationUi.size(); above - knot > 1;) {
        const std::size_t middle = knot + (above - knot) / 2;
        (uiAtKnot(middle) <= firstUi ? knot : above) = middle;
    }
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const double ui = uiOf(i);
        while (knot + 1 < deviationUi.size() && uiAtKnot(knot + 1) <= ui)
            ++knot;
        double samplesPerUiHere = samplesPerUi;
        if (knot + 1 < deviationUi.size() && uiAtKnot(knot) <= ui)
            samplesPerUiHere = knotSpacing / (uiAtKnot(knot + 1) - uiAtKnot(knot));
        positions[i] = positionOf(knot) + samplesPerUiHere * (ui - uiAtKnot(knot));
    }
}

namespace {

Line FindLineInRecord(SquaredDerivative& derivative, const ClockSearch& search)
{
    const std::size_t count = std::min(derivative.SampleCount(), kMostSearched);
    const std::size_t rest = derivative.SampleCount() - count;
    Line line;
    // A gap may be anywhere in a long record.
    for (const std::size_t first : {rest / 2, std::size_t{0}, rest}) {
        Line other = FindLineOfAnyPattern(derivative, {first, count}, search);
        if (other.score >= line.score)
            line = std::move(other);
        if (rest == 0 || line.score >= kLeastClockScore)
            break;
    }
    return line;
}

/// In all of the record's bandwidth. Where nothing is found there, slower clocks once more without the noise of all that lies
/// far above them.
Line FindLineInRecord(const ScaledRecord& record, SquaredDerivative& derivative, const ClockSearch& search)
{
    Line line = FindLineInRecord(derivative, search);
    for (const double spacing : kSlowerSpacings) {
        ClockSearch slower = search;
        slower.fewestSamplesPerUi = std::max(search.fewestSamplesPerUi, kValuesPerUi * spacing);
        if (line.score >= kLeastClockScore || slower.fewestSamplesPerUi > slower.mostSamplesPerUi)
            break;
        SquaredDerivative narrower(record, spacing);
        Line other = FindLineInRecord(narrower, slower);
        if (other.score >= kLeastClockScore)
            line = std::move(other);
    }
    return line;
}

/// The clock of a line that has been found and demodulated.
RecoveredClock Refined(Demodulated demodulated, const Line& line, const ClockSearch& search)
{
    Refine(demodulated, line.searched, line.frequency);
    Phases phases = ConstantPhases(demodulated);
    if (const Trend trend = TrendOf(phases); trend.rms > kMovingClock) {
        Shift(demodulated, trend.slope);
        phases = ConstantPhases(demodulated);
    }
    return Described(demodulated, std::move(phases), search);
}

/// The squared derivative in which a line of that frequency [cycles a sample] is demodulated.
SquaredDerivative DerivativeFor(double frequency, const ScaledRecord& record)
{
    // Two values at least make one of the line.
    const double most = 0.5 * static_cast<double>(SpacingIn(record.samples.size()));
    double spacing = 0.5;
    while (2.0 * spacing <= most && 2.0 * spacing * kValuesPerUi * frequency <= 1.0)
        spacing *= 2.0;
    return SquaredDerivative(record, spacing);
}

bool HoldsClockOfRate(std::span<const double> samples, double samplesPerUi)
{
    return samples.size() >= kFewestSamples && static_cast<double>(samples.size()) >= kFewestUi * samplesPerUi;
}

}  // namespace

RecoveredClock RecoverClock(std::span<const double> samples, const ClockSearch& search,
                            const SampleStatistics* statistics)
{
    return CheckClock(samples, 0.0, {}, {&search, 1}, statistics).found;
}

RecoveredClock ClockOfRate(std::span<const double> samples, double samplesPerUi, const ClockSearch& search)
{
    CheckSearch(search);
    Check(samplesPerUi >= 2.0 && std::isfinite(samplesPerUi), "samples per UI", samplesPerUi, "at least 2");
    if (!HoldsClockOfRate(samples, samplesPerUi))
        return {};
    const ScaledRecord record(samples, StatisticsOf(samples));
    if (record.scale == 0.0)
        return {};
    const double rate = 1.0 / samplesPerUi;
    SquaredDerivative derivative = DerivativeFor(rate, record);
    const Demodulated line = std::move(Demodulate(derivative, {&rate, 1}).front());
    return Described(line, ConstantPhases(line), search);
}

CheckedClock CheckClock(std::span<const double> samples, double samplesPerUi, const ClockSearch& ofRate,
                        std::span<const ClockSearch> searches, const SampleStatistics* statistics)
{
    CheckSearch(ofRate);
    for (const ClockSearch& search : searches)
        CheckSearch(search);
    CheckedClock clocks;
    if (samples.size() < kFewestSamples)
        return clocks;
    const ScaledRecord record(samples, statistics != nullptr ? *statistics : StatisticsOf(samples));
    if (record.scale == 0.0)
        return clocks;
    Line line;
    const ClockSearch* search = nullptr;
    SquaredDerivative searched(record);
    for (const ClockSearch& tried : searches) {
        search = &tried;
        line = FindLineInRecord(record, searched, tried);
        if (line.score >= kLeastClockScore)
            break;
    }
    clocks.found.score = line.score;
    clocks.found.spectrum = std::move(line.spectrum);
    const bool isFound = line.score >= kLeastClockScore;
    const bool hasRate = samplesPerUi >= 2.0 && HoldsClockOfRate(samples, samplesPerUi);
    if (!hasRate && !isFound)
        return clocks;
    // A line at the given rate, or beside it, is known from that alone.
    const bool isBeside =
        hasRate && std::abs(line.frequency - 1.0 / samplesPerUi) < kBeside / static_cast<double>(kMostSpacing);
    const double rate = hasRate ? 1.0 / samplesPerUi : 0.0;
    SquaredDerivative derivative = DerivativeFor(isFound ? std::max(line.frequency, rate) : rate, record);
    std::vector<double> frequencies;
    if (hasRate)
        frequencies.push_back(rate);
    if (isFound && !isBeside)
        frequencies.push_back(line.frequency);
    std::vector<Demodulated> lines = Demodulate(derivative, frequencies);
    if (hasRate)
        clocks.ofRate = Described(lines.front(), ConstantPhases(lines.front()), ofRate);
    if (isFound) {
        RecoveredClock found = Refined(std::move(lines.back()), line, *search);
        found.score = clocks.found.score;
        found.spectrum = std::move(clocks.found.spectrum);
        clocks.found = std::move(found);
    }
    return clocks;
}

std::optional<std::size_t> WholeSamplesPerUi(double samplesPerUi, std::size_t sampleCount)
{
    constexpr double kMostDrift = 0.02;       // [UI]
    constexpr double kMostDriftShort = 0.05;  // [UI]
    constexpr double kShort = 500.0;          // [UI]
    const double whole = std::round(samplesPerUi);
    if (!(whole >= 1.0) || !std::isfinite(samplesPerUi))
        return std::nullopt;
    const auto count = static_cast<double>(sampleCount);
    const double ui = count / samplesPerUi;
    if (!(std::abs(ui - count / whole) <= (ui < kShort ? kMostDriftShort : kMostDrift)))
        return std::nullopt;
    return static_cast<std::size_t>(whole);
}

}  // namespace Tarnwick::DSO::Maths
