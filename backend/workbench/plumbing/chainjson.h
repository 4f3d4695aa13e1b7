// Chain files as JSON values, for code of the workbench that reads or changes single keys.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "workbench/chain.h"

namespace Tarnwick::DSO::Workbench {

/// What a ChainFile holds.
struct ChainJson {
    nlohmann::json content;
    std::string name;
};

/// A JSON text.
/// @param name  stands for the file in messages
/// @throws UsageFailure  no JSON, or nested more than 32 deep
nlohmann::json ParsedJson(std::string_view text, const std::string& name);

inline const nlohmann::json& JsonOf(const ChainFile& file)
{
    return file.Json().content;
}

/// A chain file of this content.
ChainFile ChainFileOf(nlohmann::json content, std::string name);

}  // namespace Tarnwick::DSO::Workbench
