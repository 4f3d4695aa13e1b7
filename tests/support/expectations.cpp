#include "support/expectations.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <ios>
#include <limits>
#include <sstream>

namespace Tarnwick::Testing {

namespace {

template <typename Value>
::testing::AssertionResult Compared(std::span<const Value> actual, std::span<const Value> expected, double bound)
{
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure() << actual.size() << " values; expected " << expected.size();
    for (std::size_t k = 0; k < actual.size(); ++k) {
        const double error = std::abs(actual[k] - expected[k]);
        if (error <= bound)  // false for NaN
            continue;
        std::ostringstream text;
        text.precision(std::numeric_limits<double>::max_digits10);
        text << "value " << k << " is " << actual[k] << "; expected " << expected[k] << " within " << bound
             << ", off by " << error;
        return ::testing::AssertionFailure() << text.str();
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

::testing::AssertionResult AreNear(std::span<const double> actual, std::span<const double> expected, double bound)
{
    return Compared(actual, expected, bound);
}

::testing::AssertionResult AreNear(std::span<const std::complex<double>> actual,
                                   std::span<const std::complex<double>> expected, double bound)
{
    return Compared(actual, expected, bound);
}

::testing::AssertionResult HaveSameBits(std::span<const double> actual, std::span<const double> expected)
{
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure() << actual.size() << " values; expected " << expected.size();
    for (std::size_t k = 0; k < actual.size(); ++k) {
        if (std::bit_cast<std::uint64_t>(actual[k]) == std::bit_cast<std::uint64_t>(expected[k]))
            continue;
        std::ostringstream text;
        text << "value " << k << " is " << std::hexfloat << actual[k] << "; expected " << expected[k];
        return ::testing::AssertionFailure() << text.str();
    }
    return ::testing::AssertionSuccess();
}

}  // namespace Tarnwick::Testing
