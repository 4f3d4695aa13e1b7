// Eye measurements as JSON values, for reports of which they are part.
#pragma once

#include <nlohmann/json.hpp>

#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

/// A list of {"height", "widthUi"}, lowest eye first.
nlohmann::ordered_json EyesToJson(const EyeReport& report);

}  // namespace Tarnwick::DSO::Workbench
