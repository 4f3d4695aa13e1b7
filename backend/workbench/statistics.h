// Range, mean and rms of a waveform.
#pragma once

#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct SampleStatistics {
    double low = 0.0;   ///< [V]
    double high = 0.0;  ///< [V]
    double mean = 0.0;  ///< [V]
    double rms = 0.0;   ///< [V] about 0 V
};

/// @param samples  at least one
TARNWICK_WORKBENCH_API SampleStatistics StatisticsOf(std::span<const double> samples);

}  // namespace Tarnwick::DSO::Workbench
