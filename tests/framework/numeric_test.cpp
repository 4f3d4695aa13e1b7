#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

#include "framework/complexconjugate.h"
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
    } cases[] = {{2.5, 0, 3.0},       {-2.5, 0, -3.0},           {0.125, 2, 0.13},           {-0.125, 2, -0.13},
                 {0.0000049, 5, 0.0}, {0.0000051, 5, 1e-5},      {1.23456, 3, 1.235},        {1e300, 20, 1e300},
                 {1e300, 400, 1e300}, {kInfinity, 5, kInfinity}, {-kInfinity, 0, -kInfinity}};
    for (const auto& [value, digits, rounded] : cases)
        EXPECT_EQ(NumberUtilities::Round(value, digits), rounded) << value << " to " << digits;
    EXPECT_TRUE(std::isnan(NumberUtilities::Round(std::nan(""), 5)));
}

TEST(RangeUtilities, GivesExtremesAndMean)
{
    const struct {
        std::vector<double> values;
        double lowest, highest, mean;
    } cases[] = {
        {{3.5}, 3.5, 3.5, 3.5}, {{-1.0, 4.0, 0.0}, -1.0, 4.0, 1.0}, {{2.0, kInfinity}, 2.0, kInfinity, kInfinity}};
    for (const auto& [values, lowest, highest, mean] : cases) {
        const int count = static_cast<int>(values.size());
        EXPECT_EQ(RangeUtilities::Min(values.data(), count), lowest);
        EXPECT_EQ(RangeUtilities::Max(values.data(), count), highest);
        EXPECT_EQ(RangeUtilities::Average(values.data(), count), mean);
    }
}

TEST(RangeUtilitiesErrors, NameOperationAndValue)
{
    const double value = 1.0;
    const struct {
        double (*operation)(const double*, int);
        std::string name;
    } cases[] = {{RangeUtilities::Min, "Min"}, {RangeUtilities::Max, "Max"}, {RangeUtilities::Average, "Average"}};
    for (const auto& each : cases) {
        const std::string where = "RangeUtilities::" + each.name;
        ExpectRefused([&] { each.operation(&value, 0); }, where + ": count is 0; expected at least one value");
        ExpectRefused([&] { each.operation(&value, -3); }, where + ": count is -3; expected at least one value");
        ExpectRefused([&] { each.operation(nullptr, 1); },
                      where + ": values is null; expected an array of count values");
    }
}

TEST(ComplexConjugate, TurnsTheSignOfTheImaginaryPart)
{
    EXPECT_EQ(ComplexConjugate::complexConjugate({1.5, -2.0}), std::complex<double>(1.5, 2.0));
    EXPECT_TRUE(std::signbit(ComplexConjugate::complexConjugate({1.0, 0.0}).imag()));
}

}  // namespace
