#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "framework/numberutilities.h"
#include "framework/rangeutilities.h"
#include "support/expectations.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using Tarnwick::Testing::ExpectRefused;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(NumberUtilitiesRound, GoesToTheNearestAndHalvesAwayFromZero)
{
    const struct {
        double value;
        int digits;
        double rounded;
    } cases[] = {{-2.5, 0, -3.0},    {0.125, 2, 0.13},    {0.0000049, 5, 0.0},       {1234.5, -2, 1200.0},
                 {1e300, 20, 1e300}, {1e300, 400, 1e300}, {kInfinity, 5, kInfinity}, {3.0, -400, 0.0}};
    for (const auto& [value, digits, rounded] : cases)
        EXPECT_EQ(NumberUtilities::Round(value, digits), rounded) << value << " to " << digits;
    EXPECT_TRUE(std::isnan(NumberUtilities::Round(std::nan(""), 5)));
}

TEST(RangeUtilities, GiveExtremesAndMeanOfAtLeastOneValue)
{
    const double values[] = {0.5, -1.0, 5.0, 1.5};
    const struct {
        double (*operation)(const double*, int);
        std::string name;
        double result;
    } cases[] = {{RangeUtilities::Min, "Min", -1.0},
                 {RangeUtilities::Max, "Max", 5.0},
                 {RangeUtilities::Average, "Average", 1.5}};
    for (const auto& each : cases) {
        const std::string where = "RangeUtilities::" + each.name;
        EXPECT_EQ(each.operation(values, 4), each.result) << each.name;
        ExpectRefused([&] { each.operation(values, 0); }, where + ": count is 0; expected at least one value");
        ExpectRefused([&] { each.operation(nullptr, 1); },
                      where + ": values is null; expected an array of count values");
    }
}

}  // namespace
