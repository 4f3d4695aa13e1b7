// The eyes of samples that have been looked at before.
#pragma once

#include <span>

#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

/// As MeasureEyes, without another pass over the samples for what is known of them.
/// @param areFinite  no sample is infinite or not a number; otherwise nothing is measured
EyeReport MeasureEyes(std::span<const double> samples, const EyeSettings& settings, bool areFinite);

}  // namespace Tarnwick::DSO::Workbench
