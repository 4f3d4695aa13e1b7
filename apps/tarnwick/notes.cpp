#include "notes.h"

#include <cstdio>

#include <fmt/format.h>

namespace Tarnwick::App {

void PrintNotes(const std::vector<std::string>& notes)
{
    for (const std::string& note : notes)
        PrintNote(note);
}

void PrintNote(const std::optional<std::string>& note)
{
    if (note)
        fmt::print(stderr, "tarnwick: {}\n", *note);
}

}  // namespace Tarnwick::App
