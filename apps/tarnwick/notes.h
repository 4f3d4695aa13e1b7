// Notes for the user: what was assumed, found or left out. They go to stderr, so that stdout holds results alone.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Tarnwick::App {

void PrintNotes(const std::vector<std::string>& notes);
/// Prints nothing without a note.
void PrintNote(const std::optional<std::string>& note);

}  // namespace Tarnwick::App
