#include "workbench/signalquality.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "support/failures.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

bool IsRotation(const std::vector<int>& found, std::vector<int> sent)
{
    const bool isAsLong = found.size() == sent.size();
    sent.insert(sent.end(), sent.begin(), sent.end());
    return isAsLong && std::search(sent.begin(), sent.end(), found.begin(), found.end()) != sent.end();
}

std::vector<int> Ternary()
{
    std::vector<int> levels;
    for (int k = 0; k < 301; ++k)
        levels.push_back((k * k / 3 + k / 5 + 2 * (k % 7)) % 3);
    return levels;
}

TEST(SymbolSearch, FindsEveryCodingInAClosedEye)
{
    const struct {
        E_SIGNAL_CODING coding;
        std::vector<int> levels;
    } cases[] = {
        {SIGNAL_CODING_NRZ, LevelsOf(PrbsSymbols(9, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false)},
        {SIGNAL_CODING_PAM3, Ternary()},
        {SIGNAL_CODING_PAM4, LevelsOf(PrbsSymbols(11, SIGNAL_CODING_PAM4), SIGNAL_CODING_PAM4, false)},
    };
    for (const auto& [coding, levels] : cases) {
        SCOPED_TRACE(NameOf(coding));
        const int levelCount = LevelCount(coding);
        const auto samples = Simulate(levels, levelCount, {.repetitions = 2, .lossDb = 12.0, .noiseRms = 0.002});
        const FoundSymbols found = FindSymbols(samples, 16.0, static_cast<int>(levels.size()), coding, "capture");
        EXPECT_TRUE(IsRotation(found.levels, levels));
        EXPECT_TRUE(found.Certain()) << found.quality;
        EXPECT_EQ(found.voltages.size(), static_cast<std::size_t>(levelCount));
        EXPECT_EQ(LevelsOf(found.Text(coding, false), coding, false), found.levels);
        EXPECT_EQ(LevelsOf(found.Text(coding, true), coding, true), found.levels);
    }
    const std::vector<double> flat(2032, 0.1);
    const auto failureOver = [&](int patternLengthUi) {
        return Testing::FailureOf<DataFailure>(
            [&] { FindSymbols(flat, 16.0, patternLengthUi, SIGNAL_CODING_NRZ, "flat"); });
    };
    EXPECT_EQ(failureOver(127).rfind("flat: no NRZ pattern of 127 UI can be made out in it", 0), 0U);
    EXPECT_EQ(failureOver(511), "flat: has 2032 samples; one period of 511 UI takes 8176");
}

TEST(SignalQualityMeasure, TellsTheLevelMismatch)
{
    using Levels = std::vector<double>;
    EXPECT_NEAR(LevelMismatchRatio(Levels{0, 1, 2, 3}), 1.0, 1e-15);
    // An inner level too near to the middle, or to the outer one.
    EXPECT_NEAR(LevelMismatchRatio(Levels{-3, -0.9, 1, 3}), 0.9, 1e-15);
    EXPECT_NEAR(LevelMismatchRatio(Levels{-3, -1, 0.9, 3}), 0.9, 1e-15);
    EXPECT_NEAR(LevelMismatchRatio(Levels{-3, -1.2, 1, 3}), 0.8, 1e-15);
    EXPECT_NEAR(LevelMismatchRatio(Levels{-3, -1, 1.2, 3}), 0.8, 1e-15);
}

TEST(SignalQualityMeasure, SeesLossAndOnlyMeasuresWhatThereIs)
{
    const auto levels = LevelsOf(PrbsSymbols(13, SIGNAL_CODING_PAM4), SIGNAL_CODING_PAM4, false);
    double before = -1.0;
    for (const double loss : {1.0, 4.0, 8.0}) {
        const auto samples = Simulate(levels, 4, {.lossDb = loss});
        const SignalQuality quality = MeasureSignalQuality(samples, {16.0, SIGNAL_CODING_PAM4, 8191}, 5, "capture");
        ASSERT_TRUE(quality.equaliser) << quality.whyNoTdecq;
        EXPECT_FALSE(quality.equaliser->leavesEyeClosed);
        EXPECT_GT(quality.equaliser->tdecqDb, before);
        EXPECT_LT(quality.equaliser->tdecqDb, 4.0);
        EXPECT_NEAR(*quality.levelMismatchRatio, 1.0, 0.02);
        before = quality.equaliser->tdecqDb;
    }
    const auto samples = Simulate(levels, 4, {});
    const auto whyNot = [&](double samplesPerUi, int patternLengthUi, E_SIGNAL_CODING coding) {
        const SignalQuality quality =
            MeasureSignalQuality(samples, {samplesPerUi, coding, patternLengthUi}, 5, "capture");
        EXPECT_FALSE(quality.equaliser);
        return quality.whyNoTdecq;
    };
    EXPECT_EQ(whyNot(16.0, 8191, SIGNAL_CODING_NRZ), "it is defined for PAM4");
    EXPECT_EQ(whyNot(16.0, 0, SIGNAL_CODING_PAM4), "the pattern's length is not known");
    EXPECT_EQ(whyNot(15.998, 8191, SIGNAL_CODING_PAM4), "15.998 samples per UI are not a whole number");
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
