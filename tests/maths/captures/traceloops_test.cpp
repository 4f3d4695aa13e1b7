#include "maths/captures/traceloops.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace Tarnwick::DSO::Maths {

namespace {

std::vector<const TraceLoops*> AllLoops()
{
    std::vector<const TraceLoops*> all;
    for (const LoopTarget target : {LoopTarget::Plain, LoopTarget::Avx2})
        if (const TraceLoops* loops = TraceLoopsFor(target))
            all.push_back(loops);
    return all;
}

// Every loop rounds as one line of arithmetic does, also where a value lies on the border of two rows.
TEST(TraceLoops, RowsAreThoseOfTheFormula)
{
    std::mt19937 generator(2);
    std::uniform_int_distribution<int> eighths(-20, 340);
    const TraceRows picture{-1.0, 40.0, 321.0};
    for (const std::size_t count : {0U, 1U, 3U, 4U, 15U, 16U, 33U, 500U}) {
        std::vector<double> a(count);
        std::vector<double> b(count);
        for (std::size_t i = 0; i < count; ++i) {
            a[i] = -1.0 + eighths(generator) / 40.0;
            b[i] = -1.0 + eighths(generator) / 40.0;
        }
        for (const double part : {0.0, 1.0 / 3.0, 0.5, 1.0}) {
            std::vector<std::int16_t> expected(count + 1, -7);
            for (std::size_t i = 0; i < count; ++i) {
                // Each step rounded on its own.
                const volatile double rise = part * (b[i] - a[i]);
                const volatile double scaled = (a[i] + rise + 1.0) * 40.0;
                expected[i] = static_cast<std::int16_t>(std::clamp(scaled + 1.0, 0.0, 321.0));
            }
            for (const TraceLoops* loops : AllLoops()) {
                std::vector<std::int16_t> rows(count + 1, -7);
                loops->rowsAt(picture, a.data(), b.data(), part, count, rows.data());
                EXPECT_EQ(rows, expected) << count << " values at " << part;
            }
        }
    }
}

TEST(TraceLoops, PlacesAreOfTheLowerRowAndTheDistance)
{
    const std::vector<std::int16_t> a = {0, 5, 9, 12, 100, 320, 7, 7, 1, 2, 3, 4, 5, 6, 7, 8, 9, 4000};
    const std::vector<std::int16_t> b = {0, 6, 3, 12, 200, 1, 14, 13, 1, 1, 1, 1, 1, 1, 1, 1, 1, 3999};
    for (const TraceLoops* loops : AllLoops()) {
        std::vector<std::uint16_t> places(a.size());
        EXPECT_EQ(loops->placesOf(a.data(), b.data(), a.size(), 8, 7, places.data()), 319);
        for (std::size_t i = 0; i < a.size(); ++i)
            EXPECT_EQ(places[i], 8 * std::min(a[i], b[i]) + std::min(7, std::abs(a[i] - b[i]))) << i;
    }
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
