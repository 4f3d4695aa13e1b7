#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <vector>

#include <gtest/gtest.h>

#include "maths/equalisers/phasefit.h"
#include "support/signals.h"

namespace Tarnwick::DSO::Maths {

namespace {

using Testing::RandomValues;

constexpr std::size_t kSamplesPerUi = 4;

// Levels through a main cursor and two post-cursors that only one phase of the UI, 2, is free of other interference at.
std::vector<double> Echoed(const std::vector<double>& levels)
{
    std::vector<double> record;
    const std::size_t count = levels.size();
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t p = 0; p < kSamplesPerUi; ++p)
            record.push_back(0.3 + 0.5 * levels[i] + 0.2 * levels[(i + count - 1) % count] -
                             0.05 * levels[(i + count - 2) % count] + (p == 2 ? 0.0 : 0.1) * levels[(i + 1) % count]);
    return record;
}

// What the feedback takes off is left to it exactly, wherever the symbols lie in the record.
TEST(PhaseFit, LeavesThePostCursorsToTheFeedback)
{
    const std::vector<double> levels = RandomValues(300, 1);
    const struct {
        const char* label;
        std::size_t rotation;   // [samples] of the record against the levels
        std::size_t ignoredUi;  // then the ends are spoilt
        double gain;
    } cases[] = {{"circular", 0, 0, 1.0},
                 {"circular, rotated", 501, 0, 1.0},
                 {"inverted", 3, 0, -2.0},
                 {"without its ends", 0, 4, 1.0},
                 {"without its ends, rotated", 7, 4, 1.0}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        std::vector<double> record = Echoed(levels);
        std::rotate(record.begin(), record.end() - static_cast<std::ptrdiff_t>(row.rotation), record.end());
        for (double& value : record)
            value *= row.gain;
        for (std::size_t k = 0; k < row.ignoredUi * kSamplesPerUi; ++k)
            record[k] = record[record.size() - 1 - k] = 5.0;
        const auto fit = FitAtSamplingPhase({.samples = record,
                                             .samplesPerUi = kSamplesPerUi,
                                             .levels = levels,
                                             .tapDelays = {0},
                                             .feedbackTaps = 2,
                                             .ignoredUi = row.ignoredUi});
        ASSERT_TRUE(fit);
        EXPECT_EQ(fit->phase, 2U);
        // Rounding of sums of 300 products of order 1, times a condition below 10.
        EXPECT_NEAR(fit->taps[0], 2.0 / row.gain, 1e-12);
        EXPECT_NEAR(fit->feedback[0], -0.4, 1e-12);
        EXPECT_NEAR(fit->feedback[1], 0.1, 1e-12);
        EXPECT_NEAR(fit->constant, -0.6, 1e-12);
        EXPECT_LT(fit->residual, 1e-20);
    }
}

// At phase 2 a feedback could take off all interference without error, but a DFE behind would see other levels: those of the
// post-cursor that is larger than the main cursor, or all of them turned over.
TEST(PhaseFit, LeavesTheFeedbackNothingThatItMistakes)
{
    const std::vector<double> levels = RandomValues(300, 3);
    const std::size_t count = levels.size();
    const struct {
        const char* label;
        double main;         // at phase 2
        double mainAtOther;  // phases
        double post;
        double preAtOther;
        bool isInverted;
        double residual;
    } cases[] = {{"larger post-cursor", 0.5, 0.5, 0.8, 0.0, false, 0.25 / 0.89},
                 {"turned over", 1.0, 0.0, -0.9, 0.3, true, 0.09 / 0.90}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        std::vector<double> record;
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t p = 0; p < kSamplesPerUi; ++p)
                record.push_back((p == 2 ? row.main : row.mainAtOther) * levels[i] +
                                 row.post * levels[(i + count - 1) % count] +
                                 (p == 2 ? 0.0 : row.preAtOther) * levels[(i + 1) % count]);
        const auto fit = FitAtSamplingPhase(
            {.samples = record, .samplesPerUi = kSamplesPerUi, .levels = levels, .tapDelays = {0}, .feedbackTaps = 1});
        ASSERT_TRUE(fit);
        EXPECT_LE(std::abs(fit->feedback[0]), 1.0);
        EXPECT_EQ(fit->taps[0] < 0.0, row.isInverted);
        EXPECT_EQ(fit->isInverted, row.isInverted);
        // The power of the pre-cursor that is left, and the chance of 300 values.
        EXPECT_NEAR(fit->residual, row.residual, 0.05);
    }
}

TEST(PhaseFit, FindsNothingThatTheRecordCannotTell)
{
    const std::vector<double> levels = RandomValues(40, 2);
    std::vector<double> held;
    for (const double level : levels)
        held.insert(held.end(), kSamplesPerUi, level);
    PhaseFitProblem problem{.samples = held, .samplesPerUi = kSamplesPerUi, .levels = levels, .tapDelays = {0, 1, 2}};
    EXPECT_FALSE(FitAtSamplingPhase(problem)) << "three taps in a UI, of which at least two see the same sample";
    problem.ridge = 1e-6;
    EXPECT_TRUE(FitAtSamplingPhase(problem));
    problem.ridge = 0.0;
    problem.tapDelays = {0, 4};
    EXPECT_TRUE(FitAtSamplingPhase(problem));
    problem.ignoredUi = 18;
    EXPECT_FALSE(FitAtSamplingPhase(problem)) << "4 UI are left";
    std::vector<double> harmonics;
    for (int k = 0; k < 160; ++k)
        harmonics.push_back(std::cos(2.0 * std::numbers::pi * k / 160.0) +
                            std::cos(4.0 * std::numbers::pi * k / 160.0));
    problem = {
        .samples = harmonics, .samplesPerUi = kSamplesPerUi, .levels = levels, .tapDelays = {0, 32, 64, 96, 128}};
    EXPECT_FALSE(FitAtSamplingPhase(problem)) << "two harmonics tell four taps apart, and the fifth pivot is rounding";
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
