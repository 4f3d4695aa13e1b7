#include "maths/captures/eyes.h"

#include <algorithm>
#include <cmath>
#include <limits>
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
    // In any other order, and phase by phase, they are the same to the bit.
    std::vector<std::size_t> order = {10, 0};
    for (std::size_t k = 1; k < readings.size(); ++k)
        if (k != 10)
            order.push_back(k);
    std::vector<BandLimitedReading> mixed;
    for (const std::size_t k : order)
        mixed.push_back(readings[k]);
    const BandLimitedPhases others(mixed);
    std::vector<std::vector<double>> apart(others.Pitch(), std::vector<double>(kUi));
    std::vector<double*> to;
    for (std::vector<double>& phase : apart)
        to.push_back(phase.data());
    others.ReadApart(samples.data() + others.FirstSample(), 16, kUi, to);
    for (std::size_t k = 0; k < order.size(); ++k)
        for (std::size_t ui = 0; ui < kUi; ++ui)
            EXPECT_EQ(apart[k][ui], values[ui * phases.Pitch() + order[k]]) << ui << " " << order[k];
}

std::vector<double> WithNoise(std::vector<double> samples, double rms)
{
    std::mt19937 generator(7);
    std::normal_distribution<double> noise;
    for (double& sample : samples)
        sample += rms * noise(generator);
    return samples;
}

// What is screened out cannot move an extreme: those of the UI that count are those of all, to the bit. Where many UI are alike, or
// nothing can be said in single precision, more count, but none is missed.
TEST(PhaseScreening, MissesNoUiThatMovesAnExtreme)
{
    const std::vector<double> clean = StraightEdges(SomeSymbols(4), 4, 16.0, 0.5);
    const auto scaled = [](std::vector<double> samples, double scale, double offset) {
        for (double& sample : samples)
            sample = sample * scale + offset;
        return samples;
    };
    std::vector<double> withSpikes = WithNoise(clean, 0.02);
    withSpikes[1080] = 40.0;
    withSpikes[5090] = -1e9;
    const struct {
        const char* label;
        std::vector<double> samples;
        double mostCounted;  // of the UI
    } cases[] = {
        {"noise", WithNoise(clean, 0.02), 0.6},  // of 350 UI; the share falls as there are more
        {"ties", clean, 1.0},
        {"two values", StraightEdges(SomeSymbols(2), 2, 16.0, 0.0), 1.0},
        {"spikes", withSpikes, 0.8},
        {"far from 0", scaled(WithNoise(clean, 0.02), 1.0, 1e6), 0.6},
        {"so far that single precision says nothing", scaled(clean, 1e-9, 1e6), 1.0},
        {"large", scaled(WithNoise(clean, 0.02), 1e140, 0.0), 0.6},
        {"small", scaled(WithNoise(clean, 0.02), 1e-300, 0.0), 1.0},
        {"constant", std::vector<double>(clean.size(), 0.25), 1.0},
    };
    std::vector<BandLimitedReading> readings;
    for (int k = 0; k < 21; ++k)  // three packs of eight in double precision, two of sixteen in single
        readings.push_back(ReadingAt(37.0 + 0.25 * k));
    const BandLimitedPhases phases(readings);
    constexpr std::size_t kUi = 350;
    constexpr std::size_t kTogether = 25;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const double* const from = row.samples.data() + phases.FirstSample();
        std::vector<double> values(kUi * phases.Pitch());
        phases.Read(from, 16, kUi, values.data());
        PhaseScreening screening(phases, row.samples);
        const std::size_t count = readings.size();
        std::vector<double> low(count, std::numeric_limits<double>::infinity());
        std::vector<double> high(count, -std::numeric_limits<double>::infinity());
        std::vector<double> lowOfAll = low;
        std::vector<double> highOfAll = high;
        std::vector<float> limits(screening.LimitCount());
        std::vector<unsigned char> counts(kTogether);
        std::size_t counted = 0;
        for (std::size_t ui = 0; ui < kUi; ++ui) {
            if (ui % kTogether == 0) {
                screening.SetLimits(low, high, limits);
                screening.Screen(from + 16 * ui, 16, std::vector<const float*>(kTogether, limits.data()), counts);
            }
            counted += counts[ui % kTogether];
            for (std::size_t p = 0; p < count; ++p) {
                const double value = values[ui * phases.Pitch() + p];
                lowOfAll[p] = std::min(lowOfAll[p], value);
                highOfAll[p] = std::max(highOfAll[p], value);
                if (counts[ui % kTogether] == 1) {
                    low[p] = std::min(low[p], value);
                    high[p] = std::max(high[p], value);
                }
            }
        }
        EXPECT_EQ(low, lowOfAll);
        EXPECT_EQ(high, highOfAll);
        EXPECT_LE(counted, static_cast<std::size_t>(row.mostCounted * kUi));
    }
}

// The heights are those of the values read one by one at the measuring phase, and so are the levels: with noise, closed, few symbols
// and many that are alike.
TEST(CaptureEyes, AreThoseOfAllValuesAtTheirPhase)
{
    const struct {
        const char* label;
        int levelCount;
        double noise;
        std::size_t symbols;
        Wrapping wrapping;
    } cases[] = {
        {"open", 2, 0.02, 400, Wrapping::Circular},       {"open, single shot", 2, 0.02, 400, Wrapping::None},
        {"closed", 4, 0.3, 400, Wrapping::Circular},      {"closed, single shot", 4, 0.3, 400, Wrapping::None},
        {"clean", 4, 0.0, 400, Wrapping::Circular},       {"few", 2, 0.05, 9, Wrapping::Circular},
        {"few, single shot", 2, 0.05, 9, Wrapping::None},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        std::vector<int> sent = SomeSymbols(row.levelCount);
        sent.resize(row.symbols);
        const std::vector<double> samples = WithNoise(StraightEdges(sent, row.levelCount, 16.0, 0.5), row.noise);
        EyeRecord record = WholePeriods(samples, 16.0, row.levelCount);
        record.wrapping = row.wrapping;
        const AlignedSymbols symbols{sent, 8.0, {0, sent.size()}};
        const EyeFigures figures = Measured(record, symbols);
        const BandLimitedRecord waveform(samples, row.wrapping);
        std::vector<double> low(static_cast<std::size_t>(row.levelCount), std::numeric_limits<double>::infinity());
        std::vector<double> high(low.size(), -std::numeric_limits<double>::infinity());
        std::vector<double> sum(low.size(), 0.0);
        std::vector<double> count(low.size(), 0.0);
        const SymbolRange range = ValidUi(record, figures.position, 0.0);
        for (std::size_t ui = range.first; ui < range.first + range.count; ++ui) {
            std::vector<double> value(1);
            waveform.Read(std::vector{ReadingAt(figures.position)}, static_cast<std::ptrdiff_t>(16 * ui), value);
            const auto level = static_cast<std::size_t>(sent[ui]);
            low[level] = std::min(low[level], value.front());
            high[level] = std::max(high[level], value.front());
            sum[level] += value.front();
            count[level] += 1.0;
            EXPECT_NEAR(figures.values.values[ui], value.front(), 48 * 2.3e-16);
        }
        // 48 products are summed in another order, and up to 400 values.
        constexpr double kBound = 400 * 2.3e-16;
        for (std::size_t level = 0; level < low.size(); ++level)
            EXPECT_NEAR(figures.levels[level], sum[level] / count[level], kBound);
        for (std::size_t eye = 0; eye + 1 < low.size(); ++eye) {
            const auto middle = static_cast<std::ptrdiff_t>(eye) + 1;
            const double above = *std::min_element(low.begin() + middle, low.end());
            const double below = *std::max_element(high.begin(), high.begin() + middle);
            EXPECT_NEAR(figures.eyes[eye].height, above - below, kBound);
            EXPECT_NEAR(figures.eyes[eye].threshold, 0.5 * (above + below), kBound);
        }
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
                // With several levels the edges cross a threshold at up to half of their rise from the boundary; at 13.5
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
