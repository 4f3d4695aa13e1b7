// Continuous-time linear equalisers: transfer functions, preset tables and the design from a wanted peaking.
// Transfer functions take a frequency f [Hz], s = j 2 pi f; poles and zeros are angular frequencies [rad/s].
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <functional>
#include <numbers>
#include <optional>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

inline constexpr double kTwoPi = 2.0 * std::numbers::pi;
inline constexpr double kRadPerGHz = kTwoPi * 1e9;  // [rad/s] of 1 GHz

/// H(s) = k (s + z) / ((s + p1)(s + p2)),  H(0) = k z / (p1 p2)
struct TARNWICK_FRAMEWORK_API TwoPoleResponse {
    double k, pole1, pole2, zero;  // [rad/s] for a dimensionless H
    std::complex<double> operator()(double frequency) const;
    /// [dB] of |H| at a frequency [Hz] over |H(0)|
    double PeakingDb(double frequency) const;
};

/// The same times (s + z2) / (s + p3).
struct TARNWICK_FRAMEWORK_API ThreePoleResponse {
    TwoPoleResponse twoPole;
    double pole3, zero2;
    std::complex<double> operator()(double frequency) const;
};

/// H(f) = (g1 + j f/f_z)(g2 + j f/f_lf) / ((1 + j f/f_p1)(1 + j f/f_p2)(1 + j f/f_lf)),  H(0) = g1 g2
/// with linear g1 and g2. Source: OIF CEI-112G-LINEAR-PAM4, reference equaliser.
struct TARNWICK_FRAMEWORK_API LowFrequencyPairResponse {
    double gain1, gain2;                      // linear
    double pole1, pole2, zero, lowFrequency;  // [rad/s]
    std::complex<double> operator()(double frequency) const;
};

/// H(f) = exp((1 + j) k sqrt(min(f, f_b))) BT4(f; f_b): the inverse of a cable whose loss follows the skin effect,
/// bounded by a fourth-order Bessel-Thomson response 3 dB down at the symbol rate f_b; above f_b the boost stays.
/// |H(0)| = 1 and |H(f_b/2)| is `gain`; error below 1e-5 dB, what the digits of the constants leave. Source: the classical skin-effect line, exp(-(1 + j) k sqrt(f)) for a length.
class TARNWICK_FRAMEWORK_API CableResponse {
public:
    /// @param symbolRate  [Hz] positive
    /// @param gain        [dB] at half the symbol rate; negative emulates a cable
    CableResponse(double symbolRate, double gain);
    std::complex<double> operator()(double frequency) const;

private:
    double symbolRate_;
    double factor_;                // [1/sqrt(Hz)]
    std::complex<double> atRate_;  // the inverse of the cable at the symbol rate and above
};
inline constexpr double kCableGainErrorDb = 1e-5;

/// The equaliser that has a wanted peaking.
struct PeakingDesign {
    double gain;                      // [dB] to five decimals
    double pole1 = 0.0, pole2 = 0.0;  // [rad/s]
    double zero = 0.0;                // [rad/s]
    double dcGain = 1.0;              // linear
    TwoPoleResponse Response() const { return {dcGain * pole1 * pole2 / zero, pole1, pole2, zero}; }
};

/// Error of the design: |H| and the gain meet their targets when they round to them at five decimals.
inline constexpr double kDesignError = 5e-6;

/// Two poles a fortieth of the symbol rate below and above half the symbol rate and the zero that lifts |H| there over
/// |H(0)| by `gain`, then the DC gain that makes |H| there 1.
/// The zero is found by bisection in 0 .. p1, to five decimals of the gain or of the bracket, or until it stops moving.
/// The DC gain is found by a walk in factors of 0.5 and 1.5 from 1 to the first value that rounds to 1 at five decimals:
/// the value is that of the walk, not of a division. Deliberate.
/// @param symbolRate  [Hz]
/// @param gain        [dB]
/// @return nothing when the walk cannot end: |H| is zero, NaN or infinite
TARNWICK_FRAMEWORK_API std::optional<PeakingDesign> DesignPeaking(double symbolRate, double gain);

/// A reference equaliser of IEEE 802.3bs for chip-to-module links at 26.5625 GBd. The DC gain is 10^(-key/20) to six decimals.
struct Ieee802_3bsPreset {
    double keyDb;
    double dcGain;               // linear
    double pole1, pole2, zero1;  // [GHz]
    double pole3, zero2;         // [GHz] low-frequency pair
    ThreePoleResponse Response() const
    {
        return Response(dcGain, pole1 * kTwoPi * 1e9, pole2 * kTwoPi * 1e9, pole3 * kTwoPi * 1e9, zero1 * kTwoPi * 1e9,
                        zero2 * kTwoPi * 1e9);
    }
    /// The response for poles and zeros in rad/s, H(0) = dcGain.
    static ThreePoleResponse Response(double dcGain, double pole1, double pole2, double pole3, double zero1,
                                      double zero2)
    {
        return {{dcGain * pole1 * pole2 * pole3 / (zero1 * zero2), pole1, pole2, zero1}, pole3, zero2};
    }
};

/// Error below 0.0005 dB of a preset's peak |H| from 0 dB: the DC gain takes back what the key lifts.
inline constexpr double kPresetPeakErrorDb = 5e-4;

inline constexpr std::array<Ieee802_3bsPreset, 17> kIeee802_3bsPresets = {{
    // dB   DC gain   f_p1     f_p2  f_z1      f_p3 f_z2   [GHz]
    {1.0, 0.891251, 26.5625, 14.1, 9.463748, 1.2, 1.2},
    {1.5, 0.841395, 26.5625, 14.1, 9.248465, 1.2, 1.15},
    {2.0, 0.794328, 26.5625, 14.1, 9.069645, 1.2, 1.1},
    {2.5, 0.749894, 26.5625, 14.1, 8.640319, 1.2, 1.075},
    {3.0, 0.707946, 26.5625, 14.1, 8.255665, 1.2, 1.05},
    {3.5, 0.668344, 26.5625, 14.1, 7.906766, 1.2, 1.025},
    {4.0, 0.630957, 26.5625, 14.1, 7.58765, 1.2, 1.0},
    {4.5, 0.595662, 26.5625, 14.1, 7.076858, 1.2, 1.0},
    {5.0, 0.562341, 26.5625, 14.1, 6.614781, 1.2, 1.0},
    {5.5, 0.530884, 26.5625, 14.1, 6.193091, 1.2, 1.0},
    {6.0, 0.501187, 26.5625, 14.1, 5.805801, 1.2, 1.0},
    {6.5, 0.473151, 26.5625, 14.1, 5.448395, 1.2, 1.0},
    {7.0, 0.446684, 26.5625, 14.1, 5.117337, 1.2, 1.0},
    {7.5, 0.421697, 26.5625, 14.1, 4.809777, 1.2, 1.0},
    {8.0, 0.398107, 26.5625, 14.1, 4.523367, 1.2, 1.0},
    {8.5, 0.375837, 26.5625, 14.1, 4.256129, 1.2, 1.0},
    {9.0, 0.354813, 26.5625, 14.1, 4.006377, 1.2, 1.0},
}};

/// The preset of exactly that key; null for any other number.
TARNWICK_FRAMEWORK_API const Ieee802_3bsPreset* FindIeee802_3bsPreset(double keyDb);

struct HdmiLevel {
    int level;
    double peakingRatio;  // linear, high frequencies over DC
};

/// Error below 0.03 dB of a level's peaking, its largest |H| over |H(0)|, from as many dB as its number. Pole and zero lie
/// so close together that the peak stays below the ratio.
inline constexpr double kHdmiLevelErrorDb = 0.03;

inline constexpr std::array<HdmiLevel, 8> kHdmiLevels = {{
    {1, 1.35},
    {2, 1.57},
    {3, 1.8},
    {4, 2.05},
    {5, 2.32},
    {6, 2.63},
    {7, 2.97},
    {8, 3.34},
}};

inline constexpr double kHdmiPole1 = 21991148575.12855;  // [rad/s] 3.5 GHz; over the peaking ratio, the zero
inline constexpr double kHdmiPole2 = 62831853071.79586;  // [rad/s] 10 GHz

/// The peaking ratio of a level, whose fraction is dropped; 0 for a level outside the table.
TARNWICK_FRAMEWORK_API double HdmiPeakingRatio(double level);

/// H(0) = 1. For a peaking ratio of 0, where the zero would lie at infinity, the response is 0 everywhere.
TARNWICK_FRAMEWORK_API TwoPoleResponse HdmiResponse(double peakingRatio, double pole1, double pole2, double zero);

struct Peak {
    double frequency;  // [Hz]
    double magnitude;
};

/// The largest |H| from DC to `highest` [Hz]: the best of 1000 steps, then golden sections around it to 1e-9 of `highest`.
TARNWICK_FRAMEWORK_API Peak FindPeak(const std::function<std::complex<double>(double)>& response, double highest);

/// Relative error of the taps' spectrum at every bin: the rounding of transforms of 8176 points.
inline constexpr double kCtleBinError = 1e-12;
/// The same of the peaking equaliser against the response that was asked for: its gains are found to five decimals.
inline constexpr double kCtlePeakingBinError = 2e-5;

}  // namespace Tarnwick::DSO::Maths
