// Eye measurements as JSON values, for reports of which they are part.
#pragma once

#include <nlohmann/json.hpp>

#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

/// A list of {"height", "openingPercent", "widthUi", "widthPs", "threshold", "heightAtBer", "q"}, lowest eye first; null
/// where a figure is not known.
nlohmann::ordered_json EyesToJson(const EyeReport& report);

/// Adds "ber", "noiseRms", "symbolsKnown" and "valid".
void AddErrorRatio(nlohmann::ordered_json& target, const EyeReport& report);

}  // namespace Tarnwick::DSO::Workbench
