// Range, mean and rms of samples.
#pragma once

#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

struct SampleStatistics {
    double low = 0.0;
    double high = 0.0;
    double mean = 0.0;
    double rms = 0.0;  ///< about 0; finite only where all samples are
};

/// In one pass, and to fewer roundings than sums in order.
/// @param samples  at least one
TARNWICK_FRAMEWORK_API SampleStatistics StatisticsOf(std::span<const double> samples);

}  // namespace Tarnwick::DSO::Maths
