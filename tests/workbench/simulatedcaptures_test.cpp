#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include <gtest/gtest.h>

#include "support/failures.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::FailureOf;

// The bits start with ones and satisfy their polynomial all the way round.
TEST(PatternPrbs, IsAMaximalSequenceOfItsPolynomial)
{
    const struct {
        int order;
        std::vector<std::size_t> taps;
    } cases[] = {{7, {7, 6}}, {9, {9, 5}}, {11, {11, 9}}, {13, {13, 12, 2, 1}}, {15, {15, 14}}, {23, {23, 18}}};
    for (const auto& row : cases) {
        SCOPED_TRACE("order " + std::to_string(row.order));
        const std::string bits = PrbsSymbols(row.order, SIGNAL_CODING_NRZ);
        const std::size_t length = (std::size_t{1} << static_cast<unsigned>(row.order)) - 1;
        ASSERT_EQ(bits.size(), length);
        EXPECT_EQ(bits.substr(0, static_cast<std::size_t>(row.order)),
                  std::string(static_cast<std::size_t>(row.order), '1'));
        std::size_t wrong = 0;
        for (std::size_t k = 0; k < length; ++k) {
            int sum = bits[k] - '0';
            for (const std::size_t tap : row.taps)
                sum += bits[(k + length - tap) % length] - '0';
            wrong += static_cast<std::size_t>(sum % 2);
        }
        EXPECT_EQ(wrong, 0U);
    }
}

TEST(PatternPrbs, MakesPam4OfTheSequenceTakenTwice)
{
    const std::string bits = PrbsSymbols(13, SIGNAL_CODING_NRZ);
    const std::string symbols = PrbsSymbols(13, SIGNAL_CODING_PAM4);
    ASSERT_EQ(symbols.size(), 8191U);
    const std::string twice = bits + bits;
    for (std::size_t k = 0; k < symbols.size(); ++k)
        ASSERT_EQ(symbols[k] - '0', 2 * (twice[2 * k] - '0') + (twice[2 * k + 1] - '0')) << "symbol " << k;
}

TEST(PatternLevels, AreGrayCodesOfPam4AndPlainDigitsElsewhere)
{
    EXPECT_EQ(LevelsOf("0132", SIGNAL_CODING_PAM4, false), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(LevelsOf("0132", SIGNAL_CODING_PAM4_PRECODED, false), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(LevelsOf("0132", SIGNAL_CODING_PAM4, true), (std::vector<int>{0, 1, 3, 2}));
    EXPECT_EQ(LevelsOf("012", SIGNAL_CODING_PAM3, false), (std::vector<int>{0, 1, 2}));
}

TEST(PatternErrors, NameWhatIsWrong)
{
    EXPECT_EQ(FailureOf<UsageFailure>([] { PrbsSymbols(8, SIGNAL_CODING_NRZ); }),
              "PRBS order is 8; expected 7, 9, 11, 13, 15, 23 or 31");
    EXPECT_EQ(FailureOf<UsageFailure>([] { PrbsSymbols(7, SIGNAL_CODING_PAM3); }),
              "a PRBS has no PAM3 symbols; give them as a text");
    EXPECT_EQ(FailureOf<UsageFailure>([] { LevelsOf("0102", SIGNAL_CODING_NRZ, false); }),
              "symbol 3 is '2'; expected a digit below 2");
}

const std::vector<int> kLevels = {0, 3, 1, 2, 2, 0, 1, 3, 3, 0};

TEST(Simulate, HoldsTheLevelsAndMovesOnStraightEdges)
{
    const std::vector<double> samples = Simulate(kLevels, 4, {.samplesPerUi = 8, .amplitude = 6.0, .riseUi = 0.5});
    ASSERT_EQ(samples.size(), 80U);
    // Levels -3, -1, 1, 3. The second symbol, level 3: from -3 over two samples on either side of the boundary.
    const double expected[] = {-2.25, -0.75, 0.75, 2.25, 3, 3, 3, 3, 2.5, 1.5};
    for (std::size_t k = 0; k < std::size(expected); ++k)
        EXPECT_NEAR(samples[6 + k], expected[k], 1e-15) << "sample " << 6 + k;  // one rounding of values of order 1
}

TEST(Simulate, LosesWhatItIsAskedToAtHalfTheSymbolRate)
{
    Simulation settings;
    std::vector<int> clock;
    for (int k = 0; k < 32; ++k)
        clock.push_back(k % 2);
    // The fundamental of an alternating pattern is half the symbol rate.
    const auto fundamental = [&] {
        const std::vector<double> samples = Simulate(clock, 2, settings);
        std::complex<double> sum;
        for (std::size_t k = 0; k < samples.size(); ++k)
            sum += samples[k] * std::polar(1.0, -std::numbers::pi * static_cast<double>(k) / settings.samplesPerUi);
        return std::abs(sum);
    };
    const double clean = fundamental();
    settings.lossDb = 6.0;
    EXPECT_NEAR(20.0 * std::log10(clean / fundamental()), 6.0, 1e-9);  // rounding of a 512-point transform
}

TEST(Simulate, AddsNoiseAndJitterThatItsSeedDecides)
{
    Simulation settings;
    settings.repetitions = 200;
    const std::vector<double> clean = Simulate(kLevels, 4, settings);
    settings.noiseRms = 0.01;
    const std::vector<double> noisy = Simulate(kLevels, 4, settings);
    double power = 0.0;
    for (std::size_t k = 0; k < clean.size(); ++k)
        power += (noisy[k] - clean[k]) * (noisy[k] - clean[k]);
    // 32 000 values: the rms of their sample is within 2 % of the true one at five standard deviations.
    EXPECT_NEAR(std::sqrt(power / static_cast<double>(clean.size())), 0.01, 2e-4);
    EXPECT_EQ(noisy, Simulate(kLevels, 4, settings));
    settings.seed = 2;
    EXPECT_NE(noisy, Simulate(kLevels, 4, settings));

    settings.noiseRms = 0.0;
    settings.jitterRms = 0.05;
    const std::vector<double> jittered = Simulate(kLevels, 4, settings);
    const auto period = static_cast<std::ptrdiff_t>(jittered.size() / 200);
    EXPECT_FALSE(std::equal(jittered.begin(), jittered.begin() + period, jittered.begin() + period));
    for (std::size_t k = 8; k < jittered.size(); k += 16)
        EXPECT_NEAR(jittered[k], clean[k], 1e-15) << "the middle of UI " << k / 16 << " is flat";
}

// A cut is the same analytic waveform as the record without a seam, wherever its samples fall.
TEST(Simulate, CutsTheBandLimitedWaveformAtAnyRate)
{
    const auto levels = LevelsOf(PrbsSymbols(7, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false);
    const Simulation whole{.samplesPerUi = 10.0, .lossDb = 6.0, .bandLimited = true};
    Simulation cut = whole;
    cut.firstUi = 100;
    cut.lengthUi = 300;
    const std::vector<double> circle = Simulate(levels, 2, whole);
    const std::vector<double> same = Simulate(levels, 2, cut);
    ASSERT_EQ(same.size(), 3000U);
    // The symbols beyond the seam of the longer record, 1024 UI away, are others: the line's answer to them is 2e-5.
    for (std::size_t k = 0; k < same.size(); ++k)
        ASSERT_NEAR(same[k], circle[(1000 + k) % circle.size()], 4e-5) << "sample " << k;
    // 2000 ppm more samples in a UI: after 250 UI the clock is 5 samples, half a UI, behind. Edges are as far apart.
    cut.clockOffsetPpm = 2000.0;
    const std::vector<double> slower = Simulate(levels, 2, cut);
    ASSERT_EQ(slower.size(), 3006U);
    for (std::size_t k = 0; k < 40; ++k)
        EXPECT_NEAR(slower[2505 + k], same[2500 + k], 0.03) << "sample " << k;
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
