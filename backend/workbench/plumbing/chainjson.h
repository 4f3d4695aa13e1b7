// Chain files as JSON values, for code of the workbench that reads or changes single keys.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "framework/export.h"
#include "workbench/chain.h"

namespace Tarnwick::DSO::Workbench {

/// A JSON text.
/// @param name  stands for the file in messages
/// @throws UsageFailure  no JSON, or nested more than 32 deep
nlohmann::json ParsedJson(std::string_view text, const std::string& name);

/// A chain file's content.
const nlohmann::json& JsonOf(const ChainFile& file);

/// A chain file of this content.
ChainFile ChainFileOf(nlohmann::json content, std::string name);

}  // namespace Tarnwick::DSO::Workbench
