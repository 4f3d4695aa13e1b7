#include "maths/captures/leveldrift.h"

#include <cmath>

#include <gtest/gtest.h>

namespace Tarnwick::DSO::Maths {

namespace {

// Two levels that sag by 1 mV a UI, read half way between two samples.
TEST(LevelDrift, FollowsEachLevelBlockByBlock)
{
    constexpr int kUi = 40;
    std::vector<double> samples;
    for (int ui = 0; ui < kUi; ++ui)
        for (int k = 0; k < 4; ++k)
            samples.push_back((ui % 2 == 0 ? 0.0 : 1.0) - 1e-3 * (ui + 0.25 * k));
    const double thresholds[] = {0.5};
    const auto levels = LevelDrift(samples, {4.0, 0.375, thresholds}, 10);
    ASSERT_EQ(levels.size(), 2U);
    ASSERT_EQ(levels[0].size(), 4U);
    for (int block = 0; block < 4; ++block)
        for (int level = 0; level < 2; ++level)
            EXPECT_NEAR(levels[level][block], level - 1e-3 * (10 * block + 4 + level + 0.375), 1e-12);
    const auto missing = LevelDrift(std::vector<double>(80, 1.0), {4.0, 0.5, thresholds}, 10);
    EXPECT_TRUE(std::isnan(missing[0][0]));
    EXPECT_EQ(missing[1], std::vector<double>(2, 1.0));
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
