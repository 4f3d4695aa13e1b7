// The program as its user runs it.
#pragma once

#include <cstdlib>
#include <string>

#include "files.h"

namespace Tarnwick::App {

/// Runs the program inside the folder; stdout and stderr go to the files "out" and "err" there.
/// @return its exit status
inline int RunProgram(const TestFolder& folder, const std::string& arguments)
{
    const std::string place = (folder / ".").string();
    const std::string command =
        "cd \"" + place + "\" && \"" + std::string(TARNWICK_PROGRAM) + "\" " + arguments + " > out 2> err";
    const int status = std::system(command.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
    return status / 256 + status % 256;               // a shell's exit status, 0 to 255
}

}  // namespace Tarnwick::App
