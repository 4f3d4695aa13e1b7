// The prime factors of transform lengths.
#pragma once

#include <cstddef>
#include <initializer_list>

namespace Tarnwick::DSO::Maths {

/// Whether a length of 1 or more has no prime factors other than these.
inline bool HasOnlyFactors(std::size_t length, std::initializer_list<std::size_t> primes)
{
    for (const std::size_t prime : primes)
        while (length % prime == 0)
            length /= prime;
    return length == 1;
}

}  // namespace Tarnwick::DSO::Maths
