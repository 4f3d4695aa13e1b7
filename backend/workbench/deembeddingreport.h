// What a de-embedding filter does to a waveform beside what it is meant to do.
#pragma once

#include <complex>
#include <map>
#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct DeEmbeddingFigures {
    double largestBoostDb = 0.0;        ///< gain where that is largest
    double largestBoostAt = 0.0;        ///< [Hz]
    double noiseAmplificationDb = 0.0;  ///< rms of white noise behind over before
    double energyBeforeZero = 0.0;      ///< share of the impulse response's energy that lies before the impulse
    double peakDelay = 0.0;             ///< [s] of the impulse response's largest value; negative: earlier
    double bandEnd = 0.0;               ///< [Hz] from 0 Hz to here the fixture's data are used
    double extrapolatedTo = 0.0;        ///< [Hz] from 0 Hz to here, within the band, there are no data
};

/// How the filter is set.
struct DeEmbeddingSettings {
    bool remove = true;
    double boostDb = 0.0;    ///< the largest when removing
    double bandwidth = 0.0;  ///< [Hz] -6 dB point of the taper; 0: as far as the data go
};

/// @param kernel      the filter's impulse response, one repetition of the pattern; at least one value, not all zero
/// @param sampleRate  [Hz]
/// @param fixture     what the filter has read, as FixtureResponse takes it
TARNWICK_WORKBENCH_API DeEmbeddingFigures FiguresOfDeEmbedding(std::span<const double> kernel, double sampleRate,
                                                               const std::map<double, std::complex<double>>& fixture,
                                                               const DeEmbeddingSettings& settings);

}  // namespace Tarnwick::DSO::Workbench
