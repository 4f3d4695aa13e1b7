// The side effects of a de-embedding filter: noise, boost, band.
#pragma once

#include <complex>
#include <map>
#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct DeEmbeddingFigures {
    double largestBoostDb = 0.0;        ///< [dB] the largest gain
    double largestBoostAt = 0.0;        ///< [Hz] where that is
    double noiseAmplificationDb = 0.0;  ///< [dB] rms of white noise, output over input
    double energyBeforeZero =
        0.0;  ///< 0 to 1: share of the impulse response's energy before the impulse, after a delay that is removed
    double peakDelay = 0.0;       ///< [s] of the impulse response's largest value; negative: before the impulse
    double bandEnd = 0.0;         ///< [Hz] the fixture's data are used from 0 Hz to here
    double extrapolatedTo = 0.0;  ///< [Hz] within that band there are no data from 0 Hz to here
};

/// How the filter is set.
struct DeEmbeddingSettings {
    bool remove = true;
    double boostDb = 0.0;    ///< [dB] largest boost when removing
    double bandwidth = 0.0;  ///< [Hz] -6 dB point of the taper; 0: as far as the data reach
};

/// @param kernel      the filter's impulse response, one repetition of the pattern; at least one value, not all zero
/// @param sampleRate  [Hz]
/// @param fixture     what the filter has read, as FixtureResponse takes it
TARNWICK_WORKBENCH_API DeEmbeddingFigures FiguresOfDeEmbedding(std::span<const double> kernel, double sampleRate,
                                                               const std::map<double, std::complex<double>>& fixture,
                                                               const DeEmbeddingSettings& settings);

}  // namespace Tarnwick::DSO::Workbench
