// How a line that the S-parameter reader does not take is refused.
#pragma once

#include <cstddef>
#include <string>

#include "maths/touchstone/touchstone.h"

namespace Tarnwick::DSO::Filters {

/// @throws std::invalid_argument  "invalid stod argument" for a token that is no number; or a text with file and line
/// @throws std::out_of_range      "stod argument out of range"
[[noreturn]] void RefuseLine(const char* filter, const Maths::LineFailure& failure, const std::string& fileName,
                             std::size_t line);

}  // namespace Tarnwick::DSO::Filters
