#include "workbench/acquisition.h"

#include <gtest/gtest.h>

#include "workbench/pattern.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

TEST(Acquisition, FindsTimingAndOpenLevelsOfSimulatedCaptures)
{
    const struct {
        const char* label;
        int order;
        E_SIGNAL_CODING coding;
        Simulation settings;
    } cases[] = {
        {"clean NRZ", 9, SIGNAL_CODING_NRZ, {.samplesPerUi = 10, .repetitions = 3}},
        {"square NRZ", 9, SIGNAL_CODING_NRZ, {.samplesPerUi = 8, .repetitions = 2, .riseUi = 0.0}},
        {"jittered NRZ", 11, SIGNAL_CODING_NRZ, {.samplesPerUi = 32, .repetitions = 2, .jitterRms = 0.02}},
        {"noisy PAM4", 9, SIGNAL_CODING_PAM4, {.samplesPerUi = 16, .repetitions = 2, .noiseRms = 0.005}},
        {"PAM4 behind a line",
         11,
         SIGNAL_CODING_PAM4,
         {.samplesPerUi = 16, .repetitions = 4, .lossDb = 6.0, .noiseRms = 0.01}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const auto levels = LevelsOf(PrbsSymbols(row.order, row.coding), row.coding, false);
        const std::vector<double> samples = Simulate(levels, LevelCount(row.coding), row.settings);
        const auto samplesPerUi = FindSamplesPerUi(samples);
        ASSERT_TRUE(samplesPerUi);
        EXPECT_EQ(samplesPerUi->value, row.settings.samplesPerUi);
        const auto period = FindPeriod(samples, samplesPerUi->value);
        ASSERT_TRUE(period);
        EXPECT_EQ(period->value, static_cast<double>(levels.size()) * row.settings.samplesPerUi);
        EXPECT_EQ(FindPatternLengthUi(samples, samplesPerUi->value), static_cast<int>(levels.size()));
        if (row.settings.lossDb == 0.0) {  // behind the line the eyes are closed
            EXPECT_EQ(FindLevels(samples, samplesPerUi->value).size(),
                      static_cast<std::size_t>(LevelCount(row.coding)));
            EXPECT_EQ(FindCoding(samples, samplesPerUi->value), row.coding);
        }
    }
}

TEST(Acquisition, FindsNothingWhereThereIsNothing)
{
    const std::vector<double> white = Simulate(std::vector<int>(1000, 0), 2, {.amplitude = 0.0, .noiseRms = 1.0});
    EXPECT_FALSE(FindSamplesPerUi(white));
    EXPECT_FALSE(FindPeriod(white, 16.0));
    const std::vector<double> constant(5000, 0.5);
    EXPECT_FALSE(FindSamplesPerUi(constant));
    EXPECT_FALSE(FindPeriod(constant, 16.0));
    EXPECT_FALSE(FindSamplesPerUi(std::vector<double>(3, 1.0)));
    const auto once = Simulate(LevelsOf(PrbsSymbols(9, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false), 2, {});
    EXPECT_FALSE(FindPeriod(once, 16.0));
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
