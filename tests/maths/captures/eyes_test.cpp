#include "maths/captures/eyes.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "maths/captures/bandlimited.h"
#include "maths/patterns/idealsignal.h"
#include "support/captures.h"

namespace Tarnwick::DSO::Maths {

namespace {

std::vector<int> SomeSymbols(int levelCount)
{
    std::mt19937 generator(3);
    std::vector<int> symbols(400);
    for (int& symbol : symbols)
        symbol = static_cast<int>(generator() % static_cast<unsigned>(levelCount));
    return symbols;
}

std::vector<double> StraightEdges(const std::vector<int>& symbols, int levelCount, double samplesPerUi, double riseUi)
{
    const auto count = static_cast<std::size_t>(std::lround(samplesPerUi * static_cast<double>(symbols.size())));
    return IdealSignal(symbols, {-0.5, 0.5, levelCount}, samplesPerUi, count, riseUi);
}

EyeFigures Measured(const EyeRecord& record, const AlignedSymbols& symbols)
{
    const auto figures = MeasureEyes(record, symbols);
    if (!figures)
        throw std::runtime_error("no eyes");
    return *figures;
}

// Tones round a record, and the same at its ends: up to 0.43 of the sample rate.
TEST(BandLimitedRecord, ReadsTonesBetweenTheSamples)
{
    constexpr std::size_t kCount = 600;
    for (const double cycles : {0.0, 7.0, 120.0, 240.0, 258.0}) {
        const auto tone = [&](double t) { return std::cos(2.0 * std::numbers::pi * cycles * t / kCount + 0.3); };
        std::vector<double> samples(kCount);
        for (std::size_t k = 0; k < kCount; ++k)
            samples[k] = tone(static_cast<double>(k));
        const BandLimitedRecord record(samples, Wrapping::Circular);
        double worst = 0.0;
        std::vector<double> values(64);
        std::vector<BandLimitedReading> readings(64);
        for (const double start : {-3.0, 200.25, 596.1}) {
            for (std::size_t k = 0; k < readings.size(); ++k)
                readings[k] = ReadingAt(start - 7.0 + 0.109375 * static_cast<double>(k));
            record.Read(readings, 7, values);
            for (std::size_t k = 0; k < values.size(); ++k)
                worst = std::max(worst, std::abs(values[k] - tone(start + 0.109375 * static_cast<double>(k))));
        }
        EXPECT_LT(worst, 5e-5) << cycles;  // 1.1e-5 rms of all tones up to there, the highest ones the worst
        std::vector<double> exact(3);
        record.Read(std::vector{ReadingAt(599.0), ReadingAt(600.0), ReadingAt(601.0)}, 0, exact);
        EXPECT_EQ(exact, (std::vector<double>{samples[599], samples[0], samples[1]}));
        EXPECT_FALSE(BandLimitedRecord(samples, Wrapping::None).Covers(22.5, 30.0));
        EXPECT_FALSE(BandLimitedRecord(samples, Wrapping::None).Covers(30.0, 576.0));
        EXPECT_TRUE(BandLimitedRecord(samples, Wrapping::None).Covers(23.0, 575.5));
    }
}

// All at once, phases are read as one by one: at samples to the bit, elsewhere but for the rounding of 48 products.
TEST(BandLimitedPhases, ReadWhatTheRecordReads)
{
    const std::vector<double> samples = StraightEdges(SomeSymbols(4), 4, 16.0, 0.5);
    const BandLimitedRecord record(samples, Wrapping::None);
    std::vector<BandLimitedReading> readings;
    for (int k = 0; k < 13; ++k)
        readings.push_back(ReadingAt(31.0 + 0.3 * k));  // every tenth at a sample
    constexpr std::size_t kUi = 37;
    const BandLimitedPhases phases(readings);
    std::vector<double> values(kUi * phases.Pitch());
    phases.Read(samples.data() + phases.FirstSample(), 16, kUi, values.data());
    for (std::size_t ui = 0; ui < kUi; ++ui) {
        std::vector<double> expected(readings.size());
        record.Read(readings, static_cast<std::ptrdiff_t>(16 * ui), expected);
        for (std::size_t k = 0; k < expected.size(); ++k)
            EXPECT_NEAR(values[ui * phases.Pitch() + k], expected[k], k % 10 == 0 ? 0.0 : 48 * 2.3e-16)
                << ui << " " << k;
    }
}

// Between straight edges an eye is as high as the distance of its levels, and its width is that of the whole UI: all edges
// cross the threshold at the boundary. 49 samples: a phase times the samples per UI is not always a whole number again.
TEST(CaptureEyes, AreExactBetweenStraightEdges)
{
    const struct {
        int levelCount;
        double samplesPerUi;
        double riseUi;
        int rotation;  // [samples]
        double widthUi;
    } cases[] = {
        {2, 16.0, 0.5, 0, 1.0},  {2, 49.0, 0.5, 0, 1.0},  {2, 16.0, 0.25, 5, 1.0}, {2, 7.0, 0.5, 3, 1.0},
        {2, 13.5, 0.25, 0, 0.9}, {4, 16.0, 0.5, 11, 0.5}, {3, 32.0, 0.5, 0, 0.5},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::to_string(row.levelCount) + " levels, " + std::to_string(row.samplesPerUi));
        const std::vector<int> sent = SomeSymbols(row.levelCount);
        std::vector<double> samples = StraightEdges(sent, row.levelCount, row.samplesPerUi, row.riseUi);
        std::rotate(samples.begin(), samples.end() - row.rotation, samples.end());
        const EyeRecord record = WholePeriods(samples, row.samplesPerUi, row.levelCount);
        const auto decided = DecideSymbols(record);
        const auto located = LocateSymbols(record, sent);
        ASSERT_TRUE(decided && located);
        for (const AlignedSymbols& symbols : {*decided, *located}) {
            const EyeFigures figures = Measured(record, symbols);
            const double spacing = 1.0 / (row.levelCount - 1);
            for (std::size_t k = 0; k < figures.levels.size(); ++k)
                EXPECT_NEAR(figures.levels[k], -0.5 + spacing * static_cast<double>(k), 5e-3);
            for (const Eye& eye : figures.eyes) {
                EXPECT_NEAR(eye.height, spacing, 5e-3 * spacing);  // the corners ring between samples
                EXPECT_NEAR(eye.opening, 1.0, 5e-3);
                // The walls stand as far to the left of the middle as to the right.
                const double walls = figures.position / row.samplesPerUi + 0.5 * (eye.leftUi + eye.rightUi);
                const double middle = walls + (0.5 - row.rotation) / row.samplesPerUi;
                EXPECT_NEAR(middle - std::floor(middle), 0.5, 0.02);
                // Of several levels the edges cross a threshold at up to half of their rise from the boundary; at 13.5
                // samples per UI they start and end on samples.
                if (row.widthUi == 1.0)
                    EXPECT_NEAR(eye.widthUi, row.widthUi, 0.01);
                else
                    EXPECT_GT(eye.widthUi, row.widthUi);
            }
            // The middle of symbol 0, half a UI behind its edge; samples stand at (k + 1/2)/spu UI.
            const double middle = (figures.position + 0.5 - row.rotation) / row.samplesPerUi;
            EXPECT_NEAR(middle - std::floor(middle), 0.5, 0.5 * (1.0 - row.riseUi));
        }
        EXPECT_EQ(decided->levels.size(), sent.size());
    }
}

// An echo closes the eye: known symbols tell by how much, on the measuring phase of an otherwise ideal signal.
TEST(CaptureEyes, HaveNegativeHeightsWhenClosed)
{
    const std::vector<int> sent = SomeSymbols(2);
    std::vector<double> values(sent.size());
    // 1 and -1 behind an echo of 0.6 each from both neighbours: 2 (1 - 1.2) = -0.4 of levels that lie 2 apart.
    const std::size_t count = sent.size();
    for (std::size_t i = 0; i < count; ++i)
        values[i] = 2.0 * sent[i] - 1.0 + 0.6 * (2.0 * sent[(i + 1) % count] - 1.0) +
                    0.6 * (2.0 * sent[(i + count - 1) % count] - 1.0);
    // The levels' means carry what the neighbours of this pattern have in common.
    double sums[2] = {};
    double counts[2] = {};
    for (std::size_t i = 0; i < count; ++i) {
        sums[sent[i]] += values[i];
        counts[sent[i]] += 1.0;
    }
    const double spacing = sums[1] / counts[1] - sums[0] / counts[0];
    const std::vector<double> samples = Testing::Held(values, 16.0);
    const EyeRecord record = WholePeriods(samples, 16.0, 2);
    const auto located = LocateSymbols(record, sent);
    ASSERT_TRUE(located);
    const EyeFigures figures = Measured(record, *located);
    EXPECT_NEAR(figures.eyes[0].height, -0.4, 1e-9);
    EXPECT_NEAR(figures.eyes[0].opening, -0.4 / spacing, 1e-9);
    EXPECT_NEAR(figures.eyes[0].opening, -0.2, 0.02);
    EXPECT_EQ(figures.eyes[0].widthUi, 0.0);
}

// What lies outside the valid part, and the seam of a record that does not wrap, change nothing.
TEST(CaptureEyes, ComeFromTheValidPartAlone)
{
    const std::vector<int> sent = SomeSymbols(4);
    const std::vector<double> whole = StraightEdges(sent, 4, 16.0, 0.5);
    EyeRecord record = WholePeriods(whole, 16.0, 4);
    const EyeFigures expected = Measured(record, *LocateSymbols(record, sent));
    std::vector<double> spoiled = whole;
    std::fill(spoiled.begin(), spoiled.begin() + 300, 0.1);
    std::fill(spoiled.end() - 500, spoiled.end(), -0.7);
    record = {spoiled, 16.0, 4, 340, spoiled.size() - 340 - 540, Wrapping::None};
    for (const auto& symbols : {LocateSymbols(record, sent), DecideSymbols(record)}) {
        ASSERT_TRUE(symbols);
        const EyeFigures figures = Measured(record, *symbols);
        for (std::size_t k = 0; k < 3; ++k) {
            EXPECT_NEAR(figures.eyes[k].height, expected.eyes[k].height, 1e-3);
            EXPECT_NEAR(figures.eyes[k].widthUi, expected.eyes[k].widthUi, 0.02);
        }
    }
    const PhaseValues values = ValuesAt(record, 8.0);
    EXPECT_EQ(values.range.first, 21U);                        // 8 + 16 i >= 340
    EXPECT_EQ(values.range.first + values.range.count, 366U);  // and the last one below 6400 - 540
}

TEST(CaptureEyes, AreNotReadWithAPatternThatIsNotThere)
{
    const std::vector<int> sent = SomeSymbols(2);
    const std::vector<double> samples = StraightEdges(sent, 2, 16.0, 0.5);
    const EyeRecord record = WholePeriods(samples, 16.0, 2);
    std::vector<int> inverted = sent;
    for (int& symbol : inverted)
        symbol = 1 - symbol;
    EXPECT_FALSE(LocateSymbols(record, inverted));
    EXPECT_FALSE(LocateSymbols(record, std::vector<int>(sent.size() + 1, 0)));
    EXPECT_FALSE(LocateSymbols(record, {}));
    EXPECT_FALSE(DecideSymbols(WholePeriods(std::vector<double>(160, 0.25), 16.0, 2)));
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
