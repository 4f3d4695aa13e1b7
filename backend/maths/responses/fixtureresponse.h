// From a fixture's measured transmission to the spectrum that removes or adds it.
#pragma once

#include <complex>
#include <cstddef>
#include <map>
#include <vector>

#include "framework/export.h"
#include "maths/transforms/spectrum.h"

namespace Tarnwick::DSO::Maths {

/// A measured transmission at any frequency: magnitude and unwrapped phase, linear between the measured frequencies. (Real
/// and imaginary part, interpolated, would lose magnitude where the phase changes fast.) Below the first one the phase goes
/// on linearly to a multiple of pi at 0 Hz and the loss as that of the skin effect.
class TARNWICK_FRAMEWORK_API FixtureResponse {
public:
    /// @param data  [Hz] to finite values, at least two, none at a negative frequency
    explicit FixtureResponse(const std::map<double, std::complex<double>>& data);

    struct Polar {
        double magnitude;
        double phase;  // [rad]
    };
    /// @param frequency  [Hz] from 0 to LastFrequency()
    Polar At(double frequency) const;

    double LastFrequency() const { return frequencies_.back(); }
    /// The largest magnitude in the data.
    double Strongest() const { return strongest_; }

private:
    void ExtendToDc();

    // The first entry is at 0 Hz.
    std::vector<double> frequencies_;
    std::vector<double> magnitudes_;
    std::vector<double> phases_;
    // Below the first measured frequency |S| = |S(f0)| exp(rise (1 - sqrt(f/f0))).
    double firstMeasured_ = 0.0;
    double rise_ = 0.0;
    double strongest_ = 0.0;
};

enum class FixtureUse { Remove, Add };

struct FixtureLimits {
    double boostDb;    // largest gain when removing, over the strongest transmission
    double bandwidth;  // [Hz] -6 dB point of the taper; 0: as far as data and sample rate reach
};

/// The spectrum that removes or adds the fixture, of `count` bins at k sampleRate/count: the transmission or, up to the
/// boost, its inverse, times a taper that is 1 up to 0.8 of the bandwidth and a raised cosine to 0 at 1.2 of it.
/// @param sampleRate  [Hz]
TARNWICK_FRAMEWORK_API HermitianBins FixtureSpectrum(const FixtureResponse& fixture, FixtureUse use,
                                                     const FixtureLimits& limits, double sampleRate, std::size_t count);

/// Error of a waveform from which a fixture of 3 dB at 10 GHz, measured in steps of 10 MHz, is removed or to which it is added:
/// rms over rms, within the band.
inline constexpr double kFixtureRemovedError = 7.5e-5;
inline constexpr double kFixtureAddedError = 9.5e-5;

}  // namespace Tarnwick::DSO::Maths
