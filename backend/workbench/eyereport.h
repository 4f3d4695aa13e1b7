// Eye measurements as text, and what a chain has to say for there to be any.
#pragma once

#include <string>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

/// Four digits each, with blanks between; "-" when there are no eyes.
TARNWICK_WORKBENCH_API std::string HeightsText(const EyeReport& report);
TARNWICK_WORKBENCH_API std::string WidthsText(const EyeReport& report);

/// @param name  the chain file's, for messages
/// @param user  what needs the eyes, for messages
/// @throws UsageFailure  the line coding or the samples per UI are not known
TARNWICK_WORKBENCH_API void RequireEyes(const Chain& chain, const std::string& name, const std::string& user);

}  // namespace Tarnwick::DSO::Workbench
