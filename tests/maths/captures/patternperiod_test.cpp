#include "maths/captures/patternperiod.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/captures.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

constexpr std::size_t kSamplesPerUi = 4;

std::vector<int> Repeated(const std::vector<int>& pattern, std::size_t count)
{
    std::vector<int> symbols(count);
    for (std::size_t i = 0; i < count; ++i)
        symbols[i] = pattern[i % pattern.size()];
    return symbols;
}

std::vector<int> RandomLevels(std::size_t count, int levelCount, std::uint64_t seed)
{
    std::vector<int> levels;
    for (const double value : RandomValues(count, seed))
        levels.push_back(static_cast<int>((value + 1.0) / 2.0 * levelCount));
    return levels;
}

std::vector<int> WithErrors(std::vector<int> symbols, std::size_t every)
{
    for (std::size_t i = 0; i < symbols.size(); i += every)
        symbols[i] ^= 1;
    return symbols;
}

std::vector<double> Drawn(const std::vector<int>& symbols)
{
    return WithNoise(Held({symbols.begin(), symbols.end()}, kSamplesPerUi), 0.05, 6);
}

TEST(PeriodFound, IsTheShortestOfAtLeastTwo)
{
    std::vector<int> pulses(500, 0);  // agrees with itself nearly everywhere, wherever it is put
    pulses[17] = pulses[30] = pulses[31] = 1;
    std::vector<int> mostlyClock = RandomLevels(1000, 2, 1);
    for (std::size_t i = 0; i < 950; ++i)
        mostlyClock[i] = static_cast<int>(i % 2);
    std::vector<int> step(2000, 0);
    std::fill(step.begin() + 900, step.end(), 1);
    const std::vector<int> pam4 = Repeated(RandomLevels(3000, 4, 2), 7000);
    const struct {
        const char* label;
        std::vector<int> symbols;
        std::size_t period;
    } cases[] = {
        {"PRBS7 four times and a half", Repeated(PrbsLevels(7, 6), 571), 127},
        {"PRBS9 twice", Repeated(PrbsLevels(9, 5), 1022), 511},
        {"PRBS9 not quite twice", Repeated(PrbsLevels(9, 5), 1021), 0},
        {"a clock", Repeated({0, 1}, 400), 2},
        {"PAM4", pam4, 3000},
        {"the same, 1 symbol in 250 wrong", WithErrors(pam4, 250), 3000},
        {"the same, 1 symbol in 70 wrong", WithErrors(pam4, 70), 0},
        {"pulses", Repeated(pulses, 5000), 500},
        {"mostly clock", Repeated(mostlyClock, 6000), 1000},
        {"random", RandomLevels(20000, 2, 3), 0},
        {"step", step, 0},
        {"all equal", Repeated({1}, 3000), 0},
        {"two symbols", {0, 1}, 0},
        {"three symbols", {0, 1, 0}, 0},
        {"too few to tell the noise", {0, 1, 0, 1}, 0},
        {"none", {}, 0},
    };
    for (const auto& [label, symbols, period] : cases) {
        SCOPED_TRACE(label);
        const std::vector<double> samples = Drawn(symbols);
        const CapturedSymbols capture{samples, kSamplesPerUi, symbols, {0, symbols.size()}};
        const Repetition found = FindPeriod(capture);
        EXPECT_EQ(found.symbols, period);
        EXPECT_EQ(found.Holds(), period > 0);
        if (period > 0) {
            const Repetition checked = CheckPeriod(capture, period);
            EXPECT_EQ(checked.agreement, found.agreement);
            EXPECT_EQ(checked.differenceRms, found.differenceRms);
            EXPECT_EQ(checked.noiseRms, found.noiseRms);
        }
    }
    const std::vector<int> prbs = Repeated(PrbsLevels(9, 5), 1500);
    const std::vector<double> samples = Drawn(prbs);
    const CapturedSymbols capture{samples, kSamplesPerUi, prbs, {0, prbs.size()}};
    EXPECT_NEAR(CheckPeriod(capture, 510).agreement, 0.5, 0.06);  // 4 sigma of 990 symbols
    EXPECT_EQ(CheckPeriod(capture, 1500).agreement, 0.0);
}

// The ends of a closed eye are not held against a period; a waveform that changes is, though its symbols repeat.
TEST(PeriodFound, TrustsTheCertainSymbolsAndTheWaveform)
{
    std::vector<int> symbols = Repeated(PrbsLevels(7, 6), 260);
    std::vector<double> samples = Drawn(symbols);
    for (std::size_t i = 0; i < 3; ++i)
        symbols[i] ^= 1;
    EXPECT_EQ(FindPeriod({samples, kSamplesPerUi, symbols, {0, 260}}).symbols, 0U);
    EXPECT_EQ(FindPeriod({samples, kSamplesPerUi, symbols, {3, 254}}).symbols, 127U);

    symbols = Repeated(PrbsLevels(9, 5), 8000);
    samples = Drawn(symbols);
    EXPECT_EQ(FindPeriod({samples, kSamplesPerUi, symbols, {0, 8000}}).symbols, 511U);
    for (std::size_t m = 4100 * kSamplesPerUi; m < samples.size(); ++m)
        samples[m] += 0.8;
    EXPECT_EQ(FindPeriod({samples, kSamplesPerUi, symbols, {0, 8000}}).symbols, 0U);
    const Repetition moved = CheckPeriod({samples, kSamplesPerUi, symbols, {0, 8000}}, 511);
    EXPECT_EQ(moved.agreement, 1.0);
    EXPECT_FALSE(moved.Holds());
}

// Two bits a symbol, the sequence twice.
std::vector<int> InPairs(const std::vector<std::uint8_t>& bits, SymbolMap map, bool highBitFirst)
{
    std::vector<int> levels;
    for (std::size_t i = 0; i + 1 < bits.size(); i += 2) {
        const int pair = highBitFirst ? 2 * bits[i] + bits[i + 1] : 2 * bits[i + 1] + bits[i];
        levels.push_back(map == SymbolMap::Gray ? pair ^ (pair >> 1) : pair);
    }
    return levels;
}

TEST(PatternRecognised, ByItsRecursion)
{
    for (const PrbsPolynomial& polynomial : kPrbsPolynomials) {
        const std::string name =
            "PRBS" + std::to_string(polynomial.order) + (polynomial.taps[2] == 11 ? " (x^13+x^12+x^11+x^8+1)" : "");
        SCOPED_TRACE(name);
        const std::vector<std::uint8_t> bits = PrbsBits(polynomial, 1200);
        std::vector<int> nrz(bits.begin() + 150, bits.end());
        const auto found = RecognisePattern(nrz, 2);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->Name(), name);
        EXPECT_EQ(found->checks, nrz.size() - static_cast<std::size_t>(polynomial.order));
        EXPECT_EQ(found->failing, 0U);
        for (int& bit : nrz)
            bit = 1 - bit;
        ASSERT_TRUE(RecognisePattern(nrz, 2));
        EXPECT_EQ(RecognisePattern(nrz, 2)->Name(), name + " inverted");
    }
}

TEST(PatternRecognised, ByBitPairs)
{
    const std::vector<std::uint8_t> bits = PrbsBits(kPrbsPolynomials[3], 3000);
    const std::vector<std::uint8_t> others = PrbsBits(kPrbsPolynomials[4], 3000);
    std::vector<std::uint8_t> complemented = bits;
    for (std::uint8_t& bit : complemented)
        bit ^= 1U;
    const auto inverted = [](std::vector<int> levels) {
        for (int& level : levels)
            level = 3 - level;
        return levels;
    };
    using enum SymbolMap;
    const struct {
        const char* name;
        std::vector<int> levels;
    } cases[] = {
        {"PRBS13Q", Prbs13qLevels()},
        {"PRBS13Q inverted", inverted(Prbs13qLevels())},
        {"PRBS13Q, bits complemented", InPairs(complemented, Gray, true)},
        {"PRBS13Q inverted, bits complemented", inverted(InPairs(complemented, Gray, true))},
        {"PRBS13 by bit pairs, not Gray coded", InPairs(bits, Level, true)},
        {"PRBS13 by bit pairs, Gray coded, low bit first", InPairs(bits, Gray, false)},
        {"PRBS13 (x^13+x^12+x^11+x^8+1) by bit pairs, not Gray coded, low bit first, inverted",
         inverted(InPairs(others, Level, false))},
    };
    for (const auto& [name, levels] : cases) {
        SCOPED_TRACE(name);
        const auto found = RecognisePattern(levels, 4);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->Name(), name);
        EXPECT_EQ(found->failing, 0U);
        EXPECT_EQ(found->Period(), 8191U);
    }
}

TEST(PatternRecognised, OnlyWhereTheChecksSaySo)
{
    const std::vector<std::uint8_t> bits = PrbsBits(kPrbsPolynomials[5], 20000);
    const std::vector<int> prbs(bits.begin(), bits.end());
    // Each wrong bit fails three checks.
    const auto found = RecognisePattern(WithErrors(prbs, 400), 2);
    ASSERT_TRUE(found);
    EXPECT_NEAR(static_cast<double>(found->failing), 150.0, 3.0);
    EXPECT_FALSE(RecognisePattern(WithErrors(prbs, 250), 2));
    EXPECT_FALSE(RecognisePattern(std::span<const int>(prbs).first(15 + 63), 2));
    EXPECT_TRUE(RecognisePattern(std::span<const int>(prbs).first(15 + 64), 2));
    std::vector<int> rare(10000, 0);
    rare[5000] = 1;
    EXPECT_FALSE(RecognisePattern(rare, 2));
    EXPECT_FALSE(RecognisePattern(Repeated({0}, 500), 2));
    EXPECT_FALSE(RecognisePattern(Repeated({0, 1}, 500), 2));
    EXPECT_FALSE(RecognisePattern(RandomLevels(5000, 2, 4), 2));
    EXPECT_FALSE(RecognisePattern(RandomLevels(5000, 4, 4), 4));
    EXPECT_FALSE(RecognisePattern(RandomLevels(5000, 3, 4), 3));
    EXPECT_FALSE(RecognisePattern({}, 2));
}

}  // namespace
