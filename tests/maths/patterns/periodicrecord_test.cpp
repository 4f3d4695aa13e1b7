#include "maths/patterns/periodicrecord.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "maths/patterns/alignment.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

static_assert(WrappedIndex(7, 5) == 2 && WrappedIndex(0, 5) == 0 && WrappedIndex(-1, 5) == 4);
static_assert(WrappedIndex(-5, 5) == 0 && WrappedIndex(-11, 5) == 4);

TEST(PeriodicSample, LiesOnTheLineRoundTheEnd)
{
    const std::vector<double> samples{1.0, 3.0, -1.0, 5.0};
    const std::pair<double, double> cases[] = {{0.0, 1.0},  {0.5, 2.0},   {1.25, 2.0}, {3.5, 3.0},
                                               {-0.5, 3.0}, {-4.75, 4.0}, {9.0, 3.0},  {-5.0, 5.0}};
    for (const auto& [position, value] : cases)
        EXPECT_EQ(SampleAt(samples, position), value) << position;
    // A neighbour that is not finite does not reach a sample itself.
    const std::vector<double> broken{1.0, std::numeric_limits<double>::infinity()};
    EXPECT_EQ(SampleAt(broken, 2.0), 1.0);
}

// Against the sums of their definitions, at lags within and beyond the record; 33 values fill the running sums unevenly.
TEST(PeriodicProducts, AreThoseOfTheirDefinitions)
{
    for (const std::size_t count : {1U, 2U, 33U, 256U}) {
        const auto x = RandomValues(count, 1);
        const auto y = RandomValues(count, 2);
        std::vector<double> correlation(count);
        const double rounding = 4.0 * DBL_EPSILON * static_cast<double>(count);
        for (long long lag = -2 * static_cast<long long>(count); lag <= 2 * static_cast<long long>(count); ++lag) {
            SCOPED_TRACE(testing::Message() << count << " values, lag " << lag);
            double dot = 0.0;
            std::vector<double> sum(x);
            std::vector<double> expected(x);
            for (std::size_t i = 0; i < count; ++i) {
                const double turned = y[WrappedIndex(static_cast<long long>(i) + lag, count)];
                dot += x[i] * turned;
                expected[i] += 0.5 * turned;
            }
            ASSERT_NEAR(CircularDot(x, y, lag), dot, rounding);
            ASSERT_EQ(CircularDotInOrder(x, y, lag), dot);
            AddRotated(sum, 0.5, y, lag);
            ASSERT_TRUE(HaveSameBits(sum, expected));
            correlation[WrappedIndex(lag, count)] = dot;
        }
        // Over a stretch of the rows, wherever the one before began.
        const std::size_t rows = (count + 1) / 2;
        StretchProducts products(x, y, rows);
        products.MakeReady(1, std::vector<long long>{2, -1});
        for (const long long first : {0LL, 3LL, -2LL, static_cast<long long>(2 * count)}) {
            for (const long long lag : {0LL, 2LL, -1LL}) {
                double dot = 0.0;
                for (long long i = first; i < first + static_cast<long long>(rows); ++i)
                    dot += x[WrappedIndex(i, count)] * y[WrappedIndex(i + lag, count)];
                EXPECT_NEAR(products.At(first, lag), dot, rounding) << count << ", " << first << ", " << lag;
            }
        }
        // x is the reference, y the capture.
        EXPECT_TRUE(AreNear(CircularCorrelation(y, x), correlation, 4.0 * rounding));
        const auto capture = RandomValues(3 * count, 3);
        EXPECT_TRUE(AreNear(CircularCorrelationWithHeld(capture, x), CircularCorrelation(capture, Held(x, 3)),
                            12.0 * rounding));
    }
    EXPECT_EQ(CircularDot({}, {}, 3), 0.0);
    // Pieces of many lags in turn leave the same bits, be x as long as y or shorter.
    const auto y = RandomValues(5000, 4);
    const std::vector<long long> lags{0, 17, -5, 2500, 4999, -7000};
    for (const std::size_t count : {std::size_t{0}, std::size_t{3001}, y.size()}) {
        const auto x = RandomValues(count, 5);
        std::vector<double> expected;
        for (const long long lag : lags)
            expected.push_back(CircularDot(x, y, lag));
        EXPECT_TRUE(HaveSameBits(CircularDots(x, y, lags), expected)) << count;
    }
    EXPECT_EQ(CircularDotInOrder({}, {}, 3), 0.0);
}

// Not only how far the one lags, but which of them does, and whether it is inverted.
TEST(CircularLag, IsThatOfTheCaptureBehindTheReference)
{
    const auto reference = RandomValues(127, 3);
    for (const std::size_t lag : {0U, 1U, 40U, 126U}) {
        SCOPED_TRACE(lag);
        std::vector<double> capture(reference.size());
        AddRotated(capture, 0.5, reference, -static_cast<long long>(lag));  // capture[i] is half of reference[i - lag]
        const double peak = 0.5 * CircularDot(reference, reference, 0);
        EXPECT_EQ(LargestCorrelation(capture, reference).lag, lag);
        for (const double sign : {1.0, -1.0}) {
            for (double& value : capture)
                value *= sign;
            const CorrelationPeak found = LargestCorrelationOfEitherSign(capture, reference);
            EXPECT_EQ(found.lag, lag);
            EXPECT_NEAR(found.value, sign * peak, 1e-12);  // rounding of a transform of 127 values
        }
    }
    // The first one after lag 0 of equal peaks, here exact.
    EXPECT_EQ(LargestCorrelation(std::vector<double>{1, 0, 1, 0}, std::vector<double>{1, 0, 1, 0}).lag, 2U);
}

}  // namespace
