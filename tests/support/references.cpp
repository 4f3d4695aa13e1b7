#include "support/references.h"

#include <cfloat>
#include <cmath>
#include <numbers>
#include <numeric>

namespace Tarnwick::Testing {

namespace {

std::complex<long double> Turn(std::size_t step, std::size_t count, bool forward)
{
    const long double angle = 2.0L * std::numbers::pi_v<long double> * static_cast<long double>(step % count) /
                              static_cast<long double>(count);
    return {std::cos(angle), forward ? -std::sin(angle) : std::sin(angle)};
}

Complex Narrowed(std::complex<long double> value)
{
    return {static_cast<double>(value.real()), static_cast<double>(value.imag())};
}

}  // namespace

double DirectConvolutionAt(std::span<const double> samples, std::span<const double> taps, std::size_t k)
{
    const std::size_t n = samples.size();
    long double sum = 0.0L;
    for (std::size_t lag = 0; lag < taps.size(); ++lag)
        sum += static_cast<long double>(samples[(k + n - lag % n) % n]) * taps[lag];
    return static_cast<double>(sum);
}

std::vector<double> DirectConvolution(std::span<const double> samples, std::span<const double> taps)
{
    std::vector<double> result(samples.size());
    for (std::size_t k = 0; k < result.size(); ++k)
        result[k] = DirectConvolutionAt(samples, taps, k);
    return result;
}

std::vector<Complex> DirectDft(std::span<const Complex> values, bool forward)
{
    const std::size_t count = values.size();
    std::vector<std::complex<long double>> turns(count);
    for (std::size_t step = 0; step < count; ++step)
        turns[step] = Turn(step, count, forward);
    std::vector<Complex> result(count);
    for (std::size_t k = 0; k < count; ++k) {
        std::complex<long double> sum;
        for (std::size_t n = 0; n < count; ++n)
            sum += std::complex<long double>(values[n].real(), values[n].imag()) * turns[k * n % count];
        result[k] = Narrowed(sum);
    }
    return result;
}

double TransformBound(std::span<const Complex> values)
{
    double energy = 0.0;
    for (const Complex value : values)
        energy += std::norm(value);
    return 8.0 * DBL_EPSILON * std::log2(2.0 * static_cast<double>(values.size())) * std::sqrt(energy);
}

Complex DirectDftAt(std::span<const double> values, std::size_t k)
{
    std::complex<long double> sum;
    for (std::size_t n = 0; n < values.size(); ++n)
        sum += static_cast<long double>(values[n]) * Turn(k * n, values.size(), true);
    return Narrowed(sum);
}

Complex ReverseBessel(int order, Complex s)
{
    Complex before(1.0, 0.0);
    Complex last = order == 0 ? before : s + 1.0;
    for (int n = 2; n <= order; ++n) {
        const Complex next = (2.0 * n - 1.0) * last + s * s * before;
        before = last;
        last = next;
    }
    return last;
}

Complex BesselThomsonAt(int order, double w)
{
    return ReverseBessel(order, 0.0) / ReverseBessel(order, {0.0, w});
}

double NoiseRms(std::span<const Complex> response)
{
    const double power = std::accumulate(response.begin(), response.end(), 0.0,
                                         [](double sum, Complex bin) { return sum + std::norm(bin); });
    return std::sqrt(power / static_cast<double>(response.size()));
}

}  // namespace Tarnwick::Testing
