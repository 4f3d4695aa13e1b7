// What the names and the option line of an S-parameter file say.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "maths/touchstone/touchstone.h"

namespace Tarnwick::DSO::Workbench {

/// The kind that a file's name means, in upper or lower case; nothing for numbers of ports that the filter cannot use.
std::optional<Maths::FileKind> MeantKind(std::string_view name);

/// The ending, in lower case, by which the filter knows a kind.
const char* EndingOf(Maths::FileKind kind);

/// The keyword of an option line.
std::string UnitName(double unit);
std::string FormatName(Maths::PairFormat format);

/// What an option line gives behind R; "50", the default, where it gives nothing.
std::string ReferenceOf(std::string_view optionLine);

}  // namespace Tarnwick::DSO::Workbench
