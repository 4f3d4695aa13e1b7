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

/// In one pass, and to fewer roundings than sums in order.
/// @param samples  at least one
TARNWICK_WORKBENCH_API SampleStatistics StatisticsOf(std::span<const double> samples);

/// Whether no sample is infinite or not a number.
TARNWICK_WORKBENCH_API bool AreFinite(std::span<const double> samples);

}  // namespace Tarnwick::DSO::Workbench
