#include "maths/patterns/symboldetection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "maths/patterns/codings.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/levels.h"
#include "maths/patterns/periodicrecord.h"
#include "support/captures.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

// One row a coding: found by its name and its number, with a character for each level, the way back included. A step of
// one level changes one bit of a Gray symbol.
TEST(Codings, StandForTheirLevels)
{
    for (const Coding& row : kCodings) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(FindCoding(row.name) && FindCoding(row.coding));
        EXPECT_EQ(FindCoding(row.name)->coding, row.coding);
        EXPECT_EQ(FindCoding(row.coding)->name, row.name);
        EXPECT_EQ(LevelCount(row.coding), row.levelCount);
        std::vector<int> levels;
        for (int level = 0; level < row.levelCount; ++level)
            levels.push_back(level);
        for (const SymbolMap map : {SymbolMap::Gray, SymbolMap::Level}) {
            const std::string symbols = SymbolsOf(levels, row.Alphabet(map));
            EXPECT_EQ(symbols, Alphabet(row.coding, map, ""));
            EXPECT_EQ(LevelsOf(symbols, row.Alphabet(map)), levels);
            for (std::size_t k = 1; k < symbols.size() && map == SymbolMap::Gray && row.levelCount == 4; ++k)
                EXPECT_TRUE(std::has_single_bit(static_cast<unsigned>(symbols[k] ^ symbols[k - 1]))) << k;
        }
    }
    EXPECT_EQ(FindCoding("nrz"), nullptr);
    EXPECT_EQ(LevelCount(SIGNAL_CODING_UNKNOWN), 0);
    EXPECT_EQ(Alphabet(SIGNAL_CODING_UNKNOWN, SymbolMap::Gray, "0x50"), "012345");
}

TEST(LevelPartitionOf, SplitsHalfWayBetweenTheMeans)
{
    const std::vector<double> values{-1.0, -1.0, -0.5, 0.5, 1.5, 4.0, 4.5};
    const auto found = PartitionIntoLevels(values, 3);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->bounds, (std::vector<std::size_t>{0, 3, 5, 7}));
    EXPECT_EQ(found->means, (std::vector<double>{-2.5 / 3.0, 1.0, 4.25}));
    EXPECT_EQ(found->thresholds, (std::vector<double>{0.5 * (1.0 - 2.5 / 3.0), 2.625}));
    EXPECT_EQ(LevelOf(2.625, found->thresholds), 1);
    EXPECT_EQ(LevelOf(std::nextafter(2.625, 3.0), found->thresholds), 2);
    EXPECT_FALSE(found->IsOfOneLevel());
    // The middle level loses its values; with the quantiles all at the top no other gets any.
    EXPECT_FALSE(PartitionIntoLevels(std::vector<double>{0.0, 0.0, 0.0, 0.0, 0.0, 1.0}, 3));
    for (const auto& high : {std::vector<double>{2.0, 2.0, 2.0}, {0.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0}})
        EXPECT_TRUE(PartitionIntoLevels(high, 2)->IsOfOneLevel());
}

// Of s samples per UI that need not be whole, sample m holds symbol floor(m/s); beyond the pattern it starts again.
TEST(IdealSignalOf, TakesFractionsOfASample)
{
    const std::vector<int> levels{0, 1, 2};
    EXPECT_EQ(IdealSignal(levels, {0.0, 2.0, 3}, 2.5, 11), std::vector<double>({0, 0, 0, 1, 1, 2, 2, 2, 0, 0, 1}));
}

constexpr double kRate = 26.5625;  // [GBd]
constexpr std::size_t kSamplesPerUi = 16;

// A pattern after a front end of `bandwidth` GHz.
std::vector<double> Capture(const std::vector<int>& levels, int levelCount, double bandwidth,
                            double samplesPerUi = kSamplesPerUi)
{
    const auto count = static_cast<std::size_t>(static_cast<double>(levels.size()) * samplesPerUi);
    return ThroughFrontEnd(IdealSignal(levels, {-1.0, 1.0, levelCount}, samplesPerUi, count), kRate * samplesPerUi,
                           bandwidth);
}

std::vector<double> WithEchoes(const std::vector<double>& samples, const std::vector<double>& taps)
{
    std::vector<double> sum(samples.size(), 0.0);
    for (std::size_t k = 0; k < taps.size(); ++k)
        AddRotated(sum, taps[k], samples, -static_cast<long long>(k * kSamplesPerUi));
    return sum;
}

// Symbols that differ, at the best rotation within a few UI: the front ends delay by less.
int Errors(const std::vector<int>& found, const std::vector<int>& sent)
{
    EXPECT_EQ(found.size(), sent.size());
    int fewest = static_cast<int>(sent.size());
    for (long long shift = -5; shift <= 5; ++shift) {
        int errors = 0;
        for (std::size_t j = 0; j < sent.size(); ++j)
            errors += found[WrappedIndex(static_cast<long long>(j) + shift, found.size())] != sent[j] ? 1 : 0;
        fewest = std::min(fewest, errors);
    }
    return fewest;
}

TEST(SymbolDetection, FindsTheSymbolsOfPrbs13q)
{
    const std::vector<int> sent = Prbs13qLevels();
    const auto behind = [&](double bandwidth, double samplesPerUi = kSamplesPerUi) {
        return Capture(sent, 4, bandwidth, samplesPerUi);
    };
    std::vector<double> uneven;
    for (const double value : behind(20.0))
        uneven.push_back(value + 0.25 * value * value);  // levels bend: spacings 0.44, 0.67, 0.89
    const auto noisy = WithNoise(behind(20.0), 0.02, 1);
    const struct {
        const char* label;
        std::vector<double> capture;
        Decisions decisions = Decisions::Equalised;
    } cases[] = {
        {"20 GHz, noise of 2 %", noisy},
        {"the same without the equaliser", noisy, Decisions::AsSampled},
        {"uneven levels", uneven},
        {"13.28 GHz", behind(13.28)},
        {"9 GHz, the eye closes", behind(9.0)},
        {"7.5 GHz", behind(7.5)},
        {"6.5 GHz", behind(6.5)},
        {"echoes", WithEchoes(behind(20.0), {-0.12, 1.0, 0.35, 0.1})},
        {"3.3 samples per UI", behind(20.0, 3.3)},
        {"1 sample per UI", IdealSignal(sent, {-1.0, 1.0, 4}, 1.0, sent.size())},
    };
    for (const auto& [label, capture, decisions] : cases) {
        SCOPED_TRACE(label);
        EXPECT_EQ(Errors(DetectSymbols(capture, sent.size(), 4, decisions).levels, sent), 0);
    }
    // Noise of 12 % of half the swing: decisions are as good as they can be, 62 wrong in other noise, whose root is 8. The
    // quality says how far that is from no noise.
    const auto heavy = DetectSymbols(WithNoise(behind(13.0), 0.12, 2), sent.size(), 4);
    EXPECT_NEAR(Errors(heavy.levels, sent), 62, 40);
    EXPECT_NEAR(heavy.quality, 0.036, 0.004);
}

// Whatever number of levels, scale and offset of the capture.
TEST(SymbolDetection, FindsAnyNumberOfLevels)
{
    for (const int levelCount : {2, 3}) {
        SCOPED_TRACE(levelCount);
        std::vector<int> sent;
        for (const double value : RandomValues(1500, 4))
            sent.push_back(static_cast<int>((value + 1.0) / 2.0 * levelCount));
        auto capture = Capture(sent, levelCount, 18.0, 8.0);
        for (double& value : capture)
            value = 5.0 + 1e-3 * value;
        const auto found = DetectSymbols(capture, sent.size(), levelCount);
        EXPECT_EQ(Errors(found.levels, sent), 0);
        EXPECT_LT(found.quality, 0.01);
        ASSERT_EQ(found.voltages.size(), static_cast<std::size_t>(levelCount));
        // Means of some hundred symbols; 18 GHz leaves a tenth of interference on each.
        EXPECT_NEAR(found.voltages.front(), 5.0 - 1e-3, 1e-4);
        EXPECT_NEAR(found.voltages.back(), 5.0 + 1e-3, 1e-4);
    }
}

}  // namespace
