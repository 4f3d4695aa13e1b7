// What both FFT libraries refuse in the same words.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace Tarnwick::DSO::Maths {

/// @throws std::invalid_argument  a real transform has an odd length or none
inline void RequireRealLength(std::size_t length)
{
    if (length == 0 || length % 2 != 0)
        throw std::invalid_argument("RealTransform: length is " + std::to_string(length) +
                                    "; expected an even number of values");
}

/// @throws std::invalid_argument  a complex transform has no length
inline void RequireComplexLength(std::size_t length)
{
    if (length == 0)
        throw std::invalid_argument("ComplexTransform: length is 0; expected at least one value");
}

}  // namespace Tarnwick::DSO::Maths
