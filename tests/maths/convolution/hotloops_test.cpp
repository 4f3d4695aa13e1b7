#include "maths/convolution/hotloops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numbers>
#include <vector>

#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;
using Values = std::vector<double>;
using ComplexValues = std::vector<Complex>;

constexpr double kGuard = 12345.0;

// The loops of each target against their definitions, in lengths that end anywhere in a pack or a line of the loops.
class HotLoopsOf : public testing::TestWithParam<LoopTarget> {
protected:
    void SetUp() override
    {
        loops_ = LoopsFor(GetParam());
        if (loops_ == nullptr)
            GTEST_SKIP() << "not in this build or not for this processor";
    }
    const HotLoops* loops_ = nullptr;
};

TEST_P(HotLoopsOf, SumTaps)
{
    constexpr std::size_t kReach = 20;
    for (std::size_t tapCount = 1; tapCount <= 9; ++tapCount)
        for (const std::size_t count : {1U, 3U, 8U, 1023U, 1029U}) {
            SCOPED_TRACE(testing::Message() << tapCount << " taps, " << count << " values");
            const Values samples = RandomValues(kReach + count + kReach, count);
            const Values values = RandomValues(tapCount, tapCount);
            std::vector<Tap> taps;
            for (std::size_t t = 0; t < tapCount; ++t)
                taps.push_back({static_cast<std::ptrdiff_t>(7 * t % (2 * kReach)) - 18, values[t]});
            Values expected(count + 1, kGuard);
            for (std::size_t i = 0; i < count; ++i) {
                long double sum = 0.0L;
                for (const Tap& tap : taps)
                    sum +=
                        static_cast<long double>(tap.value) * samples[kReach + i - static_cast<std::size_t>(tap.lag)];
                expected[i] = static_cast<double>(sum);
            }
            Values result(count + 1, kGuard);
            loops_->sumTaps(samples.data() + kReach, taps.data(), tapCount, result.data(), count);
            // Two roundings a tap, of sums below the number of taps.
            const auto n = static_cast<double>(tapCount);
            EXPECT_TRUE(AreNear(result, expected, n * n * DBL_EPSILON));
        }
}

TEST_P(HotLoopsOf, SumWindow)
{
    for (const std::size_t width : {1U, 2U, 3U, 7U, 8U, 31U, 100U})
        for (const std::size_t count : {1U, 6U, 50U})
            for (const double divisor : {0.0, 7.0}) {
                SCOPED_TRACE(testing::Message() << width << " wide, " << count << " values, divisor " << divisor);
                constexpr double kFactor = 0.3;
                const Values samples = RandomValues(count + width - 1, width);
                Values expected(count + 1, kGuard);
                for (std::size_t i = 0; i < count; ++i) {
                    long double sum = 0.0L;
                    for (std::size_t m = 0; m < width; ++m)
                        sum += samples[i + m];
                    expected[i] = static_cast<double>(divisor == 0.0 ? sum * kFactor : sum / divisor);
                }
                Values result(count + 1, kGuard);
                Values scratch(2 * (count + width));
                loops_->sumWindow(samples.data(), width, divisor, kFactor, result.data(), count, scratch.data());
                // 2 eps of the sum of |x|, which is at most the width, times the factor.
                EXPECT_TRUE(AreNear(result, expected, 2.0 * kFactor * static_cast<double>(width) * DBL_EPSILON));
            }
}

TEST_P(HotLoopsOf, SamplesBetweenSamples)
{
    constexpr std::size_t kTaps = 24;
    constexpr std::size_t kPhases = 5;
    const Values rows = RandomValues((kPhases + 1) * kTaps, 1);
    const Values samples = RandomValues(100, 2);
    const Values positions = {11.0, 11.1, 30.75, 50.9999, 40.4, 87.0};
    Values expected(positions.size() + 1, kGuard);
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const auto whole = static_cast<std::size_t>(positions[i]);
        const long double place = (positions[i] - static_cast<double>(whole)) * static_cast<double>(kPhases);
        const auto row = static_cast<std::size_t>(place);
        const long double fraction = place - static_cast<long double>(row);
        long double sum = 0.0L;
        for (std::size_t j = 0; j < kTaps; ++j)
            sum += samples[whole + 1 + j - kTaps / 2] *
                   ((1.0L - fraction) * rows[row * kTaps + j] + fraction * rows[(row + 1) * kTaps + j]);
        expected[i] = static_cast<double>(sum);
    }
    Values result(positions.size() + 1, kGuard);
    loops_->interpolate({rows.data(), kTaps, kPhases}, samples.data(), positions.data(), result.data(),
                        positions.size());
    // Two roundings a tap, of sums below the number of taps.
    EXPECT_TRUE(AreNear(result, expected, kTaps * kTaps * DBL_EPSILON));
}

TEST_P(HotLoopsOf, ProductsOfValues)
{
    for (std::size_t count = 1; count <= 17; ++count) {
        SCOPED_TRACE(testing::Message() << count << " values");
        const ComplexValues a = RandomComplex(count, 1);
        const ComplexValues b = RandomComplex(count, 2);
        const Complex factor(-0.7, 0.4);
        ComplexValues product;
        ComplexValues sum;
        for (std::size_t k = 0; k < count; ++k) {
            product.push_back(a[k] * b[k]);
            sum.push_back(b[k] + factor * a[k]);
        }
        constexpr double kBound = 4.0 * DBL_EPSILON;  // a few roundings of values below 2
        ComplexValues result = a;
        loops_->multiply(result.data(), b.data(), count);
        EXPECT_TRUE(AreNear(result, product, kBound));
        result = b;
        loops_->addScaledComplex(a.data(), factor, result.data(), count);
        EXPECT_TRUE(AreNear(result, sum, kBound));

        const Values x = RandomValues(count, 3);
        Values y = RandomValues(count, 4);
        Values expected = y;
        for (std::size_t k = 0; k < count; ++k)
            expected[k] += -0.7 * x[k];
        loops_->addScaled(x.data(), -0.7, y.data(), count);
        EXPECT_TRUE(AreNear(y, expected, kBound));
    }
}

// The tables of a transform of q rows of r values, in the ring z^(q r) = exp(-i ring).
struct Plan {
    Plan(std::size_t q, std::size_t r, double ring)
        : start(ring / static_cast<double>(q * r), r),
          step(2.0 * std::numbers::pi / static_cast<double>(q * r), r),
          anchorStep(2.0 * std::numbers::pi * kRowsPerAnchor / static_cast<double>(q * r), r),
          input(ring / static_cast<double>(q), q),
          plan{q,
               r,
               r + 8,
               start.real.data(),
               start.imag.data(),
               step.real.data(),
               step.imag.data(),
               anchorStep.real.data(),
               anchorStep.imag.data(),
               input.real.data(),
               input.imag.data()}
    {
    }
    struct Table {
        Table(double angle, std::size_t count)
        {
            for (std::size_t c = 0; c < count; ++c) {
                real.push_back(std::cos(angle * static_cast<double>(c)));
                imag.push_back(-std::sin(angle * static_cast<double>(c)));
            }
        }
        Values real, imag;
    };
    Table start, step, anchorStep, input;
    ColumnPlan plan;
};

// Row k, transformed along, holds bins k, k + q, k + 2 q ... of the whole transform.
void ExpectRowsOf(const ComplexValues& rows, const ColumnPlan& plan, const ComplexValues& values)
{
    const ComplexValues bins = DirectDft(values);
    for (std::size_t k = 0; k < plan.rowCount; ++k) {
        ComplexValues expected;
        for (std::size_t j = 0; j < plan.rowLength; ++j)
            expected.push_back(bins[k + plan.rowCount * j]);
        const auto row = DirectDft(std::span(rows).subspan(k * plan.pitch, plan.rowLength));
        EXPECT_TRUE(AreNear(row, expected, TransformBound(values))) << "row " << k;
    }
}

// Result and tail, each with a guard behind it, hold `factor` times the samples.
template <typename Value>
void ExpectScaled(std::vector<Value> result, const std::vector<Value>& tail, std::vector<Value> samples,
                  std::size_t factor, double bound)
{
    EXPECT_EQ(result.back(), kGuard);
    EXPECT_EQ(tail.back(), kGuard);
    result.pop_back();
    result.insert(result.end(), tail.begin(), tail.end() - 1);
    for (Value& sample : samples)
        sample *= static_cast<double>(factor);
    EXPECT_TRUE(AreNear(result, samples, bound * static_cast<double>(factor)));
}

TEST_P(HotLoopsOf, RealValuesToRowsAndBack)
{
    constexpr std::size_t kRow = 16;
    constexpr double kRing = std::numbers::pi / 2.0;  // z^M = -i
    for (std::size_t q = 1; q <= kMostRows; q *= 2) {
        const Plan tables(q, kRow, kRing);
        const std::size_t points = q * kRow;
        for (const std::size_t count : {std::size_t{3}, points - 6, points, points + 5, 2 * points - 1}) {
            SCOPED_TRACE(testing::Message() << q << " rows, " << count << " values");
            Values samples = RandomValues(count, count);
            ComplexValues rows(q * tables.plan.pitch);
            loops_->realToRows(tables.plan, samples.data(), count, rows.data());
            samples.resize(2 * points, 0.0);
            ComplexValues weighted(points);
            for (std::size_t n = 0; n < points; ++n)
                weighted[n] = Complex(samples[n], -samples[n + points]) *
                              std::polar(1.0, -kRing * static_cast<double>(n) / static_cast<double>(points));
            ExpectRowsOf(rows, tables.plan, weighted);

            Values result(count + 1, kGuard);
            Values tail(2 * points - count + 1, kGuard);
            loops_->realFromRows(tables.plan, rows.data(), count, result.data(), tail.data());
            ExpectScaled(result, tail, samples, q, TransformBound(weighted));
        }
    }
}

TEST_P(HotLoopsOf, ComplexValuesToRowsAndBack)
{
    constexpr std::size_t kRow = 24;
    for (std::size_t q = 1; q <= kMostRows; q *= 2) {
        const Plan tables(q, kRow, 0.0);
        const std::size_t points = q * kRow;
        for (const std::size_t count : {std::size_t{3}, points - 6, points - 1, points}) {
            SCOPED_TRACE(testing::Message() << q << " rows, " << count << " values");
            ComplexValues samples = RandomComplex(count, count);
            ComplexValues rows(q * tables.plan.pitch);
            loops_->complexToRows(tables.plan, samples.data(), count, rows.data());
            samples.resize(points);
            ExpectRowsOf(rows, tables.plan, samples);

            ComplexValues result(count + 1, kGuard);
            ComplexValues tail(points - count + 1, kGuard);
            loops_->complexFromRows(tables.plan, rows.data(), count, result.data(), tail.data());
            ExpectScaled(result, tail, samples, q, TransformBound(samples));
        }
    }
}

TEST_P(HotLoopsOf, ColumnsSplitAndJoined)
{
    for (std::size_t q = 2; q <= kMostRows; q *= 2)
        for (const std::size_t r : {1U, 4U, 7U, 8U, 21U}) {
            SCOPED_TRACE(testing::Message() << q << " rows of " << r);
            Values samples = RandomValues(q * r, q + r);
            Values first(r + 1, kGuard);
            Values middle(r + 1, kGuard);
            ComplexValues inner((q / 2 - 1) * r + 1, kGuard);
            const SplitRows rows{first.data(), middle.data(), inner.data()};
            loops_->splitColumns(samples.data(), q, r, rows);
            EXPECT_EQ(first.back(), kGuard);
            EXPECT_EQ(middle.back(), kGuard);
            EXPECT_EQ(inner.back(), kGuard);
            for (std::size_t c = 0; c < r; ++c) {
                ComplexValues column;
                for (std::size_t t = 0; t < q; ++t)
                    column.emplace_back(samples[t * r + c]);
                ComplexValues bins{first[c]};
                for (std::size_t k = 1; k < q / 2; ++k)
                    bins.push_back(inner[(k - 1) * r + c]);
                bins.emplace_back(middle[c]);
                ComplexValues expected = DirectDft(column);
                expected.resize(q / 2 + 1);
                EXPECT_TRUE(AreNear(bins, expected, TransformBound(column))) << "column " << c;
            }
            Values result(q * r + 1, kGuard);
            loops_->joinColumns(rows, q, r, result.data());
            for (double& sample : samples)
                sample *= static_cast<double>(q);
            samples.push_back(kGuard);
            const auto n = static_cast<double>(q);
            EXPECT_TRUE(AreNear(result, samples, 8.0 * DBL_EPSILON * std::log2(2.0 * n) * n));
        }
}

INSTANTIATE_TEST_SUITE_P(Targets, HotLoopsOf, testing::Values(LoopTarget::Plain, LoopTarget::Avx2),
                         [](const testing::TestParamInfo<LoopTarget>& target) {
                             return target.param == LoopTarget::Plain ? "Plain" : "Avx2";
                         });

}  // namespace
