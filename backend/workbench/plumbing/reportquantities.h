// What chain files and findings hold, as named quantities of a report's document.
#pragma once

#include <cstddef>
#include <string>

#include "workbench/chain.h"
#include "workbench/plumbing/json.h"
#include "workbench/run.h"

namespace Tarnwick::DSO::Workbench {

Json QuantityOf(const std::string& name, Json value, const std::string& unit = "");

/// The settings of a filter: those of its own keys with their defaults, and what else the file gives.
/// @param place  among the file's filters
Json SettingsOf(const ChainFile& chain, std::size_t place);
Json FindingsOf(const StageReport& stage);
/// Without the pattern.
Json DeviceOf(const ChainFile& chain);

}  // namespace Tarnwick::DSO::Workbench
