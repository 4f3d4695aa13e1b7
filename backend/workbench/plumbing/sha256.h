// The digest by which files are told apart, by anybody and with any tool.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tarnwick::DSO::Workbench {

using Sha256Digest = std::array<std::uint8_t, 32>;

/// SHA-256 of a text. Source: NIST FIPS 180-4.
Sha256Digest Sha256(std::string_view text);

/// Two lower-case digits a byte.
std::string HexOf(const Sha256Digest& digest);

}  // namespace Tarnwick::DSO::Workbench
