// Reading a whole file.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace Tarnwick::DSO::Workbench {

/// Every byte of a regular file. Directories, devices and pipes are refused unopened: a pipe waits for a writer, and a
/// device may never end.
/// @throws DataFailure  naming the file
std::string ReadWholeFile(const std::filesystem::path& path);

/// What comes out of a pipe until its writer closes it, as of a shell's <(...). Waits for a writer.
/// @throws DataFailure  naming the pipe: it cannot be read, or gives more than `longest` bytes
std::string ReadWholePipe(const std::filesystem::path& path, std::size_t longest);

}  // namespace Tarnwick::DSO::Workbench
