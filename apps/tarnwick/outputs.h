// What a command leaves behind: its report on stdout, and files that must not be those that it reads.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Tarnwick::App {

/// Prints a report on stdout.
/// @throws DataFailure  stdout cannot be written, for example because the disk behind it is full
void PrintReport(const std::string& report);

/// Two names of one file; of those that do not exist yet, by the names.
bool IsSameFile(const std::filesystem::path& one, const std::filesystem::path& other);

/// @param option  that names the output, for the message
/// @throws UsageFailure  the output is one of the files that are read
void RequireApart(const char* option, const std::filesystem::path& output, const std::vector<std::string>& inputs);

}  // namespace Tarnwick::App
