// Reading a whole file.
#pragma once

#include <filesystem>
#include <string>

namespace Tarnwick::DSO::Workbench {

/// Every byte of a regular file. Directories, devices and pipes are refused unopened: a pipe waits for a writer, and a
/// device may never end.
/// @throws DataFailure  naming the file
std::string ReadWholeFile(const std::filesystem::path& path);

}  // namespace Tarnwick::DSO::Workbench
