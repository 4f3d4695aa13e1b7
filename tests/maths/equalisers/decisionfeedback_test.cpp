#include "maths/equalisers/decisionfeedback.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

// The delay is written in picoseconds and read back by truncation: no sample may be lost on the way, and the value
// written lies at most one rounding above the quotient.
TEST(SamplingDelay, ComesBackToTheSampleItStoodFor)
{
    for (const int samplesPerUi : {3, 4, 7, 8, 16, 20, 31, 64})
        for (const double rate : {1.25, 5.0, 8.0, 10.3125, 12.5, 25.78125, 26.5625, 28.0, 53.125, 112.0})
            for (int k = 0; k < samplesPerUi; ++k) {
                const double quotient = k * 1000.0 / (samplesPerUi * rate);
                const double delay = DelayFromSamples(k, samplesPerUi, rate);
                EXPECT_EQ(SamplesFromDelay(delay, samplesPerUi, rate), k) << samplesPerUi << ", " << rate;
                EXPECT_TRUE(delay == quotient ||
                            delay == std::nextafter(quotient, std::numeric_limits<double>::infinity()))
                    << samplesPerUi << ", " << rate << ", " << k;
            }
    EXPECT_EQ(SamplesFromDelay(7 * 1000.0 / (8 * 26.5625), 8, 26.5625), 6);  // a sample that the quotient loses
    EXPECT_EQ(SamplesFromDelay(4.7, 8, 26.5625), 0);
    EXPECT_EQ(SamplesFromDelay(-4.71, 8, 26.5625), -1);
}

std::vector<double> RandomSymbols(std::size_t count, int levels)
{
    std::vector<double> symbols = RandomValues(count, 3);
    for (double& symbol : symbols)
        symbol = 2.0 * std::floor((symbol + 1.0) / 2.0 * levels) / (levels - 1) - 1.0;
    return symbols;
}

// The held symbols with echoes a whole number of UIs later, on the offset of 0.3.
std::vector<double> Held(const std::vector<double>& symbols, const std::vector<double>& echoes, int samplesPerUi)
{
    std::vector<double> samples;
    for (std::size_t i = 0; i < symbols.size(); ++i) {
        double value = symbols[i];
        for (std::size_t j = 0; j < echoes.size(); ++j)
            value += echoes[j] * symbols[(i + symbols.size() - j - 1) % symbols.size()];
        samples.insert(samples.end(), static_cast<std::size_t>(samplesPerUi), 0.05 * value + 0.3);
    }
    return samples;
}

// Nothing but the taps stands between the samples and the symbols: every delay leaves only rounding, and the middle of the
// UI is taken. The record is rotated by a third of the pattern and three samples, so that a UI begins at sample 5. Ends
// that are ignored may hold anything.
TEST(FeedbackSearch, FindsTheEchoesOfANoiseFreeRecordExactly)
{
    const std::vector<double> echoes{0.25, 0.12, -0.05};
    for (const int levels : {2, 3, 4}) {
        const auto symbols = RandomSymbols(301, levels);
        auto samples = Held(symbols, echoes, 8);
        std::rotate(samples.begin(), samples.begin() + 803, samples.end());
        for (const std::size_t ignoredUi : {0U, 7U}) {
            SCOPED_TRACE(std::to_string(levels) + " levels, ignored " + std::to_string(ignoredUi));
            for (std::size_t k = 0; k < 8 * ignoredUi; ++k)
                samples[k] = samples[samples.size() - 1 - k] = 40.0 * std::sin(static_cast<double>(k * k));
            const FeedbackSearch found = FindFeedback(samples, symbols, 8.0, 3, ignoredUi);
            ASSERT_EQ(found.outcome, FeedbackSearch::Outcome::Found);
            EXPECT_EQ(found.delay, 5 + 4 - 8);
            EXPECT_NEAR(found.opening, 1.0, 1e-12);
            EXPECT_TRUE(AreNear(found.taps, echoes, 1e-12));  // rounding of sums over 301 symbols
            EXPECT_LT(found.residual, 1e-12);
        }
    }
}

TEST(FeedbackSearch, SaysWhyThereIsNothingToFind)
{
    using Outcome = FeedbackSearch::Outcome;
    const auto symbols = RandomSymbols(64, 2);
    const auto alternating = Tiled({1.0, -1.0}, 32);
    EXPECT_EQ(FindFeedback(Held(symbols, {}, 4), alternating, 4.0, 1).outcome, Outcome::SymbolsAlike);
    EXPECT_EQ(FindFeedback(Held(symbols, {}, 4), Constant(1.0, 64), 4.0, 0).outcome, Outcome::SymbolsAlike);
    EXPECT_EQ(FindFeedback(Constant(0.7, 256), symbols, 4.0, 1).outcome, Outcome::NoMainCursor);
    const FeedbackSearch noise = FindFeedback(RandomValues(256, 2), symbols, 4.0, 50);
    EXPECT_EQ(noise.outcome, Outcome::TapsAboveCursor);
    EXPECT_GT(noise.largestTap, 1.0);
    EXPECT_EQ(FindFeedback(Constant(std::nan(""), 256), symbols, 4.0, 1).outcome, Outcome::NoMainCursor);
    EXPECT_EQ(FindFeedback(Held(symbols, {}, 4), symbols, 4.0, 1, 30).outcome, Outcome::NoMainCursor);
}

// One sample far off makes one decision wrong; the feedback of it may pull the next ones along. Each right decision
// takes one tap of the error away, and behind the last the result is that of the clean record.
TEST(DecisionFeedback, RecoversFromAWrongDecision)
{
    const std::vector<double> taps{0.5, 0.3};
    const auto symbols = RandomSymbols(200, 4);
    const auto clean = Held(symbols, taps, 1);
    DecisionFeedback equaliser(taps, 4, {200, 1.0});
    std::vector<double> expected(200);
    equaliser.Equalise(clean, 0.0, expected);
    const std::vector<int> right(equaliser.Decisions().begin(), equaliser.Decisions().end());
    for (std::size_t i = 0; i < 200; ++i)
        ASSERT_EQ(right[i], std::lround((symbols[i] + 1.0) * 1.5)) << i;

    auto hit = clean;
    hit[50] += right[50] < 2 ? 0.08 : -0.08;  // more than two levels of 0.033
    std::vector<double> result(200);
    equaliser.Equalise(hit, 0.0, result);
    EXPECT_NE(equaliser.Decisions()[50], right[50]);
    for (std::size_t i = 70; i < 249; ++i) {
        EXPECT_EQ(equaliser.Decisions()[i % 200], right[i % 200]) << i % 200;
        // The two levels that the symbol went from and to have moved by a fiftieth of a level each.
        EXPECT_NEAR(result[i % 200], expected[i % 200], 0.03 * 0.033) << i % 200;
    }
}

// The levels come from the samples: neither an offset, nor a scale, nor unequal spacing needs to be told.
TEST(DecisionFeedback, FindsTheLevels)
{
    const std::vector<double> volts{-0.2, 0.03, 0.35, 0.7};
    auto symbols = RandomSymbols(400, 4);
    for (double& symbol : symbols)
        symbol = volts[static_cast<std::size_t>(std::lround((symbol + 1.0) * 1.5))];
    std::vector<double> samples(400);
    for (std::size_t i = 0; i < 400; ++i)
        samples[i] = symbols[i] + 0.3 * (symbols[(i + 399) % 400] - 0.25);
    DecisionFeedback equaliser(std::vector<double>{0.3}, 4, {400, 1.0});
    std::vector<double> result(400);
    equaliser.Equalise(samples, 0.0, result);
    // Passes narrow the distance to the true levels by the tap; they end when the decisions stand.
    EXPECT_TRUE(AreNear(equaliser.Levels(), volts, 0.01 * 0.9));
    EXPECT_TRUE(AreNear(result, symbols, 0.01 * 0.9));
    EXPECT_LE(equaliser.Passes(), 4);
}

// More taps than the pattern has symbols: the feedback goes round the pattern.
TEST(DecisionFeedback, TakesMoreTapsThanThePatternHasSymbols)
{
    const std::vector<double> symbols{1.0, -1.0, -1.0, 1.0, -1.0};
    std::vector<double> samples(symbols);
    for (std::size_t i = 0; i < 5; ++i)
        samples[i] += 0.2 * symbols[(i + 5 - 7 % 5) % 5];
    DecisionFeedback equaliser(std::vector<double>{0, 0, 0, 0, 0, 0, 0.2}, 2, {5, 1.0});
    std::vector<double> result(5);
    equaliser.Equalise(samples, 0.0, result);
    EXPECT_TRUE(AreNear(result, symbols, 0.1));
}

// UI i reaches from half a UI before its decision to half a UI after, of odd and even lengths.
TEST(DecisionFeedback, HoldsTheFeedbackAroundTheDecision)
{
    const struct {
        double samplesPerUi, delay;
        std::vector<int> uiOfSample;
    } cases[] = {{4.0, 0.0, {0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 0, 0}},
                 {4.0, 3.0, {2, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2}},
                 {3.0, 1.0, {0, 0, 0, 1, 1, 1, 2, 2, 2}},
                 {3.0, 0.0, {0, 0, 1, 1, 1, 2, 2, 2, 0}},
                 {2.5, 0.0, {0, 0, 1, 1, 2, 2, 2, 0}}};
    for (const auto& [samplesPerUi, delay, uiOfSample] : cases) {
        SCOPED_TRACE(samplesPerUi);
        std::vector<double> samples(uiOfSample.size());
        for (std::size_t m = 0; m < samples.size(); ++m)
            samples[m] = uiOfSample[m] == 1 ? 1.0 : -1.0;
        DecisionFeedback equaliser(std::vector<double>{0.25}, 2, {3, samplesPerUi});
        std::vector<double> result(samples.size());
        equaliser.Equalise(samples, delay, result);
        // After the one high symbol stands a feedback of its own sign, elsewhere the other.
        for (std::size_t m = 0; m < samples.size(); ++m)
            EXPECT_EQ(samples[m] - result[m] > 0.0, uiOfSample[m] == 2) << "sample " << m;
    }
}

}  // namespace
