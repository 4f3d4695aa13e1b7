// What reports as text and as JSON have in common.
#pragma once

#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Tarnwick::DSO::Workbench {

/// A figure's line.
inline std::string ReportRow(const std::string& name, const std::string& value, int nameWidth = 16)
{
    return fmt::format("{:<{}} {}\n", name, nameWidth, value);
}

/// Null for 0, which stands for a figure that was not found.
inline nlohmann::ordered_json FoundOrNull(double figure)
{
    return figure > 0.0 ? nlohmann::ordered_json(figure) : nlohmann::ordered_json();
}

}  // namespace Tarnwick::DSO::Workbench
