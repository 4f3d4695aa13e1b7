#include "workbench/eye.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

std::vector<int> Symbols(int levelCount)
{
    std::vector<int> symbols;
    for (int k = 0; k < 400; ++k)
        symbols.push_back((k * k / 3 + k / 5 + 2 * (k % 7)) % levelCount);
    return symbols;
}

// Between straight edges of half a UI every eye is as high as the distance of its two levels.
TEST(EyeMeasure, FindsLevelsHeightsAndPhaseOfIdealSignals)
{
    for (const int levelCount : {2, 3, 4}) {
        SCOPED_TRACE(std::to_string(levelCount) + " levels");
        const EyeReport report =
            MeasureEyes(Simulate(Symbols(levelCount), levelCount, {.riseUi = 0.5}), 16.0, levelCount);
        ASSERT_EQ(report.levels.size(), static_cast<std::size_t>(levelCount));
        ASSERT_EQ(report.eyes.size(), static_cast<std::size_t>(levelCount - 1));
        for (int k = 0; k < levelCount; ++k)
            EXPECT_NEAR(report.levels[static_cast<std::size_t>(k)], -0.5 + 1.0 * k / (levelCount - 1), 1e-12);
        for (const EyeOpening& eye : report.eyes)
            EXPECT_NEAR(eye.height, 1.0 / (levelCount - 1), 1e-12);
        // The middle of the flat part, which lies half a UI behind the edges; samples stand at (k + 1/2)/16 UI.
        EXPECT_NEAR(report.phaseUi, 0.5, 1.0 / 16);
    }
}

TEST(EyeMeasure, MeasuresTheWidthWhereTheOpeningCloses)
{
    // NRZ with straight edges over the whole UI: triangles. The opening falls from 1 in the middle to 0 at the boundary.
    std::vector<double> samples = Simulate(Symbols(2), 2, {.samplesPerUi = 32, .riseUi = 1.0});
    const EyeReport report = MeasureEyes(samples, 32.0, 2);
    EXPECT_NEAR(report.eyes[0].widthUi, 1.0, 1.0 / 32);
    // A wobble of 0.2 from UI to UI takes 0.4 off the opening everywhere.
    for (std::size_t k = 0; k < samples.size(); ++k)
        samples[k] += k / 32 % 2 == 0 ? 0.2 : -0.2;
    const EyeReport narrowed = MeasureEyes(samples, 32.0, 2);
    EXPECT_NEAR(narrowed.eyes[0].height, 0.6, 1.0 / 16);
    EXPECT_NEAR(narrowed.eyes[0].widthUi, 0.6, 1.0 / 16);  // the opening falls by 2 a UI to either side
}

TEST(EyeMeasure, InterpolatesFractionalSampling)
{
    // A triangle of two UI, its peaks of 1 and -1 half a UI behind the boundaries, at 2.5 samples per UI: a straight line
    // from 0.8 to 0.4 has 0.7 at the peak.
    const double period[] = {0.0, 0.8, 0.4, -0.4, -0.8};
    std::vector<double> samples;
    for (std::size_t k = 0; k < 500; ++k)
        samples.push_back(period[k % 5]);
    const EyeReport report = MeasureEyes(samples, 2.5, 2);
    ASSERT_EQ(report.eyes.size(), 1U);
    EXPECT_NEAR(report.eyes[0].height, 1.4, 1e-12);
}

TEST(EyeMeasure, SaysNothingOfWhatHasNoEyes)
{
    std::vector<double> broken = Simulate(Symbols(2), 2, {});
    broken[7] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(MeasureEyes(broken, 16.0, 2).levels.empty());
    EXPECT_TRUE(MeasureEyes(std::vector<double>(160, 0.25), 16.0, 2).levels.empty());
    EXPECT_TRUE(MeasureEyes(std::vector<double>(16, 0.25), 16.0, 4).levels.empty());
    EXPECT_TRUE(MeasureEyes(std::vector<double>(), 16.0, 4).levels.empty());
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
