// Bytes as text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Tarnwick::DSO::Workbench {

/// With padding. Source: IETF RFC 4648, section 4.
std::string Base64(std::span<const std::uint8_t> bytes);

}  // namespace Tarnwick::DSO::Workbench
