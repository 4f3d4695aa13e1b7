// Reading a whole file.
#pragma once

#include <filesystem>
#include <string>

namespace Tarnwick::DSO::Workbench {

/// Every byte of a regular file, or of a pipe that somebody writes to and closes, up to 1 GiB. Directories and devices are
/// refused unopened: a device may never end.
/// @throws DataFailure  naming the file
std::string ReadWholeFile(const std::filesystem::path& path);

}  // namespace Tarnwick::DSO::Workbench
