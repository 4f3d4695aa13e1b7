#include "filters/maths/besselthomson.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <numbers>
#include <vector>

#include "support/references.h"

namespace {

using namespace Tarnwick::DSO::Filters::Maths;
using namespace Tarnwick::Testing;

TEST(WrappingFactorial, WrapsInThirtyTwoBits)
{
    const struct {
        int n, factorial;
    } cases[] = {{-5, -1},
                 {-1, -1},
                 {0, 1},
                 {1, 1},
                 {2, 2},
                 {12, 479001600},
                 {13, 1932053504},
                 {14, 1278945280},
                 {16, 2004189184},
                 {17, -288522240},
                 {33, -2147483647 - 1},
                 {34, 0}};
    for (const auto& [n, factorial] : cases)
        EXPECT_EQ(WrappingFactorial(n), factorial) << n;
}

TEST(BesselCoefficient, IsThatOfTheReverseBesselPolynomial)
{
    const std::vector<double> rows[] = {
        {1, 1}, {3, 3, 1}, {15, 15, 6, 1}, {105, 105, 45, 10, 1}, {945, 945, 420, 105, 15, 1}};
    for (int order = 1; order <= 5; ++order)
        for (int k = 0; k <= order; ++k)
            EXPECT_EQ(BesselCoefficient(order, k), rows[order - 1][k]) << "order " << order << ", k " << k;
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
    const struct {
        int order;
        double halfPower, halfAmplitude;
    } cases[] = {{1, 1, 1.7320570991975739},
                 {2, 1.3616461313682424, 1.9769605354598057},
                 {3, 1.7556880127995638, 2.4245555906339731},
                 {4, 2.1139287217715976, 2.8860245572148999},
                 {5, 2.4274150045255523, 3.3241638180914688},
                 {6, 2.7034027267972904, 3.7265383325659602}};
    for (const auto& [order, halfPower, halfAmplitude] : cases)
        for (int round = 0; round < 2; ++round) {  // the second time from what is kept
            EXPECT_EQ(DefaultCutoff(order, false), halfPower) << "order " << order;
            EXPECT_EQ(DefaultCutoff(order, true), halfAmplitude) << "order " << order;
        }
}

// Every order ends, and where the magnitude rounds to the target at five decimals.
TEST(DefaultCutoff, MeetsItsTargetAtEveryOrder)
{
    for (int order = kLowestOrder; order <= kHighestOrder; ++order)
        for (const bool halfAmplitude : {false, true}) {
            const double target = halfAmplitude ? 0.5 : 1.0 / std::numbers::sqrt2;
            EXPECT_NEAR(BesselResponse(order).MagnitudeAt(DefaultCutoff(order, halfAmplitude)), target, 5e-6)
                << "order " << order;
        }
}

TEST(SampledBesselThomson, IsOneAtDcAndHermitianByPairs)
{
    for (const std::size_t length : {1U, 2U, 3U, 4U, 7U, 8U, 1015U, 1016U}) {
        SCOPED_TRACE("length " + std::to_string(length));
        const auto bins = SampledBesselThomson(4, 2.0, 20e9, 400e9, length);
        ASSERT_EQ(bins.size(), length);
        EXPECT_EQ(bins[0], Complex(1.0, 0.0));
        for (std::size_t k = 1; k < length; ++k) {
            EXPECT_NE(bins[k], Complex()) << "bin " << k;
            if (2 * k != length) {
                EXPECT_EQ(bins[length - k], std::conj(bins[k])) << "bin " << k;
            }
        }
        if (length % 2 == 0) {  // half the sample rate is a bin of its own, as the response has it: not made real
            const Complex expected = BesselThomsonAt(4, 2.0 * 200e9 / 20e9);
            EXPECT_NEAR(std::abs(bins[length / 2] - expected), 0.0, 1e-11 * std::abs(expected));  // 500 steps of a sum
        }
    }
}

}  // namespace
