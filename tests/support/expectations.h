// What tests say about arrays and about refused input.
#pragma once

#include <gtest/gtest.h>

#include <complex>
#include <cstddef>
#include <exception>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace Tarnwick::Testing {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

/// The values of a raw result, which is released as its caller has to.
template <typename Value>
std::vector<Value> Take(Value* raw, std::size_t count)
{
    if (raw == nullptr) {
        ADD_FAILURE() << "null instead of an array of " << count << " values";
        return std::vector<Value>(count);
    }
    std::vector<Value> values(raw, raw + count);
    ::operator delete(raw);
    return values;
}

/// Every value within `bound` of the expected one; says which is not, with both values and the bound.
::testing::AssertionResult AreNear(std::span<const double> actual, std::span<const double> expected, double bound);
::testing::AssertionResult AreNear(std::span<const std::complex<double>> actual,
                                   std::span<const std::complex<double>> expected, double bound);

/// The same values bit for bit.
::testing::AssertionResult HaveSameBits(std::span<const double> actual, std::span<const double> expected);

/// `call` throws std::invalid_argument, that type itself, with exactly this text.
template <typename Call>
void ExpectRefused(Call&& call, const std::string& text)
{
    try {
        call();
        ADD_FAILURE() << "nothing was thrown; expected: " << text;
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error), typeid(std::invalid_argument));
        EXPECT_EQ(error.what(), text);
    }
}

}  // namespace Tarnwick::Testing
