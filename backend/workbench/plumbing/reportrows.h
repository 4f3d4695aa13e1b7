// What reports as text and as JSON have in common.
#pragma once

#include <string>

#include <fmt/format.h>

#include "workbench/plumbing/json.h"

namespace Tarnwick::DSO::Workbench {

/// A figure's line.
inline std::string ReportRow(const std::string& name, const std::string& value, int nameWidth = 16)
{
    return fmt::format("{:<{}} {}\n", name, nameWidth, value);
}

/// Null for 0, which stands for a figure that was not found.
inline Json FoundOrNull(double figure)
{
    return figure > 0.0 ? Json(figure) : Json();
}

}  // namespace Tarnwick::DSO::Workbench
