// A synthetic capture: a pattern, edges, jitter, a lossy line and noise.
#pragma once

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
    int prbs = 13;        ///< order of the PRBS
    std::string symbols;  ///< one character a symbol, in place of the PRBS; empty: the PRBS
    bool withoutGrayCoding = false;

    /// Level index of each symbol of one period, 0 the lowest.
    /// @throws UsageFailure  an unknown order, or a character that is no symbol of the coding
    TARNWICK_WORKBENCH_API std::vector<int> Levels() const;
};

struct Simulation {
    int samplesPerUi = 16;
    int repetitions = 1;
    double symbolRateGBd = 26.5625;
    double amplitude = 1.0;  ///< [V] from the lowest to the highest level
    double riseUi = 0.2;     ///< [UI] 0 to 100 % of a linear edge, centred on the symbol boundary
    double lossDb = 0.0;     ///< [dB] of the line at half the symbol rate
    double noiseRms = 0.0;   ///< [V] white over half the sample rate
    double jitterRms = 0.0;  ///< [UI] of each edge, independent; clipped to LargestEdgeShiftUi
    std::uint64_t seed = 1;

    /// [UI] (1 - riseUi)/2: an edge stays within the halves of the UIs on either side of its boundary.
    double LargestEdgeShiftUi() const { return 0.5 * (1.0 - riseUi); }
};

/// The capture of a pattern that repeats without a seam. Without noise and jitter the repetitions are the same bit for bit.
///     line: H(f) = exp(-(1 + j) k sqrt f), the skin effect of a matched line, causal and of minimum phase
/// @param levels  level index of each symbol, 0 .. levelCount - 1
/// @throws UsageFailure  jitterRms is larger than the largest shift, or the capture would have more than 2^30 samples
/// @return [V] levels.size() samplesPerUi repetitions values
TARNWICK_WORKBENCH_API std::vector<double> Simulate(std::span<const int> levels, int levelCount,
                                                    const Simulation& settings);

/// A chain file (JSON) for the capture: its device, and a moving average and a Bessel-Thomson receiver to begin with.
TARNWICK_WORKBENCH_API std::string ChainFileFor(const SimulatedPattern& pattern, const Simulation& settings);

}  // namespace Tarnwick::DSO::Workbench
