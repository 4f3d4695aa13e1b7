// Eye measurements as text and JSON, and what a chain has to say for there to be any.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include "workbench/chain.h"
#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

/// A list of {"height", "widthUi"}, lowest eye first.
nlohmann::ordered_json EyesToJson(const EyeReport& report);

/// Four digits each, with blanks between; "-" when there are no eyes.
std::string HeightsText(const EyeReport& report);
std::string WidthsText(const EyeReport& report);

/// @param name  the chain file's, for messages
/// @param user  what needs the eyes
/// @throws UsageFailure  the line coding or the samples per UI are not known
void RequireEyes(const Chain& chain, const std::string& name, const std::string& user);

}  // namespace Tarnwick::DSO::Workbench
