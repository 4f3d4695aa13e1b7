// Unpacking gzip files.
#pragma once

#include <string>
#include <string_view>

namespace Tarnwick::DSO::Workbench {

/// What a gzip file (RFC 1952) holds, all its members one behind the other.
/// @param name  the file's, for messages
/// @throws DataFailure  the file is damaged or ends early; or it expands to more than 64 MiB and 100 times its size, far
///                      more than captures do: what a small file says of itself must not take all memory
std::string Unzipped(std::string_view packed, const std::string& name);

}  // namespace Tarnwick::DSO::Workbench
