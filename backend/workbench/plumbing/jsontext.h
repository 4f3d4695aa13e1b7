// JSON and its text. The library that does it is templates alone: what calls it here is compiled once.
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include <nlohmann/json_fwd.hpp>

namespace Tarnwick::DSO::Workbench {

inline constexpr int kFindingDigits = 5;  ///< of a finding: more than the measurement is good for

/// @param indent  blanks a level; below 0: all in one line. Bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const nlohmann::json& content, int indent = -1);

/// Of text that this library wrote itself.
/// @throws nlohmann::json::parse_error  it is none
nlohmann::json JsonFrom(std::string_view text);

/// The same of a text that need not be JSON: is_discarded() of one that is none.
nlohmann::json JsonOrDiscarded(std::string_view text);

/// As people read it: a text without its quotes, a number with a fraction in this many digits, anything else as JSON.
std::string ReadableText(const nlohmann::json& value, int digits);

/// As people read it: a text without its quotes, a number with a fraction in ten digits.
/// @param json  of this library
std::string PlainText(std::string_view json);

/// A number, a text without its quotes, or as it stands what is neither or no JSON.
std::variant<double, std::string> NumberOrText(const std::string& json);

}  // namespace Tarnwick::DSO::Workbench
