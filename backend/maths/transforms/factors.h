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

/// An even length of at least that many values, and at most a quarter more, that is transformed quickly: a power of two times
/// 1, 3, 5, 9 or 15. More odd factors cost more than they save: 15 000 000 values take half as long again as 2^24.
inline std::size_t QuickEvenLength(std::size_t least)
{
    std::size_t quickest = 2;
    while (quickest < least)
        quickest *= 2;
    for (const std::size_t odd : {3U, 5U, 9U, 15U}) {
        std::size_t length = 2 * odd;
        while (length < least)
            length *= 2;
        quickest = length < quickest ? length : quickest;
    }
    return quickest;
}

}  // namespace Tarnwick::DSO::Maths
