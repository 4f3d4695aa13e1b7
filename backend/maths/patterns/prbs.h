// Pseudo-random binary sequences of maximum length, 2^order - 1: each bit is the XOR of bits a given number of places back.
// Source: ITU-T O.150, section 5; x^13 + x^12 + x^2 + x + 1: IEEE 802.3, table 94-11.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

struct PrbsPolynomial {
    int order;
    std::array<int, 4> taps;  // 0: none
    std::string_view text;

    constexpr std::size_t Period() const { return (std::size_t{1} << static_cast<unsigned>(order)) - 1; }
};

inline constexpr std::array<PrbsPolynomial, 8> kPrbsPolynomials = {{
    {7, {7, 6, 0, 0}, "x^7+x^6+1"},
    {9, {9, 5, 0, 0}, "x^9+x^5+1"},
    {11, {11, 9, 0, 0}, "x^11+x^9+1"},
    {13, {13, 12, 2, 1}, "x^13+x^12+x^2+x+1"},
    {13, {13, 12, 11, 8}, "x^13+x^12+x^11+x^8+1"},
    {15, {15, 14, 0, 0}, "x^15+x^14+1"},
    {23, {23, 18, 0, 0}, "x^23+x^18+1"},
    {31, {31, 28, 0, 0}, "x^31+x^28+1"},
}};

/// The polynomial that its order alone stands for, the first in the table; null for an order that is not in it.
TARNWICK_FRAMEWORK_API const PrbsPolynomial* FindPrbs(int order);

/// The first `count` bits, started from `order` ones.
TARNWICK_FRAMEWORK_API std::vector<std::uint8_t> PrbsBits(const PrbsPolynomial& polynomial, std::size_t count);

/// How many bits are not what the recursion makes of those before them: `first` to `last` - 1.
/// @param bits   0 or 1
/// @param first  at least the order
TARNWICK_FRAMEWORK_API std::size_t FailingChecks(const PrbsPolynomial& polynomial, std::span<const std::uint8_t> bits,
                                                 std::size_t first, std::size_t last);

}  // namespace Tarnwick::DSO::Maths
