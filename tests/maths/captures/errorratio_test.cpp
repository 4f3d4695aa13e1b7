#include "maths/captures/errorratio.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/captures.h"

namespace Tarnwick::DSO::Maths {

namespace {

double UpperTail(double z)
{
    return 0.5 * std::erfc(z / std::sqrt(2.0));
}

std::vector<int> RandomSymbols(std::size_t count, int levelCount)
{
    std::mt19937 generator(7);
    std::vector<int> symbols(count);
    for (int& symbol : symbols)
        symbol = static_cast<int>(generator() % static_cast<unsigned>(levelCount));
    return symbols;
}

// A line of a pre-cursor, the main one and two echoes; levels from -0.5 to 0.5.
struct Line {
    std::vector<double> taps;  // of the next symbol, this one, the one before, ..
    int levelCount;
    double ValueOf(int level) const { return static_cast<double>(level) / (levelCount - 1) - 0.5; }
    std::vector<double> Behind(const std::vector<int>& symbols) const
    {
        const std::size_t count = symbols.size();
        std::vector<double> values(count, 0.0);
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t j = 0; j < taps.size(); ++j)
                values[i] += taps[j] * ValueOf(symbols[(i + count + 1 - j) % count]);
        return values;
    }
    // Every combination of neighbours once: bits that a slicer gets wrong, for each bit that is sent.
    double ErrorRatio(const std::vector<double>& thresholds, double sigma) const
    {
        double wrong = 0.0;
        double combinations = 1.0;
        for (std::size_t j = 0; j < taps.size(); ++j)
            combinations *= levelCount;
        for (int c = 0; c < static_cast<int>(combinations); ++c) {
            double value = 0.0;
            int rest = c;
            int sent = 0;
            for (std::size_t j = 0; j < taps.size(); ++j, rest /= levelCount) {
                value += taps[j] * ValueOf(rest % levelCount);
                sent = j == 1 ? rest % levelCount : sent;
            }
            for (int eye = 0; eye + 1 < levelCount; ++eye) {
                const double distance = value - thresholds[static_cast<std::size_t>(eye)];
                wrong += UpperTail((sent > eye ? distance : -distance) / sigma);
            }
        }
        return wrong / combinations / std::log2(static_cast<double>(levelCount));
    }
};

PhaseValues All(std::vector<double> values)
{
    const std::size_t count = values.size();
    return {std::move(values), {0, count}};
}

// Fitted on 8191 UI. The rms of the rest is known to 0.8 % (1 / sqrt(2 n)), the ratio to about ten times that.
TEST(ErrorRatio, IsThatOfTheLineAndTheNoise)
{
    const struct {
        const char* label;
        Line line;
        double sigma;
    } cases[] = {
        {"NRZ with interference", {{0.1, 1.0, 0.25, -0.1}, 2}, 0.16},
        {"NRZ", {{0.0, 1.0}, 2}, 0.13},
        {"PAM3", {{0.05, 1.0, 0.1}, 3}, 0.07},
        {"PAM4", {{0.05, 1.0, 0.1, -0.04}, 4}, 0.035},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const std::vector<int> symbols = RandomSymbols(8191, row.line.levelCount);
        const PhaseValues values = All(Testing::WithNoise(row.line.Behind(symbols), row.sigma, 3));
        std::vector<double> thresholds;
        for (int eye = 0; eye + 1 < row.line.levelCount; ++eye)
            thresholds.push_back((eye + 0.5) / (row.line.levelCount - 1) - 0.5);
        for (const Wrapping wrapping : {Wrapping::Circular, Wrapping::None}) {
            const NoiseSplit split = SplitNoise(values, symbols, wrapping, 0);
            EXPECT_EQ(split.range.count, wrapping == Wrapping::Circular ? 8191U : 8191U - 16);
            EXPECT_FALSE(split.byRepetitions);
            EXPECT_NEAR(split.noiseRms, row.sigma, 0.024 * row.sigma);  // three deviations
            EXPECT_GT(split.noiseRms, split.residualRms) << "the fit takes some of the noise";
            const ErrorRatios ratios(split, symbols, row.line.levelCount);
            const double expected = row.line.ErrorRatio(thresholds, row.sigma);
            EXPECT_NEAR(ratios.OfBits(thresholds), expected, 0.15 * expected);
        }
    }
}

// The mean of few repetitions takes a part of the noise along; the error ratio counts that part with the mean.
TEST(ErrorRatio, TellsNoiseFromRepetitions)
{
    const Line line{{0.1, 1.0, 0.25, -0.1}, 2};
    const std::vector<int> pattern = RandomSymbols(511, 2);
    std::vector<int> symbols;
    for (int r = 0; r < 4; ++r)
        symbols.insert(symbols.end(), pattern.begin(), pattern.end());
    const PhaseValues values = All(Testing::WithNoise(line.Behind(symbols), 0.12, 5));
    const NoiseSplit split = SplitNoise(values, symbols, Wrapping::Circular, 511);
    EXPECT_TRUE(split.byRepetitions);
    EXPECT_NEAR(split.noiseRms, 0.12, 0.12 * 3.0 / std::sqrt(2.0 * 3 * 511));  // three deviations
    EXPECT_NEAR(split.residualRms, split.noiseRms * std::sqrt(0.75), 1e-12);
    const double expected = line.ErrorRatio(std::vector<double>{0.0}, 0.12);
    EXPECT_NEAR(ErrorRatios(split, symbols, 2).OfBits(std::vector<double>{0.0}), expected, 0.3 * expected);
    // Three repetitions are too few for a mean.
    EXPECT_FALSE(
        SplitNoise(All({values.values.begin(), values.values.begin() + 1533}), symbols, Wrapping::Circular, 511)
            .byRepetitions);
}

// Without interference a side of half the symbols reaches 1e-6 where Q is 2e-6, 4.611 sigma from its level.
TEST(ErrorRatio, LeavesAnEyeItsHeightAtARatio)
{
    constexpr double kQuantile = 4.6114;
    for (const double sigma : {0.02, 0.05, 0.1}) {
        const std::vector<int> symbols = RandomSymbols(20000, 2);
        const Line line{{0.0, 1.0}, 2};
        const PhaseValues values = All(Testing::WithNoise(line.Behind(symbols), sigma, 11));
        const NoiseSplit split = SplitNoise(values, symbols, Wrapping::Circular, 0);
        const ErrorRatios::Opening opening = ErrorRatios(split, symbols, 2).At(0, 1e-6);
        const double expected = 1.0 - 2.0 * kQuantile * sigma;
        EXPECT_NEAR(opening.high - opening.low, expected, 0.03 * std::max(expected, 2.0 * kQuantile * sigma)) << sigma;
        EXPECT_NEAR(QFactors(values, symbols, 2)[0], 0.5 / sigma, 0.03 * 0.5 / sigma);
    }
}

TEST(ErrorRatio, IsZeroWithoutNoiseAndNeverNotANumber)
{
    const Line line{{0.1, 1.0, 0.25, -0.1}, 2};
    const std::vector<int> pattern = RandomSymbols(64, 2);
    std::vector<int> symbols;
    for (int r = 0; r < 4; ++r)
        symbols.insert(symbols.end(), pattern.begin(), pattern.end());
    for (const double offset : {0.0, 1.0}) {  // a threshold amid the eye, and one above all values
        const PhaseValues values = All(line.Behind(symbols));
        const NoiseSplit split = SplitNoise(values, symbols, Wrapping::Circular, 64);
        const ErrorRatios ratios(split, symbols, 2);
        double ones = 0.0;
        for (const int symbol : symbols)
            ones += symbol;
        EXPECT_EQ(ratios.OfBits(std::vector<double>{offset}), offset == 0.0 ? 0.0 : ones / 256.0);
        const ErrorRatios::Opening opening = ratios.At(0, 1e-6);
        double low = -1.0;
        double high = 1.0;
        for (std::size_t i = 0; i < 256; ++i)
            symbols[i] == 1 ? high = std::min(high, values.values[i]) : low = std::max(low, values.values[i]);
        EXPECT_NEAR(opening.high - opening.low, high - low, 1e-12);
    }
    // So little noise that no tail of it is a double is noise all the same.
    const PhaseValues quiet = All(Testing::WithNoise(line.Behind(symbols), 1e-3, 7));
    const ErrorRatios ratios(SplitNoise(quiet, symbols, Wrapping::Circular, 64), symbols, 2);
    EXPECT_EQ(ratios.OfBits(std::vector<double>{0.0}), kLeastRatio);
    const PhaseValues flat = All(line.Behind(std::vector<int>(64, 1)));
    EXPECT_TRUE(std::isfinite(SplitNoise(flat, std::vector<int>(64, 1), Wrapping::Circular, 0).noiseRms));
    const PhaseValues held = All({-0.5, 0.5, -0.5, 0.5});
    EXPECT_TRUE(std::isinf(QFactors(held, std::vector<int>{0, 1, 0, 1}, 2)[0]));
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
