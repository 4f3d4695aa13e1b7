// How exact the filters' results are: the bounds that their headers open with and that the tests hold. docs/numerics.md
// says where the errors come from.
#pragma once

#include <limits>

namespace Tarnwick::DSO::Maths {

/// Of a moving average, over the largest sample: one rounding a sample of the window and that of the division.
constexpr double MovingAverageError(int window)
{
    return (window + 1) * std::numeric_limits<double>::epsilon();
}

/// Of the Bessel-Thomson taps' spectrum at every bin, whose largest magnitude is 1, against the response at the cutoff
/// that the walk ends at.
inline constexpr double kBesselThomsonBinError = 1e-12;

/// Of the CTLE taps' spectrum, relative, at every bin.
inline constexpr double kCtleBinError = 1e-12;
/// The same of the peaking type, whose gains are found to five decimals.
inline constexpr double kCtlePeakingBinError = 2e-5;

/// Of least-squares FFE taps of about 1 against those of the matrices of samples, on captures correlated like held
/// symbols.
inline constexpr double kFfeTapError = 1e-12;

/// Of DFE taps, over the main cursor, on lines of known echoes without noise.
inline constexpr double kDfeTapError = 0.0015;

/// Of a waveform behind a fixture of 3 dB at 10 GHz measured in steps of 10 MHz, rms over rms, within the band.
inline constexpr double kFixtureRemovedError = 7.5e-5;
inline constexpr double kFixtureAddedError = 9.5e-5;

/// Of the channel's magnitude behind its correction [dB], up to 1.5 times the cutoff, from a clean measurement.
inline constexpr double kCorrectedMagnitudeErrorDb = 0.072;

}  // namespace Tarnwick::DSO::Maths
