// How commands print to the terminal.
#pragma once

#include <string>

namespace Tarnwick::App {

/// A line of a list of names and values on stdout.
/// @param width  of the column of names
void PrintRow(int width, const std::string& name, const std::string& value);

}  // namespace Tarnwick::App
