#include "maths/responses/gaussian.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

namespace {

// The inverse transform of the bins times H; the bins are overwritten.
std::vector<double> LowPassed(AlignedBuffer<Complex>& bins, std::size_t count, double sampleRate, double bandwidth)
{
    const auto length = static_cast<double>(count);
    for (std::size_t k = 0; k < count; ++k) {
        const double frequency = static_cast<double>(std::min(k, count - k)) * sampleRate / length;
        bins.Data()[k] *= GaussianResponse(frequency, bandwidth) / length;
    }
    ComplexTransform::Of(count)->Inverse(bins.Data());
    std::vector<double> values(count);
    std::transform(bins.Data(), bins.Data() + count, values.begin(), [](Complex value) { return value.real(); });
    return values;
}

}  // namespace

double GaussianResponse(double frequency, double bandwidth)
{
    const double ratio = frequency / bandwidth;
    return std::exp(-0.5 * std::numbers::ln2 * ratio * ratio);
}

double GaussianBandwidth(double droopDb, double frequency)
{
    const double halfPowerDb = 10.0 * std::log10(2.0);
    return frequency * std::sqrt(halfPowerDb / droopDb);
}

std::vector<double> GaussianTaps(std::size_t length, double sampleRate, double bandwidth)
{
    AlignedBuffer<Complex> bins(length);
    std::fill(bins.Data(), bins.Data() + length, Complex(1.0));
    return LowPassed(bins, length, sampleRate, bandwidth);
}

std::vector<double> GaussianLowPass(std::span<const double> samples, double sampleRate, double bandwidth)
{
    AlignedBuffer<Complex> bins(samples.size());
    std::copy(samples.begin(), samples.end(), bins.Data());
    ComplexTransform::Of(samples.size())->Forward(bins.Data());
    return LowPassed(bins, samples.size(), sampleRate, bandwidth);
}

}  // namespace Tarnwick::DSO::Maths
