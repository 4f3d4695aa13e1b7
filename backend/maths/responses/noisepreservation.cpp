#include "maths/responses/noisepreservation.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace Tarnwick::DSO::Maths {

namespace {

// White noise of variance 1 leaves a response with the mean of |H|^2 over all bins as its variance. The weights fold the
// mirrored half onto bins 0 .. h.
struct FoldedBins {
    std::vector<double> magnitude;
    std::vector<double> weight;
};

FoldedBins Fold(std::span<const Complex> response)
{
    const std::size_t half = response.size() / 2;
    FoldedBins bins{std::vector<double>(half + 1), std::vector<double>(half + 1, 2.0)};
    bins.weight.front() = 1.0;
    if (response.size() % 2 == 0)
        bins.weight.back() = 1.0;
    for (std::size_t k = 0; k <= half; ++k)
        bins.magnitude[k] = std::abs(response[k]);
    return bins;
}

bool IsUsable(std::span<const Complex> response, std::span<const double> frequencies, double corner, double upper)
{
    const auto finite = [](Complex value) { return std::isfinite(value.real()) && std::isfinite(value.imag()); };
    if (response.size() < 3 || !std::isfinite(corner) || !std::isfinite(upper) || !(corner > 0.0) || !(upper > corner))
        return false;
    if (!std::all_of(response.begin(), response.end(), finite))
        return false;
    for (std::size_t k = 0; k < frequencies.size(); ++k)
        if (!std::isfinite(frequencies[k]) || (k > 0 && !(frequencies[k] > frequencies[k - 1])))
            return false;
    return corner < frequencies.back();
}

// The raised-cosine ramp from the corner to one octave above it, or to where band or grid end.
double Ramp(double frequency, double corner, double end)
{
    const double x = std::clamp((frequency - corner) / (end - corner), 0.0, 1.0);
    return 0.5 - 0.5 * std::cos(std::numbers::pi * x);
}

}  // namespace

bool PreserveNoise(std::span<Complex> response, std::span<const double> frequencies, double corner, double upper)
{
    const std::size_t count = response.size();
    const std::size_t half = count / 2;
    frequencies = frequencies.first(std::min(frequencies.size(), half + 1));
    if (frequencies.size() != half + 1 || !IsUsable(response, frequencies, corner, upper))
        return false;

    const FoldedBins bins = Fold(response);
    const double end = std::min({2.0 * corner, upper, frequencies.back()});
    double inBandPower = 0.0;
    double inBandWeight = 0.0;
    double abovePower = 0.0;
    // The out-of-band power is a quadratic in the level g that the ramp leads to: a g^2 + b g + c.
    double a = 0.0;
    double b = 0.0;
    double c = 0.0;
    for (std::size_t k = 0; k <= half; ++k) {
        const double weight = bins.weight[k];
        const double magnitude = bins.magnitude[k];
        if (frequencies[k] <= corner) {
            inBandPower += weight * magnitude * magnitude;
            inBandWeight += weight;
        } else if (frequencies[k] <= upper) {
            const double ramp = Ramp(frequencies[k], corner, end);
            const double unlifted = magnitude * (1.0 - ramp);
            a += weight * ramp * ramp;
            b += 2.0 * weight * unlifted * ramp;
            c += weight * unlifted * unlifted;
        } else {
            abovePower += weight * magnitude * magnitude;
        }
    }
    if (a == 0.0 || inBandWeight == 0.0)
        return false;
    c += inBandPower + abovePower - static_cast<double>(count) * inBandPower / inBandWeight;
    if (c > 0.0)
        return false;
    const double level = (-b + std::sqrt(b * b - 4.0 * a * c)) / (2.0 * a);
    if (!std::isfinite(level))
        return false;

    // Where the response is practically zero it has no phase of its own: there the phase goes on in a straight line.
    constexpr double kZeroShare = 1e-9;  // of the largest magnitude
    const double floor = kZeroShare * *std::max_element(bins.magnitude.begin(), bins.magnitude.end());
    Complex before(1.0, 0.0);
    Complex last(1.0, 0.0);
    for (std::size_t k = 0; k <= half; ++k) {
        Complex direction = last * last * std::conj(before);
        if (bins.magnitude[k] >= floor && bins.magnitude[k] > 0.0)
            direction = response[k];
        direction /= std::abs(direction);
        before = last;
        last = direction;
        if (frequencies[k] <= corner || frequencies[k] > upper)
            continue;
        const double ramp = Ramp(frequencies[k], corner, end);
        const double lifted = bins.magnitude[k] * (1.0 - ramp) + level * ramp;
        if (2 * k == count) {
            response[k] = direction.real() < 0.0 ? -lifted : lifted;
        } else {
            response[k] = lifted * direction;
            response[count - k] = std::conj(response[k]);
        }
    }
    return true;
}

bool PreserveNoiseOnGrid(std::span<Complex> response, double spacing, double corner, double upper)
{
    std::vector<double> frequencies(response.size() / 2 + 1);
    for (std::size_t k = 0; k < frequencies.size(); ++k)
        frequencies[k] = static_cast<double>(k) * spacing;
    return PreserveNoise(response, frequencies, corner, upper);
}

}  // namespace Tarnwick::DSO::Maths
