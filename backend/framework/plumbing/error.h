// How bad input is refused everywhere: std::invalid_argument with
//     Class[::Operation]: field is value[ unit]; expected what
#pragma once

#include <concepts>
#include <string>
#include <string_view>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// @throws std::invalid_argument  always, with the text above
[[noreturn]] TARNWICK_FRAMEWORK_API void Refuse(std::string_view where, std::string_view field, std::string_view value,
                                                std::string_view expected);

/// The shortest text that reads back as `value`.
TARNWICK_FRAMEWORK_API std::string TextOf(double value);

template <std::integral Integer>
[[noreturn]] void Refuse(std::string_view where, std::string_view field, Integer value, std::string_view expected)
{
    Refuse(where, field, std::string_view(std::to_string(value)), expected);
}

[[noreturn]] inline void Refuse(std::string_view where, std::string_view field, double value, std::string_view expected)
{
    Refuse(where, field, std::string_view(TextOf(value)), expected);
}

/// @throws std::invalid_argument  the value is NaN or infinite
TARNWICK_FRAMEWORK_API void RequireFinite(std::string_view where, std::string_view field, double value,
                                          std::string_view expected);
/// @throws std::invalid_argument  the value is NaN, infinite, zero or negative
TARNWICK_FRAMEWORK_API void RequirePositive(std::string_view where, std::string_view field, double value,
                                            std::string_view expected);

}  // namespace Tarnwick::DSO::SystemFramework
