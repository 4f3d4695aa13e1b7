#include "maths/responses/channelcorrection.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <numeric>

#include "maths/convolution/circularconvolver.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/responses/besselthomson.h"
#include "maths/responses/gaussian.h"
#include "maths/responses/interpolation.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

using Complex = std::complex<double>;

namespace {

constexpr double kShortestInterval = 1e-15;  // [s] a smaller value is not a sample interval
constexpr double kLongestInterval = 1e-9;    // [s] nor is a larger one
constexpr std::size_t kDensity = 8;          // interpolated points in time for each point of the grid

// Bins 0 .. n/2 of an even number of values.
std::vector<Complex> Spectrum(std::span<const double> values)
{
    AlignedBuffer<double> time(values.size());
    AlignedBuffer<Complex> bins(values.size() / 2 + 1);
    std::copy(values.begin(), values.end(), time.Data());
    RealTransform::Of(values.size())->Forward(time.Data(), bins.Data());
    return {bins.Data(), bins.Data() + values.size() / 2 + 1};
}

// An even number of values from their lower bins; bins that are not given are zero.
std::vector<double> Inverse(std::span<const Complex> bins, std::size_t length)
{
    AlignedBuffer<Complex> padded(length / 2 + 1);
    AlignedBuffer<double> time(length);
    std::fill(std::copy(bins.begin(), bins.end(), padded.Data()), padded.Data() + length / 2 + 1, Complex());
    RealTransform::Of(length)->Inverse(padded.Data(), time.Data());
    return {time.Data(), time.Data() + length};
}

std::vector<double> Interpolated(std::span<const double> x, std::span<const double> y, std::span<const double> points)
{
    std::vector<double> result(points.size());
    InterpolateLinear(x, y, points, result);
    return result;
}

double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

Complex RetargetingRatio(double frequency, double from, double to)
{
    const double x = 2.0 * std::numbers::pi * frequency * kFourthOrderCutoff;
    const Complex numerator = FourthOrderPolynomial({0.0, x / from});
    const Complex denominator = FourthOrderPolynomial({0.0, x / to});
    // A complex division leaves a rounding error even between equals.
    return numerator == denominator ? 1.0 : numerator / denominator;
}

std::vector<double> AlignedImpulseResponse(std::span<const double> signal, std::span<const double> kernel,
                                           std::size_t baselineCount)
{
    std::vector<double> response(signal.size());
    ConvolutionWork work;
    CircularConvolver(kernel, signal.size()).Convolve(signal, response, work);

    const auto largest = std::max_element(response.begin(), response.end());
    const auto smallest = std::min_element(response.begin(), response.end());
    const auto peak = std::abs(*largest) > std::abs(*smallest) ? largest : smallest;
    const double sign = *peak > 0.0 ? 1.0 : *peak < 0.0 ? -1.0 : 0.0;
    for (double& value : response)
        value *= sign;

    const std::ptrdiff_t goal = static_cast<std::ptrdiff_t>(kernel.size() / 2) - 1;
    const std::size_t left = WrappedIndex(peak - response.begin() - goal, response.size());
    std::rotate(response.begin(), response.begin() + static_cast<std::ptrdiff_t>(left), response.end());

    if (baselineCount > 0) {
        const double sum =
            std::accumulate(response.begin(), response.begin() + static_cast<std::ptrdiff_t>(baselineCount), 0.0);
        const double baseline = sum / static_cast<double>(baselineCount);
        for (double& value : response)
            value -= baseline;
    }
    const double total = std::accumulate(response.begin(), response.end(), 0.0);
    for (double& value : response)
        value /= total;
    return response;
}

std::optional<MeasuredResponse> ReadTable(std::span<const double> table)
{
    const bool hasInterval = table.size() % 2 == 1;
    const std::span<const double> values = table.subspan(hasInterval ? 1 : 0);
    if (hasInterval && !(table.front() > kShortestInterval && table.front() < kLongestInterval))
        return std::nullopt;
    if (!std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); }))
        return std::nullopt;
    if (!values.empty() && std::equal(values.begin() + 1, values.end(), values.begin()))
        return std::nullopt;
    return MeasuredResponse{values, hasInterval ? table.front() : 0.0};
}

std::vector<double> OnGrid(const MeasuredResponse& response, const CorrectionGrid& grid)
{
    const std::span<const double> values = response.values;
    const double offset = Median({values.begin(), values.end()});
    const auto deviation = [offset](double value) { return std::abs(value - offset); };
    const auto peak =
        std::max_element(values.begin(), values.end(), [&](double a, double b) { return deviation(a) < deviation(b); });

    const double interval =
        response.interval > 0.0 ? response.interval : grid.Window() / static_cast<double>(values.size());
    // One interval after its end the table has its first value again, which also continues it on both sides.
    std::vector<double> times(values.size() + 1);
    for (std::size_t k = 0; k < times.size(); ++k)
        times[k] = static_cast<double>(k) * interval;
    std::vector<double> heights(values.begin(), values.end());
    heights.push_back(values.front());

    const double halfGrid = grid.Window() / 2.0;
    const double excess = times.back() - grid.Window();
    const bool isLonger = excess > 0.5 * std::min(interval, grid.step);
    const double start = isLonger ? times[static_cast<std::size_t>(peak - values.begin())] - halfGrid : 0.0;
    std::vector<double> points(grid.length);
    for (std::size_t k = 0; k < points.size(); ++k)
        points[k] = std::clamp(start + static_cast<double>(k) * grid.step, 0.0, times.back());
    std::vector<double> gridded = Interpolated(times, heights, points);
    const double scale = deviation(*peak);
    for (double& value : gridded)
        value = (value - offset) / scale;
    return gridded;
}

std::vector<double> BesselThomsonImpulse(double cutoff, const CorrectionGrid& grid)
{
    std::vector<Complex> bins(grid.length / 2 + 1);
    for (std::size_t k = 0; k < bins.size(); ++k)
        bins[k] = FourthOrderResponse(grid.Frequency(k) * kFourthOrderCutoff / cutoff);
    bins.back() = bins.back().real();
    std::vector<double> impulse = Inverse(bins, grid.length);
    for (double& value : impulse)
        value /= static_cast<double>(grid.length);
    return impulse;
}

std::vector<Complex> ChannelQuotient(std::span<const double> channel, std::span<const double> reference,
                                     std::span<const double> smoothing, const CorrectionSettings& settings)
{
    const std::vector<Complex> channelBins = Spectrum(channel);
    const std::vector<Complex> referenceBins = Spectrum(reference);
    const std::vector<Complex> smoothingBins = Spectrum(smoothing);
    std::vector<double> bins;
    std::vector<double> real;
    std::vector<double> imaginary;
    for (std::size_t k = 0; k < channelBins.size() && settings.grid.Frequency(k) <= settings.end; ++k) {
        if (!(std::abs(channelBins[k]) >= settings.smallestShare * std::abs(smoothingBins[k])))
            continue;
        const Complex quotient = referenceBins[k] / channelBins[k];
        bins.push_back(static_cast<double>(k));
        real.push_back(quotient.real());
        imaginary.push_back(quotient.imag());
    }
    std::vector<Complex> result(channelBins.size(), Complex(1.0));
    if (bins.empty())
        return result;
    std::vector<double> points(result.size());
    for (std::size_t k = 0; k < points.size(); ++k)
        points[k] = std::clamp(static_cast<double>(k), bins.front(), bins.back());
    const std::vector<double> allReal = Interpolated(bins, real, points);
    const std::vector<double> allImaginary = Interpolated(bins, imaginary, points);
    for (std::size_t k = 0; k < result.size(); ++k) {
        const Complex quotient(allReal[k], allImaginary[k]);
        const double gain = std::abs(quotient);
        result[k] = gain > settings.largestGain ? quotient * (settings.largestGain / gain) : quotient;
    }
    return result;
}

CorrectionTaper TaperOf(const CorrectionSettings& settings, double sampleInterval)
{
    constexpr double kShareBeforeTaper = 0.8;  // of half the sample rate
    const double highest = 0.5 / sampleInterval;
    if (settings.end <= highest)
        return {settings.channelBandwidth, settings.end};
    return {std::min(settings.channelBandwidth, kShareBeforeTaper * highest), highest};
}

std::vector<Complex> CorrectionSpectrum(std::span<const Complex> quotient, const CorrectionSettings& settings,
                                        const CorrectionTaper& taper)
{
    std::vector<Complex> spectrum(quotient.size());
    // The highest bin stays zero: it has no conjugate partner.
    for (std::size_t k = 0; k + 1 < spectrum.size() && settings.grid.Frequency(k) < taper.end; ++k) {
        const double frequency = settings.grid.Frequency(k);
        const double beyond = std::max(0.0, frequency - taper.start);
        const double share =
            beyond > 0.0 ? 0.5 + 0.5 * std::cos(std::numbers::pi * beyond / (taper.end - taper.start)) : 1.0;
        spectrum[k] = quotient[k] * share * RetargetingRatio(frequency, settings.channelBandwidth, settings.cutoff);
    }
    return spectrum;
}

std::vector<double> SampledCorrection(std::span<const Complex> spectrum, const CorrectionGrid& grid,
                                      double sampleInterval, std::size_t taps)
{
    const std::size_t dense = kDensity * grid.length;
    std::vector<double> heights = Inverse(spectrum, dense);
    const auto half = static_cast<std::ptrdiff_t>(dense / 2);
    std::rotate(heights.begin(), heights.begin() + half, heights.end());
    heights.push_back(heights.front());
    std::vector<double> times(heights.size());
    const double step = grid.step / static_cast<double>(kDensity);
    for (std::size_t k = 0; k < times.size(); ++k)
        times[k] = static_cast<double>(static_cast<std::ptrdiff_t>(k) - half) * step;

    const auto reach = static_cast<std::ptrdiff_t>(std::floor(times.back() / sampleInterval));
    std::vector<double> points;
    for (std::ptrdiff_t lag = -reach; lag <= reach; ++lag)
        points.push_back(std::clamp(static_cast<double>(lag) * sampleInterval, times.front(), times.back()));
    const std::vector<double> values = Interpolated(times, heights, points);
    std::vector<double> kernel(taps, 0.0);
    for (std::ptrdiff_t lag = -reach; lag <= reach; ++lag)
        kernel[WrappedIndex(lag, taps)] += values[static_cast<std::size_t>(lag + reach)];
    const double total = std::accumulate(kernel.begin(), kernel.end(), 0.0);
    for (double& tap : kernel)
        tap /= total;
    return kernel;
}

std::vector<double> CorrectionTaps(const MeasuredResponse& channel, const MeasuredResponse& reference,
                                   const CorrectionSettings& settings, double sampleInterval, std::size_t taps)
{
    const CorrectionGrid& grid = settings.grid;
    std::vector<Complex> quotient(grid.length / 2 + 1, Complex(1.0));
    if (!channel.values.empty()) {
        const std::vector<double> smoothing = GaussianTaps(grid.length, 1.0 / grid.step, settings.smoothingBandwidth);
        const auto aligned = [&](const std::vector<double>& response) {
            return AlignedImpulseResponse(response, smoothing, settings.baselineCount);
        };
        quotient =
            ChannelQuotient(aligned(OnGrid(channel, grid)),
                            aligned(reference.values.empty() ? BesselThomsonImpulse(settings.channelBandwidth, grid)
                                                             : OnGrid(reference, grid)),
                            smoothing, settings);
    }
    const std::vector<Complex> spectrum = CorrectionSpectrum(quotient, settings, TaperOf(settings, sampleInterval));
    return SampledCorrection(spectrum, grid, sampleInterval, taps);
}

}  // namespace Tarnwick::DSO::Maths
