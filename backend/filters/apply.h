// A filter on a record of the host's, without arrays to release.
#pragma once

#include <span>
#include <vector>

#include "framework/basefilter.h"
#include "framework/export.h"

namespace Tarnwick::DSO::Filters {

/// The record behind the filter: as many values, prepared first where the filter's parameters are dirty.
/// @param samples  [V], only read
/// @throws std::invalid_argument  the record is longer than 2^31 - 1 samples; Apply returns null, as some filters do for a
///         record shorter than one repetition of the pattern; or what Apply throws
TARNWICK_FILTERS_API std::vector<double> Filtered(SystemFramework::BaseFilter& filter, std::span<const double> samples);

}  // namespace Tarnwick::DSO::Filters
