// Eye measurements as JSON values, for reports of which they are part.
#pragma once

#include "workbench/eye.h"
#include "workbench/plumbing/json.h"

namespace Tarnwick::DSO::Workbench {

/// A list of {"height", "openingPercent", "widthUi", "widthPs", "threshold", "heightAtBer", "q"}, lowest eye first; null
/// where a figure is not known.
Json EyesToJson(const EyeReport& report);

/// Adds "ber", "noiseRms", "symbolsKnown" and "valid".
void AddErrorRatio(Json& target, const EyeReport& report);

}  // namespace Tarnwick::DSO::Workbench
