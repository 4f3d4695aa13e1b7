#include "maths/responses/besselthomson.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "maths/responses/rounding.h"
#include "maths/transforms/spectrum.h"

namespace Tarnwick::DSO::Maths {

int WrappingFactorial(int n)
{
    if (n < 0)
        return -1;
    std::uint32_t product = 1;  // unsigned, because signed overflow would be undefined
    for (int factor = 2; factor <= n; ++factor)
        product *= static_cast<std::uint32_t>(factor);
    return static_cast<std::int32_t>(product);
}

double BesselCoefficient(int order, int k)
{
    return WrappingFactorial(2 * order - k) /
           (WrappingFactorial(k) * std::pow(2.0, order - k) * WrappingFactorial(order - k));
}

BesselResponse::BesselResponse(int order)
{
    double sign = 1.0;  // j^0, j^1, j^2, ..: 1, j, -1, -j, ..
    for (int k = 0; k <= order; ++k) {
        (k % 2 == 0 ? even_ : odd_).push_back(sign * BesselCoefficient(order, k));
        if (k % 2 == 1)
            sign = -sign;
    }
}

void BesselResponse::Denominator(double x, double& real, double& imag) const
{
    const double square = x * x;
    real = 0.0;
    for (auto a = even_.rbegin(); a != even_.rend(); ++a)
        real = real * square + *a;
    imag = 0.0;
    for (auto a = odd_.rbegin(); a != odd_.rend(); ++a)
        imag = imag * square + *a;
    imag *= x;
}

std::complex<double> BesselResponse::At(double x) const
{
    if (x == 0.0)
        return 1.0;  // the quotient of a_0 by itself may miss it by a rounding
    double real = 0.0;
    double imag = 0.0;
    Denominator(x, real, imag);
    const double scale = even_.front() / (real * real + imag * imag);
    return {real * scale, -imag * scale};
}

double BesselResponse::MagnitudeAt(double x) const
{
    double real = 0.0;
    double imag = 0.0;
    Denominator(x, real, imag);
    return std::abs(even_.front()) / std::sqrt(real * real + imag * imag);
}

namespace {

double WalkToCutoff(int order, double target)
{
    if (RoundedToDecimals(std::abs(0.0 - target), 5) == 0.0)
        return 2.0;
    const BesselResponse response(order);
    double w = 2.0;
    double magnitude = 0.0;
    do {
        w *= magnitude > target ? 1.5 : 0.5;
        magnitude = response.MagnitudeAt(w);
    } while (!(RoundedToDecimals(std::abs(magnitude - target), 5) == 0.0));  // true for NaN: go on
    return w;
}

}  // namespace

double DefaultCutoff(int order, bool halfAmplitude)
{
    // Two threads that ask for the same cutoff at once both walk, and store the same value.
    static std::array<std::atomic<double>, 2 * (static_cast<std::size_t>(kHighestOrder) + 1)> cutoffs{};
    std::atomic<double>& slot = cutoffs.at(2 * static_cast<std::size_t>(order) + (halfAmplitude ? 1 : 0));
    double cutoff = slot.load(std::memory_order_relaxed);
    if (cutoff == 0.0) {
        cutoff = WalkToCutoff(order, halfAmplitude ? 0.5 : 1.0 / std::numbers::sqrt2);
        slot.store(cutoff, std::memory_order_relaxed);
    }
    return cutoff;
}

std::vector<std::complex<double>> SampledBesselThomson(int order, double normalisedCutoff, double cutoff,
                                                       double sampleRate, std::size_t length)
{
    std::vector<std::complex<double>> bins(length);
    const BesselResponse response(order);
    const double step = sampleRate / static_cast<double>(length);
    const double scale = 2.0 * std::numbers::pi * normalisedCutoff / (2.0 * std::numbers::pi * cutoff);
    // The frequency is a running sum, and its rounding to whole hertz decides which bin is the last.
    double frequency = 0.0;
    for (std::size_t k = 0; k < length && std::round(frequency) <= sampleRate / 2.0; ++k) {
        bins[k] = response.At(frequency * scale);
        frequency += step;
    }
    for (std::size_t k = 1; k < (length + 1) / 2; ++k)
        bins[length - k] = std::conj(bins[k]);
    return bins;
}

std::complex<double> FourthOrderPolynomial(std::complex<double> s)
{
    const std::complex<double> square = s * s;
    return square * square + 10.0 * square * s + 45.0 * square + 105.0 * s + 105.0;
}

std::complex<double> FourthOrderResponse(double x)
{
    return 105.0 / FourthOrderPolynomial({0.0, 2.0 * std::numbers::pi * x});
}

std::vector<std::complex<double>> FourthOrderResponses(std::span<const double> frequencies, double cutoff)
{
    std::vector<std::complex<double>> response(frequencies.size());
    std::transform(frequencies.begin(), frequencies.end(), response.begin(),
                   [cutoff](double frequency) { return FourthOrderResponse(frequency * kFourthOrderCutoff / cutoff); });
    return response;
}

std::vector<double> FourthOrderTaps(std::span<const double> frequencies, double cutoff)
{
    HermitianBins bins(frequencies.size());
    if (!frequencies.empty()) {
        const auto half = FourthOrderResponses(frequencies.first(frequencies.size() / 2 + 1), cutoff);
        for (std::size_t k = 0; k < half.size(); ++k)
            bins.Set(k, half[k]);
    }
    return bins.Inverse();
}

}  // namespace Tarnwick::DSO::Maths
