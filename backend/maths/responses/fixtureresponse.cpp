#include "maths/responses/fixtureresponse.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <span>

#include "maths/responses/interpolation.h"

namespace Tarnwick::DSO::Maths {

using Complex = std::complex<double>;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kRadiansPerTurn = 2.0 * kPi;
constexpr std::size_t kSlopePoints = 11;  // lowest ones, whose phase gives the delay towards 0 Hz
constexpr double kSkinEffectSpan = 4.0;   // frequency of the second point of the loss over the first
constexpr double kLargestRise =
    std::numbers::ln10 / 20.0;       // [Np] 1 dB, of the magnitude from the first frequency to 0 Hz
constexpr double kTaperWidth = 0.2;  // of the bandwidth, to each side of it

double InterpolatedAt(std::span<const double> x, std::span<const double> y, double point)
{
    double value = 0.0;
    InterpolateLinear(x, y, {&point, 1}, {&value, 1});
    return value;
}

// Least squares over the first points.
double SlopeOf(std::span<const double> x, std::span<const double> y)
{
    const auto count = static_cast<double>(x.size());
    double meanX = 0.0;
    double meanY = 0.0;
    for (std::size_t k = 0; k < x.size(); ++k) {
        meanX += x[k] / count;
        meanY += y[k] / count;
    }
    double square = 0.0;
    double product = 0.0;
    for (std::size_t k = 0; k < x.size(); ++k) {
        square += (x[k] - meanX) * (x[k] - meanX);
        product += (x[k] - meanX) * (y[k] - meanY);
    }
    return product / square;
}

double NearestMultipleOfPi(double phase)
{
    return kPi * std::round(phase / kPi);
}

double Taper(double frequency, double bandwidth)
{
    const double passed = (frequency / bandwidth - (1.0 - kTaperWidth)) / (2.0 * kTaperWidth);
    return 0.5 + 0.5 * std::cos(kPi * std::clamp(passed, 0.0, 1.0));
}

}  // namespace

FixtureResponse::FixtureResponse(const std::map<double, Complex>& data)
{
    double turns = 0.0;  // added by unwrapping
    double previous = 0.0;
    for (const auto& [frequency, value] : data) {
        const double magnitude = std::abs(value);
        // A value of zero has no phase.
        const double wrapped = magnitude > 0.0 ? std::arg(value) : previous;
        if (!frequencies_.empty())
            turns -= std::round((wrapped - previous) / kRadiansPerTurn);
        previous = wrapped;
        frequencies_.push_back(frequency);
        magnitudes_.push_back(magnitude);
        phases_.push_back(wrapped + turns * kRadiansPerTurn);
    }
    strongest_ = *std::max_element(magnitudes_.begin(), magnitudes_.end());
    if (frequencies_.front() > 0.0)
        ExtendToDc();
    phases_.front() = NearestMultipleOfPi(phases_.front());
    // Without whole turns: 0 at 0 Hz, or pi where the fixture inverts. The quarter keeps rounding from deciding.
    const double surplus = kRadiansPerTurn * std::floor(phases_.front() / kRadiansPerTurn + 0.25);
    for (double& phase : phases_)
        phase -= surplus;
}

void FixtureResponse::ExtendToDc()
{
    firstMeasured_ = frequencies_.front();
    const std::size_t points = std::min(frequencies_.size(), kSlopePoints);
    const double slope = SlopeOf(std::span(frequencies_).first(points), std::span(phases_).first(points));
    const double atDc = NearestMultipleOfPi(phases_.front() - slope * firstMeasured_);

    // Skin-effect loss, a + b sqrt(f) in dB, through the first point and the one nearest to two octaves above it.
    const auto second = std::min_element(frequencies_.begin() + 1, frequencies_.end(), [this](double a, double b) {
        const double wanted = kSkinEffectSpan * firstMeasured_;
        return std::abs(a - wanted) < std::abs(b - wanted);
    });
    const double loss =
        std::log(magnitudes_.front() / magnitudes_[static_cast<std::size_t>(second - frequencies_.begin())]);
    const double rise = loss / (std::sqrt(*second / firstMeasured_) - 1.0);
    rise_ = std::isnan(rise) ? 0.0 : std::clamp(rise, -kLargestRise, kLargestRise);

    frequencies_.insert(frequencies_.begin(), 0.0);
    magnitudes_.insert(magnitudes_.begin(), magnitudes_.front() * std::exp(rise_));
    phases_.insert(phases_.begin(), atDc);
}

FixtureResponse::Polar FixtureResponse::At(double frequency) const
{
    const double phase = InterpolatedAt(frequencies_, phases_, frequency);
    if (frequency < firstMeasured_)
        return {magnitudes_[1] * std::exp(rise_ * (1.0 - std::sqrt(frequency / firstMeasured_))), phase};
    return {InterpolatedAt(frequencies_, magnitudes_, frequency), phase};
}

HermitianBins FixtureSpectrum(const FixtureResponse& fixture, FixtureUse use, const FixtureLimits& limits,
                              double sampleRate, std::size_t count)
{
    const double highest = std::min(fixture.LastFrequency(), sampleRate / 2.0);
    const double widest = highest / (1.0 + kTaperWidth);
    const double bandwidth = limits.bandwidth > 0.0 ? std::min(limits.bandwidth, widest) : widest;
    const double largestGain = std::pow(10.0, limits.boostDb / 20.0) / fixture.Strongest();
    const auto at = [&](double frequency) {
        const auto [magnitude, phase] = fixture.At(frequency);
        const double taper = Taper(frequency, bandwidth);
        return use == FixtureUse::Remove ? std::polar(taper * std::min(1.0 / magnitude, largestGain), -phase)
                                         : std::polar(taper * magnitude, phase);
    };

    HermitianBins bins(count);
    const double spacing = sampleRate / static_cast<double>(count);
    for (std::size_t k = 0; k <= count / 2 && k < count; ++k) {
        const double frequency = static_cast<double>(k) * spacing;
        const bool isPassed = frequency <= highest && frequency < bandwidth * (1.0 + kTaperWidth);
        const Complex value = isPassed ? at(frequency) : 0.0;
        const bool isReal = k == 0 || 2 * k == count;
        bins.Set(k, isReal ? value.real() : value);
    }
    return bins;
}

}  // namespace Tarnwick::DSO::Maths
