#include "framework/plumbing/error.h"

#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace Tarnwick::DSO::SystemFramework {

void Refuse(std::string_view where, std::string_view field, std::string_view value, std::string_view expected)
{
    std::string text(where);
    text.append(": ").append(field).append(" is ").append(value).append("; expected ").append(expected);
    throw std::invalid_argument(text);
}

std::string TextOf(double value)
{
    if (std::isnan(value))
        return "nan";  // without its sign, which is the processor's
    std::array<char, 32> text{};
    const std::to_chars_result written = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), static_cast<std::size_t>(written.ptr - text.data())};
}

void RequireFinite(std::string_view where, std::string_view field, double value, std::string_view expected)
{
    if (!std::isfinite(value))
        Refuse(where, field, value, expected);
}

void RequirePositive(std::string_view where, std::string_view field, double value, std::string_view expected)
{
    if (!std::isfinite(value) || value <= 0.0)
        Refuse(where, field, value, expected);
}

}  // namespace Tarnwick::DSO::SystemFramework
