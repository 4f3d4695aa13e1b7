#include "maths/patterns/prbs.h"

#include <algorithm>

namespace Tarnwick::DSO::Maths {

namespace {

std::uint8_t NextBit(const PrbsPolynomial& polynomial, const std::uint8_t* here)
{
    unsigned next = 0;
    for (const int tap : polynomial.taps)
        next ^= tap > 0 ? *(here - tap) : 0U;
    return static_cast<std::uint8_t>(next);
}

}  // namespace

const PrbsPolynomial* FindPrbs(int order)
{
    for (const PrbsPolynomial& polynomial : kPrbsPolynomials)
        if (polynomial.order == order)
            return &polynomial;
    return nullptr;
}

std::vector<std::uint8_t> PrbsBits(const PrbsPolynomial& polynomial, std::size_t count)
{
    const auto order = static_cast<std::size_t>(polynomial.order);
    std::vector<std::uint8_t> bits(std::max(count, order), 1);
    for (std::size_t i = order; i < count; ++i)
        bits[i] = NextBit(polynomial, bits.data() + i);
    bits.resize(count);
    return bits;
}

std::size_t FailingChecks(const PrbsPolynomial& polynomial, std::span<const std::uint8_t> bits, std::size_t first,
                          std::size_t last)
{
    std::size_t failing = 0;
    for (std::size_t i = first; i < last; ++i)
        failing += bits[i] ^ NextBit(polynomial, bits.data() + i);
    return failing;
}

}  // namespace Tarnwick::DSO::Maths
