// Reading a whole file, or all of standard input.
#pragma once

#include <filesystem>
#include <string>

namespace Tarnwick::DSO::Workbench {

/// Every byte of a regular file, or of a pipe that somebody writes to and closes, up to 1 GiB. Directories and devices are
/// refused unopened: a device may never end.
/// @throws DataFailure  naming the file
std::string ReadWholeFile(const std::filesystem::path& path);

/// All of standard input, up to 1 GiB.
/// @throws DataFailure  it is empty or cannot be read
std::string ReadStandardInput();

}  // namespace Tarnwick::DSO::Workbench
