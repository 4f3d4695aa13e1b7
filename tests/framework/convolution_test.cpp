#include "framework/convolution.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/expectations.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

// Small integers: exact in every order of summing.
TEST(CircularConv, WrapsFoldsAndTakesEmptyArrays)
{
    const struct {
        const char* label;
        std::vector<double> x, h, y;
    } cases[] = {{"kernel as long as the period", {1, 2, 3}, {1, 10, 100}, {231, 312, 123}},
                 {"longer kernel is folded", {1, 2, 3}, {1, 0, 0, 1, 5}, {17, 9, 16}},
                 {"empty kernel", {1, 2}, {}, {0, 0}},
                 {"no samples", {}, {1, 2}, {}}};
    for (const auto& [label, x, h, y] : cases) {
        SCOPED_TRACE(label);
        const auto result =
            Take(Convolution::CircularConv(x.data(), static_cast<int>(x.size()), h.data(), static_cast<int>(h.size())),
                 x.size());
        EXPECT_EQ(result, y);
    }
}

TEST(CircularConvErrors, NameTheArgument)
{
    const double one[] = {1.0};
    const std::string where = "Convolution::CircularConv: ";
    ExpectRefused([&] { Convolution::CircularConv(one, -1, one, 1); }, where + "n is -1; expected 0 or more values");
    ExpectRefused([&] { Convolution::CircularConv(one, 1, one, -2); }, where + "m is -2; expected 0 or more values");
    ExpectRefused([&] { Convolution::CircularConv(nullptr, 1, one, 1); },
                  where + "x is null; expected an array of values");
    ExpectRefused([&] { Convolution::CircularConv(one, 1, nullptr, 1); },
                  where + "h is null; expected an array of values");
}

}  // namespace
