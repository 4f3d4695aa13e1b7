#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "maths/responses/besselthomson.h"
#include "maths/responses/channelcorrection.h"
#include "support/references.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

TEST(WrappingFactorial, WrapsInThirtyTwoBits)
{
    const std::pair<int, int> cases[] = {
        {-1, -1}, {0, 1}, {12, 479001600}, {13, 1932053504}, {17, -288522240}, {33, -2147483647 - 1}, {34, 0}};
    for (const auto& [n, factorial] : cases)
        EXPECT_EQ(WrappingFactorial(n), factorial) << n;
}

TEST(BesselResponse, IsThatOfTheRecursion)
{
    for (int order = 1; order <= 6; ++order)
        for (const double w : {0.0, 1e-3, 0.5, 1.0, 2.1139287217715976, 10.0, 1e4}) {
            SCOPED_TRACE("order " + std::to_string(order) + ", w " + std::to_string(w));
            const Complex expected = BesselThomsonAt(order, w);
            // A dozen roundings on each side, and cancellation between the terms near the cutoff.
            EXPECT_NEAR(std::abs(BesselResponse(order).At(w) - expected), 0.0, 50 * DBL_EPSILON * std::abs(expected));
            EXPECT_NEAR(BesselResponse(order).MagnitudeAt(w), std::abs(expected),
                        50 * DBL_EPSILON * std::abs(expected));
        }
}

// The walk's own end, to the last digit; a closer search would give others.
TEST(DefaultCutoff, IsWhereTheWalkEnds)
{
    const double cutoffs[][2] = {
        {1, 1.7320570991975739},
        {1.3616461313682424, 1.9769605354598057},
        {1.7556880127995638, 2.4245555906339731},
        {2.1139287217715976, 2.8860245572148999},
        {2.4274150045255523, 3.3241638180914688},
        {2.7034027267972904, 3.7265383325659602},
    };
    for (int order = 1; order <= 6; ++order)
        for (const bool halfAmplitude : {false, true, false, true})  // the second time from what is kept
            EXPECT_EQ(DefaultCutoff(order, halfAmplitude), cutoffs[order - 1][halfAmplitude ? 1 : 0])
                << "order " << order;
}

// Every order ends, and where the magnitude rounds to the target at five decimals.
TEST(DefaultCutoff, MeetsItsTargetAtEveryOrder)
{
    for (int order = kLowestOrder; order <= kHighestOrder; ++order)
        for (const bool halfAmplitude : {false, true})
            EXPECT_NEAR(BesselResponse(order).MagnitudeAt(DefaultCutoff(order, halfAmplitude)),
                        halfAmplitude ? 0.5 : 1.0 / std::numbers::sqrt2, 5e-6)
                << "order " << order;
}

TEST(SampledBesselThomson, IsTheResponseHermitianByPairs)
{
    for (const std::size_t length : {1U, 2U, 7U, 8U, 1015U, 1016U}) {
        const auto bins = SampledBesselThomson(4, 2.0, 20e9, 400e9, length);
        ASSERT_EQ(bins.size(), length);
        for (std::size_t k = 0; k < length; ++k) {
            const auto folded = static_cast<double>(std::min(k, length - k));
            // Half the sample rate is a bin of its own, as the response has it: not made real.
            Complex expected = BesselThomsonAt(4, 2.0 * folded * 400e9 / static_cast<double>(length) / 20e9);
            if (2 * k > length)
                expected = std::conj(expected);
            EXPECT_NEAR(std::abs(bins[k] - expected), 0.0, 1e-11 * std::abs(expected))  // 500 steps of a sum
                << "bin " << k << " of " << length;
        }
    }
}

// With an even number of values the upper of the two in the middle is taken for the baseline: 5 here, from which 1 deviates
// most.
TEST(ChannelOnGrid, IsFreeOfItsMedianAndScaledByItsPeak)
{
    const std::vector<double> table = {4.0, 8.0, 2.0, 6.0, 1.0, 5.0, 7.0, 3.0};
    EXPECT_EQ(OnGrid({table, 0.0}, {8, 1e-12}), (std::vector<double>{-0.25, 0.75, -0.75, 0.25, -1.0, 0.0, 0.5, -0.5}));
}

}  // namespace
