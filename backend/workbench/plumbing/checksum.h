// A checksum that tells inputs apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Tarnwick::DSO::Workbench {

/// FNV-1a, 64 bits: it tells captures and chains apart, no more. Source: G. Fowler, L. C. Noll, K.-P. Vo, IETF
/// draft-eastlake-fnv.
class Checksum {
public:
    void Add(const void* data, std::size_t size)
    {
        constexpr std::uint64_t kPrime = 0x100000001b3;
        const auto* const bytes = static_cast<const unsigned char*>(data);
        for (std::size_t k = 0; k < size; ++k)
            value_ = (value_ ^ bytes[k]) * kPrime;
    }
    void Add(std::string_view text) { Add(text.data(), text.size()); }
    std::uint64_t Value() const { return value_; }

private:
    std::uint64_t value_ = 0xcbf29ce484222325;
};

}  // namespace Tarnwick::DSO::Workbench
