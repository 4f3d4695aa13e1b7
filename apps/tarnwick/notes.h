// Notes for the user: what was assumed, found or left out. They go to stderr, so that stdout holds results alone.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "workbench/chain.h"

namespace Tarnwick::App {

void PrintNotes(const std::vector<std::string>& notes);
/// Prints nothing without a note.
void PrintNote(const std::optional<std::string>& note);

/// The notes of a chain's stages, which may gain some while they run.
class StageNotes {
public:
    /// Prints those that have come since the last call.
    void Print(DSO::Workbench::Chain& chain);

private:
    std::vector<std::size_t> told_;  // by stage
};

}  // namespace Tarnwick::App
