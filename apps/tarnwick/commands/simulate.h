// A synthetic capture: a pattern, edges, jitter, a lossy line and noise.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Tarnwick::App {

struct Simulation {
    int samplesPerUi = 16;
    int repetitions = 1;
    double symbolRateGBd = 26.5625;
    double amplitude = 1.0;  ///< [V] from the lowest to the highest level
    double riseUi = 0.2;     ///< [UI] 0 to 100 % of a linear edge, centred on the symbol boundary
    double lossDb = 0.0;     ///< [dB] of the line at half the symbol rate
    double noiseRms = 0.0;   ///< [V] white over half the sample rate
    double jitterRms = 0.0;  ///< [UI] of each edge, independent; no edge moves further than (1 - riseUi)/2
    std::uint64_t seed = 1;
};

/// The capture of a pattern that repeats without a seam. Without noise and jitter the repetitions are the same bit for bit.
///     line: H(f) = exp(-(1 + j) k sqrt f), the skin effect of a matched line, causal and of minimum phase
/// @param levels      level index of each symbol, 0 .. levelCount - 1
/// @throws UsageFailure  more jitter than (1 - riseUi)/2
/// @return [V] levels.size() samplesPerUi repetitions values
std::vector<double> Simulate(std::span<const int> levels, int levelCount, const Simulation& settings);

}  // namespace Tarnwick::App
