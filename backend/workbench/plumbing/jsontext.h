// JSON and its text. The library that does it is templates alone: what calls it here is compiled once.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace Tarnwick::DSO::Workbench {

/// @param indent  blanks a level; below 0: all in one line. Bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const nlohmann::json& content, int indent = -1);
std::string JsonText(const nlohmann::ordered_json& content, int indent = -1);

/// Of text that this library wrote itself.
/// @throws nlohmann::json::parse_error  it is none
nlohmann::json JsonFrom(std::string_view text);
nlohmann::ordered_json OrderedJsonFrom(std::string_view text);

}  // namespace Tarnwick::DSO::Workbench
