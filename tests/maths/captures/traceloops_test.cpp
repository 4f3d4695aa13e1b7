#include "maths/captures/traceloops.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kRows = 320;
constexpr std::int32_t kPitch = 352;
constexpr double kLow = -1.0;
constexpr double kRowsPerVolt = 40.0;

TraceRows Picture(double steepestRows)
{
    return {kLow,
            kRowsPerVolt,
            kLow + 0.001 / kRowsPerVolt,
            kLow + (kRows - 0.001) / kRowsPerVolt,
            steepestRows / kRowsPerVolt,
            30 - static_cast<int>(std::bit_width(kRows + 1)),
            1e-12};
}

// Each step rounded on its own.
std::int32_t RowOf(double a, double b, double part)
{
    const volatile double difference = b - a;
    const volatile double rise = part * difference;
    const volatile double value = a + rise;
    const volatile double above = value - kLow;
    const volatile double row = above * kRowsPerVolt;
    return static_cast<std::int32_t>(row);
}

struct Lines {
    const char* name;
    std::vector<double> a;
    std::vector<double> b;
};

std::vector<Lines> SomeLines(std::size_t count)
{
    std::mt19937 generator(2);
    std::uniform_int_distribution<int> eighths(-20, 8 * static_cast<int>(kRows) + 20);
    std::uniform_int_distribution<int> rise(-500, 500);
    std::uniform_real_distribution<double> anywhere(kLow, kLow + kRows / kRowsPerVolt);
    std::normal_distribution<double> little(0.0, 0.3);
    std::vector<Lines> all = {{"on borders", {}, {}}, {"anywhere", {}, {}}, {"level", {}, {}}, {"not finite", {}, {}}};
    for (std::size_t i = 0; i < count; ++i) {
        const int eighth = eighths(generator);
        all[0].a.push_back(kLow + eighth / 8.0 / kRowsPerVolt);
        all[0].b.push_back(kLow + (eighth + rise(generator)) / 8.0 / kRowsPerVolt);
        all[1].a.push_back(anywhere(generator));
        all[1].b.push_back(all[1].a.back() + little(generator));
        all[2].a.push_back(kLow + (i % 2 == 0 ? 22.0 : 297.0) / kRowsPerVolt);  // as a clean level often lies
        all[2].b.push_back(all[2].a.back() + (i % 3 == 0 ? 1e-16 : 0.0));
        all[3].a.push_back(i % 5 == 0 ? std::numeric_limits<double>::quiet_NaN() : anywhere(generator));
        all[3].b.push_back(i % 7 == 0 ? (i % 2 == 0 ? -1e300 : std::numeric_limits<double>::infinity())
                                      : all[3].a.back() + little(generator));
    }
    return all;
}

// Loops of every target round as one line of arithmetic does, also where a value lies on the border of two rows, and agree on the
// lines that are drawn together except within a thousandth of a row of the limits.
TEST(TraceLoops, KeysAreThoseOfTheFormula)
{
    const struct {
        const char* name;
        double first;
        double width;  // of a column
        double last;   // of the last one
        std::size_t count;
    } columns[] = {{"eight, the last one narrower", 0.0, 1.0 / 7.5, 0.5 / 7.5, 8},
                   {"seven", 0.5 / 7.5, 1.0 / 7.5, 1.0 / 7.5, 7},
                   {"two", 0.25, 0.5, 0.25, 2},
                   {"one", 0.75, 0.25, 0.25, 1},
                   {"eight of many", 0.2, 1.0 / 62.5, 1.0 / 62.5, 8}};
    std::size_t drawn = 0;
    for (const LoopTarget target : {LoopTarget::Plain, LoopTarget::Avx2, LoopTarget::Avx512}) {
        const TraceLoops* const loops = TraceLoopsFor(target);
        if (loops == nullptr)
            continue;
        for (const auto& column : columns)
            for (const std::size_t count : {0U, 1U, 3U, 8U, 31U, 33U, 2000U})
                for (const Lines& lines : SomeLines(count)) {
                    const std::vector<double>& a = lines.a;
                    const std::vector<double>& b = lines.b;
                    SCOPED_TRACE(testing::Message() << "target " << static_cast<int>(target) << ", " << column.name
                                                    << " columns, " << count << " lines " << lines.name);
                    std::vector<double> parts = {column.first};
                    for (std::size_t c = 1; c < column.count; ++c)
                        parts.push_back(column.first + static_cast<double>(c) * column.width);
                    parts.push_back(std::min(1.0, parts.back() + column.last));
                    constexpr double kSteepest = 50.0;
                    const std::size_t pairs = (column.count + 1) / 2;
                    std::vector<std::int32_t> keys(pairs * count + 1, -7);
                    const TraceKinds kinds = loops->keysOf(Picture(kSteepest), {parts.data(), column.count}, a.data(),
                                                           b.data(), count, kPitch, keys.data());
                    EXPECT_EQ(keys.back(), -7);
                    bool areAll = true;
                    double steepest = 0.0;
                    for (std::size_t i = 0; i < count; ++i) {
                        const double rise = std::abs(b[i] - a[i]) * kRowsPerVolt;
                        const double low = (std::min(a[i], b[i]) - kLow) * kRowsPerVolt;
                        const double high = (std::max(a[i], b[i]) - kLow) * kRowsPerVolt;
                        const bool isInside = low > 0.002 && high < kRows - 0.002 && rise < kSteepest - 0.001;
                        const bool isOther = !(low >= 0.0 && high <= kRows && rise <= kSteepest + 0.001);
                        const bool isDrawn = keys[i] != kOtherLine;
                        ASSERT_TRUE(isDrawn ? !isOther : !isInside) << i << ": " << low << " to " << high;
                        areAll = areAll && isDrawn;
                        drawn += isDrawn ? 1 : 0;
                        steepest = isDrawn ? std::max(steepest, rise) : steepest;
                        for (std::size_t pair = 0; pair < pairs; ++pair) {
                            const auto rowAt = [&](std::size_t part) { return RowOf(a[i], b[i], parts[part]); };
                            std::int32_t expected = kOtherLine;
                            if (isDrawn) {
                                const std::int32_t middle = rowAt(2 * pair + 1);
                                const std::int32_t behind = 2 * pair + 1 < column.count ? rowAt(2 * pair + 2) : middle;
                                expected = middle + kPitch * (4 * (middle - rowAt(2 * pair)) + behind - middle);
                            }
                            ASSERT_EQ(keys[pair * count + i], expected)
                                << "line " << i << " from " << a[i] << " to " << b[i] << ", pair " << pair;
                        }
                    }
                    EXPECT_EQ(kinds.areAll, areAll);
                    EXPECT_NEAR(kinds.steepest * kRowsPerVolt, steepest, 1e-5);  // fractions of 2^-21 rows
                }
    }
    EXPECT_GT(drawn, 50000U);
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
