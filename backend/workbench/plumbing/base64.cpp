#include "workbench/plumbing/base64.h"

#include <cstddef>
#include <string_view>

namespace Tarnwick::DSO::Workbench {

std::string Base64(std::span<const std::uint8_t> bytes)
{
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = bytes.size() - at < 3 ? bytes.size() - at : 3;
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = (group << 8U) | (k < count ? bytes[at + k] : 0U);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? kDigits[(group >> (18 - 6 * k)) & 63U] : '=';
    }
    return text;
}

}  // namespace Tarnwick::DSO::Workbench
