// A synthetic capture: a pattern, edges, jitter, a lossy line and noise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"

namespace Tarnwick::DSO::Workbench {

/// What is sent.
struct SimulatedPattern {
    E_SIGNAL_CODING coding = SIGNAL_CODING_PAM4;
    int prbs = 13;             ///< order of the PRBS: 7, 9, 11, 13, 15, 23 or 31
    std::string symbols = {};  ///< one character a symbol, instead of the PRBS; empty: the PRBS
    bool withoutGrayCoding = false;

    /// Level index of each symbol, 0 the lowest: of one period, or of its first `count` symbols where it has more.
    /// @param count  0: all of a period
    /// @throws UsageFailure  an unknown order, a period of more than 2^30 symbols, or a character that is no symbol of the
    ///                       coding
    TARNWICK_WORKBENCH_API std::vector<int> Levels(std::size_t count = 0) const;
};

struct Simulation {
    double samplesPerUi = 16.0;  ///< real
    int repetitions = 1;
    double symbolRateGBd = 26.5625;
    double amplitude = 1.0;  ///< [V] from the lowest to the highest level
    double riseUi = 0.2;     ///< [UI] 0 to 100 % of a linear edge, centred on the symbol boundary
    double lossDb = 0.0;     ///< [dB] of the line at half the symbol rate
    double noiseRms = 0.0;   ///< [V] white over half the sample rate, of one acquisition
    int averages = 1;        ///< acquisitions that the instrument averages: the noise is noiseRms over its root
    double jitterRms = 0.0;  ///< [UI] of each edge, independent; clipped to LargestEdgeShiftUi
    std::uint64_t seed = 1;
    double clockOffsetPpm = 0.0;       ///< by which a UI is longer than samplesPerUi samples
    double sinusoidalJitterUi = 0.0;   ///< [UI] peak deviation of the edges
    double sinusoidalJitterMHz = 1.0;  ///< its frequency
    int firstUi = 0;                   ///< a cut begins this many UI into the pattern
    int lengthUi = 0;                  ///< [UI] of a cut; 0: whole repetitions
    /// Nothing of the waveform folds at half the sample rate: it ends between 0.35 and 0.45 of that rate, before the
    /// noise. So is every capture that does not consist of whole repetitions of whole samples per UI.
    bool bandLimited = false;

    /// [UI] (1 - riseUi)/2: an edge stays within the halves of the UIs on either side of its boundary.
    double LargestEdgeShiftUi() const { return 0.5 * (1.0 - riseUi); }
    /// Samples in a UI as they are taken, the offset of the clock included.
    double SampledPerUi() const { return samplesPerUi * (1.0 + 1e-6 * clockOffsetPpm); }
    /// The record repeats without a seam: whole repetitions of whole samples per UI.
    TARNWICK_WORKBENCH_API bool IsSeamless() const;
};

/// The capture of a pattern. One that repeats without a seam is the same bit for bit in all repetitions when it has
/// neither noise nor jitter; any other is a cut out of a longer one.
///     line: H(f) = exp(-(1 + j) k sqrt f), the skin effect of a matched line, causal and of minimum phase
/// @param levels  level index of each symbol, 0 .. levelCount - 1
/// @throws UsageFailure  jitterRms is larger than the largest shift, or the capture would have more than 2^30 samples
/// @return [V] as many samples as the repetitions, or the UI of the cut, fill
TARNWICK_WORKBENCH_API std::vector<double> Simulate(std::span<const int> levels, int levelCount,
                                                    const Simulation& settings);

/// A chain file (JSON) for the capture: a moving average and a Bessel-Thomson receiver to begin with, and the device,
/// whose pattern and samples per UI are left to be found where the capture is no whole repetition of whole samples.
TARNWICK_WORKBENCH_API std::string ChainFileFor(const SimulatedPattern& pattern, const Simulation& settings);

}  // namespace Tarnwick::DSO::Workbench
