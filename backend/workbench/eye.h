// Eye measurements of a waveform that repeats with the symbol period.
#pragma once

#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct EyeOpening {
    double height;   ///< [V] smallest sample decided above it minus the largest decided below, at the common phase
    double widthUi;  ///< [UI] span of phases around that phase in which it is open
};

struct EyeReport {
    std::vector<double> levels;    ///< [V] means of the decided samples at the phase, lowest first
    std::vector<EyeOpening> eyes;  ///< one fewer, lowest first
    double phaseUi = 0.0;          ///< [UI] 0 to 1: where the smallest height over the eyes is largest
};

/// @param samples       [V] read as periodic
/// @param samplesPerUi  real, at least 1
/// @param levelCount    2 to 4
/// @return a report without levels and eyes when at no phase the samples fall into that many levels
TARNWICK_WORKBENCH_API EyeReport MeasureEyes(std::span<const double> samples, double samplesPerUi, int levelCount);

}  // namespace Tarnwick::DSO::Workbench
