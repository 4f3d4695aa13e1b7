#include "workbench/acquisition.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>

#include "maths/transforms/arraytransform.h"
#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Complex = std::complex<double>;
using Power = std::vector<double>;

// [samples] A longer record is analysed up to here: plenty for timing, and a transform of 64 MiB.
constexpr std::size_t kLongestAnalysed = std::size_t{1} << 21U;
constexpr std::size_t kShortestAnalysed = 64;  // [samples] less holds no pattern worth the name

// The symbol clock's line in the spectrum of the squared slope.
constexpr std::size_t kMostSamplesPerUi = 1024;
// [bins] Symbols in the record, times the zero padding by 2 to 4: below 16 symbols the line drowns in the pattern's own.
constexpr std::size_t kLowestLine = 64;
constexpr std::size_t kLineReach = 2;  // [bins] a multiple of the clock strays from the multiple of its bin by rounding
// The largest of n bins of white noise is ln n times their mean; four times that occurs by chance once in n^3 records.
constexpr double kLineOverNoise = 4.0;
constexpr double kCertainLineOverNoise = 40.0;  // 10 dB more
constexpr double kMultipleShare = 0.3;  // power of the clock's line over that of its strongest multiple, at least
constexpr double kEmptyBin = 1e-12;     // of the line's power, added so that an empty bin has a logarithm

// The autocorrelation of two repetitions with independent noise is S/(S + N).
constexpr double kLikelyCorrelation = 0.7;    // signal 3.7 dB above the noise
constexpr double kCertainCorrelation = 0.95;  // 12.8 dB
constexpr double kCorrelationSpread = 0.02;   // by which multiples of one period differ through noise and their overlap
constexpr double kShortestPeriodUi = 1.5;
constexpr double kShortestPeriod = 8.0;  // [samples] where the samples per UI are not known
// [samples] Lags reach to half the record, so that enough of it overlaps, and a little further: captures may be cut short.
constexpr std::size_t kMissingSamples = 2;

constexpr double kLeastOpening = 0.02;  // height of an open eye over the distance between its levels

std::span<const double> Head(std::span<const double> samples)
{
    return samples.first(std::min(samples.size(), kLongestAnalysed));
}

Power PowerSpectrum(const std::vector<double>& values, std::size_t length)
{
    std::vector<Complex> bins(values.begin(), values.end());
    bins.resize(length);
    Maths::ForwardTransform(bins);
    Power power(length);
    std::transform(bins.begin(), bins.end(), power.begin(), [](Complex bin) { return std::norm(bin); });
    return power;
}

std::size_t StrongestBin(const Power& power, std::size_t first, std::size_t end)
{
    return static_cast<std::size_t>(std::max_element(power.begin() + static_cast<std::ptrdiff_t>(first),
                                                     power.begin() + static_cast<std::ptrdiff_t>(end)) -
                                    power.begin());
}

// The position of the line around bin k, between the bins: the peak of a parabola through the logarithms of three.
double LinePosition(const Power& power, std::size_t k)
{
    const double floor = kEmptyBin * power[k];
    const double left = std::log(power[k - 1] + floor);
    const double middle = std::log(power[k] + floor);
    const double right = std::log(power[k + 1] + floor);
    const double curvature = left - 2.0 * middle + right;
    return static_cast<double>(k) + (curvature < 0.0 ? 0.5 * (left - right) / curvature : 0.0);
}

// Without its mean, under a Hann window: a line between two bins then leaks little.
std::vector<double> WindowedSquaredSlope(std::span<const double> samples)
{
    std::vector<double> slope(samples.size() - 1);
    for (std::size_t k = 0; k < slope.size(); ++k)
        slope[k] = (samples[k + 1] - samples[k]) * (samples[k + 1] - samples[k]);
    const double mean = std::accumulate(slope.begin(), slope.end(), 0.0) / static_cast<double>(slope.size());
    for (std::size_t k = 0; k < slope.size(); ++k) {
        const double phase = 2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(slope.size());
        slope[k] = (slope[k] - mean) * (0.5 - 0.5 * std::cos(phase));
    }
    return slope;
}

}  // namespace

SampleStatistics StatisticsOf(std::span<const double> samples)
{
    const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
    const auto count = static_cast<double>(samples.size());
    return {*low, *high, std::accumulate(samples.begin(), samples.end(), 0.0) / count,
            std::sqrt(std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0) / count)};
}

const char* NameOf(Confidence confidence)
{
    return confidence == Confidence::Certain ? "certain" : "likely";
}

std::optional<Estimate> FindSamplesPerUi(std::span<const double> samples)
{
    samples = Head(samples);
    if (samples.size() < kShortestAnalysed)
        return std::nullopt;
    const std::vector<double> slope = WindowedSquaredSlope(samples);
    const std::size_t length = std::bit_ceil(2 * slope.size());
    const Power power = PowerSpectrum(slope, length);
    const std::size_t lowest = std::max(length / kMostSamplesPerUi, kLowestLine);
    const std::size_t highest = length / 2 - kLineReach;  // two samples per UI
    if (lowest >= highest)
        return std::nullopt;
    const std::size_t strongest = StrongestBin(power, lowest, highest);
    const double background = std::accumulate(power.begin() + static_cast<std::ptrdiff_t>(lowest),
                                              power.begin() + static_cast<std::ptrdiff_t>(highest), 0.0) /
                              static_cast<double>(highest - lowest);
    const double noise = background * std::log(static_cast<double>(length));
    if (!(power[strongest] > kLineOverNoise * noise))
        return std::nullopt;
    // Short edges leave lines at all multiples of the symbol rate: the clock is the lowest that is nearly as strong.
    std::size_t clock = strongest;
    for (std::size_t divisor = 2; strongest / divisor >= lowest; ++divisor) {
        const std::size_t middle = strongest / divisor;
        const std::size_t candidate = StrongestBin(power, middle - kLineReach, middle + kLineReach + 1);
        if (power[candidate] > kMultipleShare * power[strongest])
            clock = candidate;
    }
    double samplesPerUi = static_cast<double>(length) / LinePosition(power, clock);
    // A whole number that the record cannot tell from the value found is what was meant.
    const double resolution = samplesPerUi * samplesPerUi / static_cast<double>(samples.size());
    if (std::abs(samplesPerUi - std::round(samplesPerUi)) < resolution)
        samplesPerUi = std::round(samplesPerUi);
    return Estimate{samplesPerUi,
                    power[clock] > kCertainLineOverNoise * noise ? Confidence::Certain : Confidence::Likely};
}

std::optional<Estimate> FindPeriod(std::span<const double> samples, double samplesPerUi)
{
    samples = Head(samples);
    if (samples.size() < kShortestAnalysed)
        return std::nullopt;
    const double mean = std::accumulate(samples.begin(), samples.end(), 0.0) / static_cast<double>(samples.size());
    std::vector<double> centred(samples.begin(), samples.end());
    for (double& value : centred)
        value -= mean;
    const std::size_t length = std::bit_ceil(2 * centred.size());
    const Power power = PowerSpectrum(centred, length);
    std::vector<Complex> autocorrelation(power.begin(), power.end());
    Maths::InverseTransform(autocorrelation, Maths::Scaling::ByLength);
    // Divided by the energies of the two stretches that a lag lays over each other.
    std::vector<double> energy(centred.size() + 1, 0.0);
    for (std::size_t k = 0; k < centred.size(); ++k)
        energy[k + 1] = energy[k] + centred[k] * centred[k];
    const auto correlation = [&](std::size_t lag) {
        const double both = energy[centred.size() - lag] * (energy.back() - energy[lag]);
        return both > 0.0 ? autocorrelation[lag].real() / std::sqrt(both) : 0.0;
    };
    const double shortest = samplesPerUi > 0.0 ? kShortestPeriodUi * samplesPerUi : kShortestPeriod;
    const std::size_t first = std::max<std::size_t>(static_cast<std::size_t>(shortest) + 1, 2);
    const std::size_t end = std::min(centred.size() / 2 + kMissingSamples, centred.size());
    double best = 0.0;
    for (std::size_t lag = first; lag < end; ++lag)
        best = std::max(best, correlation(lag));
    if (best < kLikelyCorrelation)
        return std::nullopt;
    std::size_t period = first;
    while (correlation(period) < best - kCorrelationSpread)
        ++period;
    while (correlation(period + 1) > correlation(period))
        ++period;
    return Estimate{static_cast<double>(period), best > kCertainCorrelation ? Confidence::Certain : Confidence::Likely};
}

int FindPatternLengthUi(std::span<const double> samples, double samplesPerUi)
{
    const auto period = FindPeriod(samples, samplesPerUi);
    const double length = (period ? period->value : static_cast<double>(samples.size())) / samplesPerUi;
    const double whole = std::round(length);
    return std::abs(length - whole) * samplesPerUi < 0.5 ? static_cast<int>(whole) : 0;
}

std::vector<double> FindLevels(std::span<const double> samples, double samplesPerUi)
{
    std::vector<double> best;
    double bestOpening = kLeastOpening;
    for (int count = 2; count <= 4; ++count) {
        const EyeReport report = MeasureEyes(samples, samplesPerUi, count);
        if (report.eyes.empty())
            continue;
        double opening = 1.0;  // as far open as the levels lie apart
        for (const EyeOpening& eye : report.eyes)
            opening = std::min(opening, eye.openingPercent / 100.0);
        if (opening > bestOpening) {
            bestOpening = opening;
            best = report.levels;
        }
    }
    return best;
}

std::optional<E_SIGNAL_CODING> FindCoding(std::span<const double> samples, double samplesPerUi)
{
    switch (FindLevels(samples, samplesPerUi).size()) {
        case 2: return SIGNAL_CODING_NRZ;
        case 3: return SIGNAL_CODING_PAM3;
        case 4: return SIGNAL_CODING_PAM4;
        default: return std::nullopt;
    }
}

CaptureContent FindContent(const Waveform& capture)
{
    CaptureContent content;
    content.sampleCount = capture.samples.size();
    content.interval = capture.interval;
    content.statistics = StatisticsOf(capture.samples);
    content.samplesPerUi = FindSamplesPerUi(capture.samples);
    const double samplesPerUi = content.samplesPerUi ? content.samplesPerUi->value : 0.0;
    content.period = FindPeriod(capture.samples, samplesPerUi);
    if (content.samplesPerUi) {
        content.levels = FindLevels(capture.samples, samplesPerUi);
        if (capture.interval > 0.0)
            content.symbolRateGBd = 1e-9 / (capture.interval * samplesPerUi);
    }
    return content;
}

}  // namespace Tarnwick::DSO::Workbench
