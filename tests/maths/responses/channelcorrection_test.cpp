#include "maths/responses/channelcorrection.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace Tarnwick::DSO::Maths;

// Of an even number of values the upper of the two in the middle is taken for the baseline: 5 here, the largest deviation
// from which is that of 1.
TEST(ChannelOnGrid, IsFreeOfItsMedianAndScaledByItsPeak)
{
    const std::vector<double> table = {4.0, 8.0, 2.0, 6.0, 1.0, 5.0, 7.0, 3.0};
    EXPECT_EQ(OnGrid({table, 0.0}, {8, 1e-12}), (std::vector<double>{-0.25, 0.75, -0.75, 0.25, -1.0, 0.0, 0.5, -0.5}));
}

}  // namespace
