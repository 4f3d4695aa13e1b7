#include "workbench/transferfunction.h"

#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

namespace Tarnwick::DSO::Workbench {

namespace {

TEST(TransferFunction, OfAShiftIsItsDelay)
{
    const struct {
        int count;
        int shift;
        int delay;
    } cases[] = {{64, 0, 0}, {64, 5, 5}, {64, 32, 32}, {64, 61, -3}, {63, 31, 31}, {63, 32, -31}, {1, 0, 0}};
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << row.shift << " of " << row.count);
        std::vector<double> impulse(static_cast<std::size_t>(row.count), 0.0);
        impulse[static_cast<std::size_t>(row.shift)] = -2.0;
        const TransferFunction function = Transform(impulse, 1e9);
        EXPECT_EQ(function.peak, row.delay);
        ASSERT_EQ(function.magnitudeDb.size(), static_cast<std::size_t>(row.count / 2 + 1));
        for (std::size_t k = 0; k < function.magnitudeDb.size(); ++k) {
            // Rounding of a transform of 64 points.
            EXPECT_NEAR(function.magnitudeDb[k], 20.0 * std::log10(2.0), 1e-12);
            EXPECT_NEAR(function.groupDelay[k], row.delay * 1e-9, 1e-21);
        }
    }
}

// h = (1/2, 1/2): H = cos(pi f/fs) exp(-j pi f/fs).
TEST(TransferFunction, OfTwoTapsHasTheFiguresOfACosine)
{
    std::vector<double> impulse(1024, 0.0);
    impulse[0] = impulse[1] = 0.5;
    const TransferFunction function = Transform(impulse, 8e9);
    EXPECT_TRUE(std::isnan(function.groupDelay.back()));
    // Hann's window weighs the second tap by 1e-5 less.
    EXPECT_NEAR(function.groupDelay[100], 0.5 / 8e9, 1e-5 / 8e9);
    const ResponseFigures figures = FiguresOf(function, 2e9);
    EXPECT_NEAR(figures.dcGainDb, 0.0, 1e-12);
    EXPECT_NEAR(figures.halfRateGainDb, 20.0 * std::log10(std::cos(std::numbers::pi / 8.0)), 1e-12);
    EXPECT_EQ(figures.peakFrequency, 0.0);
    ASSERT_TRUE(figures.cutoffFrequency && figures.noiseBandwidth);
    EXPECT_NEAR(*figures.cutoffFrequency, 2e9, 1.0);
    EXPECT_NEAR(figures.noiseGain, std::sqrt(0.5), 1e-15);
    EXPECT_NEAR(*figures.noiseBandwidth, 2e9, 1e-3);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
