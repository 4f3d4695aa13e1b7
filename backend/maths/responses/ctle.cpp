#include "maths/responses/ctle.h"

#include <algorithm>
#include <cmath>

#include "maths/responses/besselthomson.h"
#include "maths/responses/rounding.h"

namespace Tarnwick::DSO::Maths {

using Complex = std::complex<double>;

namespace {

constexpr int kDecimals = 5;              // to which gains and brackets are compared
constexpr double kPoleSpacing = 40.0;     // the poles lie this part of the symbol rate from half of it
constexpr double kNearOne = 1e-4;         // farther from 1 than this, rounding to five decimals never gives 1
constexpr int kLongestWalk = 10'000'000;  // sixty times the longest walk seen between 0 and 12 dB

double Rounded(double value)
{
    return RoundedToDecimals(value, kDecimals);
}

std::optional<PeakingDesign> Design(double symbolRate, double gain)
{
    const double middle = symbolRate / 2.0;
    PeakingDesign design{Rounded(gain)};
    design.pole1 = kTwoPi * (middle - symbolRate / kPoleSpacing);
    design.pole2 = kTwoPi * (middle + symbolRate / kPoleSpacing);

    double low = 0.0;
    double high = design.pole1;
    for (double z = design.pole1 / 2.0;;) {
        design.zero = z;
        const TwoPoleResponse response = design.Response();
        const double peaking = Rounded(response.PeakingDb(middle));
        if (!std::isfinite(peaking))
            return std::nullopt;
        if (peaking == design.gain || Rounded(low) == Rounded(high))
            break;
        if (peaking > design.gain)
            low = z;
        else
            high = z;
        const double next = (low + high) / 2.0;
        // The middle of two neighbouring doubles is one of them: the bisection would never end.
        if (next == z)
            break;
        z = next;
    }

    const double magnitude = std::abs(design.Response()(middle));
    if (!std::isfinite(magnitude) || magnitude <= 0.0)
        return std::nullopt;
    for (int step = 0; step < kLongestWalk; ++step) {
        double walked = design.dcGain * magnitude;
        // Rounding costs ten times the rest of the step.
        if (std::abs(walked - 1.0) < kNearOne)
            walked = Rounded(walked);
        if (walked == 1.0)
            return design;
        design.dcGain *= walked > 1.0 ? 0.5 : 1.5;
    }
    return std::nullopt;
}

}  // namespace

Complex TwoPoleResponse::operator()(double frequency) const
{
    const double w = kTwoPi * frequency;
    return k * Complex(zero, w) / Complex(pole1 * pole2 - w * w, w * (pole1 + pole2));
}

double TwoPoleResponse::PeakingDb(double frequency) const
{
    return 20.0 * std::log10(std::abs((*this)(frequency)) / std::abs((*this)(0.0)));
}

Complex ThreePoleResponse::operator()(double frequency) const
{
    const double w = kTwoPi * frequency;
    return twoPole(frequency) * (Complex(zero2, w) / Complex(pole3, w));
}

Complex LowFrequencyPairResponse::operator()(double frequency) const
{
    const double w = kTwoPi * frequency;
    const double a = w / lowFrequency;
    const double b = w / pole2;
    const double c = w / pole1;
    const double d = w / zero;
    const Complex numerator(gain1 * gain2 - d * a, a * gain1 + d * gain2);
    const double real = 1.0 - b * c;
    const double imag = b + c;
    return numerator / Complex(real - imag * a, imag + real * a);
}

namespace {

// exp((1 + j) x). A gain that is not a number gives such a response, as in the formula; std::polar takes none.
Complex InverseOfCable(double exponent)
{
    const double magnitude = std::exp(exponent);
    return {magnitude * std::cos(exponent), magnitude * std::sin(exponent)};
}

}  // namespace

CableResponse::CableResponse(double symbolRate, double gain) : symbolRate_(symbolRate)
{
    constexpr double kLossAtHalf = 0.705115;  // [dB] of the Bessel-Thomson response at half its cutoff
    constexpr double kDbPerNeper = 8.685890;  // 20 log10(e)
    factor_ = (gain + kLossAtHalf) / (kDbPerNeper * std::sqrt(symbolRate / 2.0));
    atRate_ = InverseOfCable(factor_ * std::sqrt(symbolRate));
}

Complex CableResponse::operator()(double frequency) const
{
    const Complex boost = frequency < symbolRate_ ? InverseOfCable(factor_ * std::sqrt(frequency)) : atRate_;
    return boost * FourthOrderResponse(frequency * kFourthOrderCutoff / symbolRate_);
}

std::optional<PeakingDesign> DesignPeaking(double symbolRate, double gain)
{
    struct CachedDesign {
        double symbolRate, gain;
        PeakingDesign design;
    };
    thread_local std::optional<CachedDesign> last;  // a filter prepares again and again with the same gain
    if (!last || last->symbolRate != symbolRate || last->gain != gain) {
        last.reset();
        const std::optional<PeakingDesign> design = Design(symbolRate, gain);
        if (!design)
            return std::nullopt;
        last = CachedDesign{symbolRate, gain, *design};
    }
    return last->design;
}

const Ieee802_3bsPreset* FindIeee802_3bsPreset(double keyDb)
{
    const auto* const found = std::find_if(kIeee802_3bsPresets.begin(), kIeee802_3bsPresets.end(),
                                           [keyDb](const Ieee802_3bsPreset& row) { return row.keyDb == keyDb; });
    return found == kIeee802_3bsPresets.end() ? nullptr : found;
}

double HdmiPeakingRatio(double level)
{
    const double whole = std::trunc(level);
    const auto* const found = std::find_if(kHdmiLevels.begin(), kHdmiLevels.end(),
                                           [whole](const HdmiLevel& row) { return row.level == whole; });
    return found == kHdmiLevels.end() ? 0.0 : found->peakingRatio;
}

TwoPoleResponse HdmiResponse(double peakingRatio, double pole1, double pole2, double zero)
{
    if (peakingRatio == 0.0)
        return {0.0, pole1, pole2, pole1};
    return {peakingRatio * pole2, pole1, pole2, zero};
}

Peak FindPeak(const std::function<Complex(double)>& response, double highest)
{
    constexpr int kSteps = 1000;
    constexpr double kGolden = 0.6180339887498949;  // (sqrt(5) - 1)/2
    constexpr double kBracket = 1e-9;               // of `highest`
    const auto magnitude = [&](double frequency) { return std::abs(response(frequency)); };
    const double step = highest / kSteps;
    int best = 0;
    for (int k = 1; k <= kSteps; ++k)
        if (magnitude(k * step) > magnitude(best * step))
            best = k;
    double low = std::max(0.0, (best - 1) * step);
    double high = std::min(highest, (best + 1) * step);
    while (high - low > kBracket * highest) {
        const double width = kGolden * (high - low);
        if (magnitude(high - width) < magnitude(low + width))
            low = high - width;
        else
            high = low + width;
    }
    const double frequency = best == 0 && magnitude(0.0) >= magnitude(low) ? 0.0 : (low + high) / 2.0;
    return {frequency, magnitude(frequency)};
}

}  // namespace Tarnwick::DSO::Maths
