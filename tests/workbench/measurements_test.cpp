#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/failures.h"
#include "workbench/capturereport.h"
#include "workbench/decisions.h"
#include "workbench/eye.h"
#include "workbench/eyeimage.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/lock.h"
#include "workbench/pattern.h"
#include "workbench/pulseresponse.h"
#include "workbench/ranking.h"
#include "workbench/run.h"
#include "workbench/signalquality.h"
#include "workbench/simulation.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;

std::vector<int> Symbols(int levelCount)
{
    std::vector<int> symbols;
    for (int k = 0; k < 400; ++k)
        symbols.push_back((k * k / 3 + k / 5 + 2 * (k % 7)) % levelCount);
    return symbols;
}

// Between straight edges of half a UI every eye is as high as the distance of its two levels.
TEST(EyeMeasure, FindsLevelsHeightsAndPhaseOfIdealSignals)
{
    for (const int levelCount : {2, 3, 4}) {
        SCOPED_TRACE(std::to_string(levelCount) + " levels");
        const EyeReport report =
            MeasureEyes(Simulate(Symbols(levelCount), levelCount, {.riseUi = 0.5}), 16.0, levelCount);
        ASSERT_EQ(report.levels.size(), static_cast<std::size_t>(levelCount));
        ASSERT_EQ(report.eyes.size(), static_cast<std::size_t>(levelCount - 1));
        for (int k = 0; k < levelCount; ++k)
            EXPECT_NEAR(report.levels[static_cast<std::size_t>(k)], -0.5 + 1.0 * k / (levelCount - 1), 1e-12);
        for (const EyeOpening& eye : report.eyes)
            EXPECT_NEAR(eye.height, 1.0 / (levelCount - 1), 1e-12);
        // The middle of the flat part, which lies half a UI behind the edges; samples stand at (k + 1/2)/16 UI.
        EXPECT_NEAR(report.phaseUi, 0.5, 1.0 / 16);
    }
}

// A picture by its definition: each line from value to value, cell by cell.
std::vector<double> DrawnEye(const std::vector<double>& values, double valuesPerUi, double firstUi, VoltageRange range,
                             std::size_t columns, std::size_t rows)
{
    std::vector<double> cells(columns * rows);
    const double columnsPerValue = static_cast<double>(columns) / kEyeSpanUi / valuesPerUi;
    for (std::size_t k = 0; k + 1 < values.size(); ++k) {
        const double from = firstUi * static_cast<double>(columns) / 2.0 + static_cast<double>(k) * columnsPerValue;
        for (auto place = static_cast<std::size_t>(std::ceil(from));
             static_cast<double>(place) < from + columnsPerValue; ++place) {
            const auto column = static_cast<double>(place);
            const auto rowAt = [&](double part) {
                const double value = values[k] + std::min(part, 1.0) * (values[k + 1] - values[k]);
                return std::floor((value - range.low) * static_cast<double>(rows - 1) / (range.high - range.low));
            };
            const double first = rowAt((column - from) / columnsPerValue);
            const double last = rowAt((column - from + 1.0) / columnsPerValue);
            if (std::min(first, last) < 0.0 || std::max(first, last) >= static_cast<double>(rows))
                continue;
            const auto a = static_cast<std::size_t>(first);
            const auto b = static_cast<std::size_t>(last);
            const double share = 1.0 / static_cast<double>(std::max(a, b) - std::min(a, b) + 1);
            for (std::size_t r = std::min(a, b); r <= std::max(a, b); ++r)
                for (const std::size_t half : {std::size_t{0}, columns / 2})
                    cells[r * columns + place % (columns / 2) + half] += share;
        }
    }
    const double most = *std::max_element(cells.begin(), cells.end());
    for (double& cell : cells)
        cell = std::pow(cell / most, 0.35);
    return cells;
}

TEST(EyeImage, CountsTheLinesThroughEachCell)
{
    const struct {
        double samplesPerUi;
        std::size_t columns;
        std::size_t rows;
        // Rows of which none begins at the extremes of the samples, where rounding would decide.
        double riseUi = 0.2;
        double shown = 1.0;  // of the range
        std::size_t lengthUi = 1500;
    } cases[] = {{16.0, 96, 64},
                 {16.0, 480, 330},
                 {7.3, 96, 64},
                 {40.0, 96, 64},
                 {16.0, 20, 500},
                 {16.0, 2000, 330},                // each line passes through 31 columns
                 {16.0, 480, 330, 0.0},            // and through many rows
                 {16.0, 480, 330, 0.2, 0.6},       // and leaves the picture
                 {16.0, 96, 64, 0.2, 1.0, 12},     // so few lines that none may be missing
                 {3.0, 96, 64, 0.2, 1.0, 20000}};  // more UI than are held at a time
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << row.samplesPerUi << " per UI, " << row.columns << " x " << row.rows << ", "
                                        << row.riseUi << " UI, " << row.shown << " of the range");
        const std::vector<double> samples = Simulate(Symbols(4), 4,
                                                     {.samplesPerUi = row.samplesPerUi,
                                                      .riseUi = row.riseUi,
                                                      .noiseRms = 0.01,
                                                      .lengthUi = static_cast<int>(row.lengthUi)});
        const VoltageRange all = RangeOf(samples);
        const double hidden = 0.5 * (1.0 - row.shown) * (all.high - all.low);
        const VoltageRange range{all.low + hidden, all.high - hidden};
        const EyeImage image = ShadeEye(samples, row.samplesPerUi, 0.3, range, row.columns, row.rows);
        const std::vector<double> drawn = DrawnEye(samples, row.samplesPerUi, 0.7, range, row.columns, row.rows);
        double worst = 0.0;
        ASSERT_EQ(image.shades.size(), drawn.size());
        for (std::size_t k = 0; k < drawn.size(); ++k)
            worst = std::max(worst, std::abs(image.shades[k] - drawn[k]));
        EXPECT_LT(worst, 1e-6);  // the shades are float
        // Between the samples: 32 values a UI, from the first UI on that has 24 samples before it.
        if (row.samplesPerUi >= 32.0)
            continue;
        const double step = row.samplesPerUi / 32.0;
        const double first = std::ceil(24.0 / row.samplesPerUi) * row.samplesPerUi;
        std::vector<double> values(
            static_cast<std::size_t>((static_cast<double>(samples.size()) - 25.0 - first) / step));
        ReadBetween(samples, first, step, values);
        const EyeImage between = ShadeBetween(samples, row.samplesPerUi, 0.3, range, row.columns, row.rows);
        const std::vector<double> expected = DrawnEye(values, 32.0, 0.7, range, row.columns, row.rows);
        double sum = 0.0;
        std::size_t others = 0;
        for (std::size_t k = 0; k < expected.size(); ++k) {
            sum += std::abs(between.shades[k] - expected[k]);
            others += std::abs(between.shades[k] - expected[k]) > 1e-6 ? 1 : 0;
        }
        // Values that differ by 2e-6 fall into other rows now and then.
        EXPECT_LT(sum / static_cast<double>(expected.size()), 1e-3);
        EXPECT_LE(others, row.lengthUi < 100 ? 0 : expected.size());
    }
}

// Wherever it stands, a value that is not finite leaves no picture; one far out of the range is not shown.
TEST(EyeImage, HasNoCellsWhenASampleIsNotFinite)
{
    const std::vector<double> samples =
        Simulate(Symbols(2), 2, {.samplesPerUi = 8, .noiseRms = 0.01, .lengthUi = 1500});
    const VoltageRange range = RangeOf(samples);
    for (const double samplesPerUi : {8.0, 7.9}) {
        const EyeImage whole = ShadeBetween(samples, samplesPerUi, 0.5, range, 64, 48);
        ASSERT_EQ(whole.shades.size(), 64U * 48U);
        for (const std::size_t at : {std::size_t{0}, std::size_t{30}, std::size_t{6000}, samples.size() - 1}) {
            SCOPED_TRACE(testing::Message() << "sample " << at << ", " << samplesPerUi << " per UI");
            std::vector<double> other = samples;
            for (const double value : {std::nan(""), HUGE_VAL}) {
                other[at] = value;
                EXPECT_TRUE(ShadeBetween(other, samplesPerUi, 0.5, range, 64, 48).shades.empty());
                EXPECT_TRUE(ShadeEye(other, samplesPerUi, 0.5, range, 64, 48).shades.empty());
            }
            other[at] = 1.7e308;
            EXPECT_EQ(ShadeBetween(other, samplesPerUi, 0.5, range, 64, 48).shades.size(), whole.shades.size());
        }
        std::vector<double> alternating(samples.size());
        for (std::size_t k = 0; k < alternating.size(); ++k)
            alternating[k] = k % 2 == 0 ? 1.7e308 : -1.7e308;  // between which the waveform is not a number
        const EyeImage none = ShadeBetween(alternating, samplesPerUi, 0.5, range, 64, 48);
        EXPECT_EQ(*std::max_element(none.shades.begin(), none.shades.end()), 0.0F);
    }
}

TEST(EyeMeasure, MeasuresTheWidthWhereTheOpeningCloses)
{
    // NRZ with straight edges over the whole UI: triangles. The opening falls from 1 in the middle to 0 at the boundary.
    std::vector<double> samples = Simulate(Symbols(2), 2, {.samplesPerUi = 32, .riseUi = 1.0});
    const EyeReport report = MeasureEyes(samples, 32.0, 2);
    EXPECT_NEAR(*report.eyes[0].widthUi, 1.0, 1.0 / 32);
    // A wobble of 0.2 from UI to UI takes 0.4 off the opening everywhere.
    for (std::size_t k = 0; k < samples.size(); ++k)
        samples[k] += k / 32 % 2 == 0 ? 0.2 : -0.2;
    const EyeReport narrowed = MeasureEyes(samples, 32.0, 2);
    EXPECT_NEAR(narrowed.eyes[0].height, 0.6, 1.0 / 16);
    EXPECT_NEAR(*narrowed.eyes[0].widthUi, 0.6, 1.0 / 16);  // the opening falls by 2 a UI to either side
}

TEST(EyeMeasure, InterpolatesFractionalSampling)
{
    // Ones and zeros in turn, their peaks of 1 and -1 between the samples, 2.5 of them a UI.
    std::vector<double> samples;
    for (std::size_t k = 0; k < 500; ++k)
        samples.push_back(std::sin(0.4 * std::numbers::pi * static_cast<double>(k)));
    const EyeReport report = MeasureEyes(samples, 2.5, 2);
    ASSERT_EQ(report.eyes.size(), 1U);
    EXPECT_NEAR(report.eyes[0].height, 2.0, 1e-4);  // the phase to 1/512 UI, and the interpolation
    EXPECT_NEAR(*report.eyes[0].widthUi, 1.0, 1e-3);
    EXPECT_NEAR(report.phaseUi, 0.5, 1.0 / 512);
}

// One sample a UI, without noise: nothing between the samples is known, and what rounding leaves is no noise.
TEST(EyeMeasure, PrintsNothingThatTheRecordDoesNotCarry)
{
    const std::vector<int> levels = LevelsOf(PrbsSymbols(7, SIGNAL_CODING_PAM4), SIGNAL_CODING_PAM4, false);
    const std::vector<double> samples(levels.begin(), levels.end());
    const EyeReport report = MeasureEyes(
        samples, {.samplesPerUi = 1.0, .levelCount = 4, .symbolRateGBd = 10.0, .pattern = levels, .withBathtub = true});
    ASSERT_EQ(report.eyes.size(), 3U);
    EXPECT_EQ(report.phaseUi, 0.0);
    EXPECT_TRUE(report.bathtub.empty());
    EXPECT_EQ(report.noiseRms, 0.0);
    for (const EyeOpening& eye : report.eyes) {
        EXPECT_NEAR(eye.openingPercent, 100.0, 1e-9);
        EXPECT_FALSE(eye.widthUi);
        EXPECT_FALSE(eye.widthPs);
        EXPECT_TRUE(std::isinf(eye.q));
    }
    EXPECT_FALSE(SmallestOf(report, &EyeOpening::widthUi));
    EXPECT_NE(EyeAsText(report).find("not known: fewer than 2 samples per UI"), std::string::npos);
}

TEST(EyeMeasure, TellsWhatIsKnownAndWhatNoiseLeaves)
{
    const std::vector<int> levels = LevelsOf(PrbsSymbols(9, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false);
    std::vector<double> samples = Simulate(levels, 2, {.repetitions = 4, .riseUi = 0.5, .noiseRms = 0.05});
    for (double& sample : samples)
        sample += 0.6;  // levels of 0.1 and 1.1 V
    EyeSettings settings{.samplesPerUi = 16.0, .levelCount = 2, .symbolRateGBd = 10.0, .withBathtub = true};
    EXPECT_FALSE(MeasureEyes(samples, settings).symbolsKnown);
    settings.pattern = levels;
    settings.periodUi = levels.size();
    const EyeReport report = MeasureEyes(samples, settings);
    ASSERT_EQ(report.eyes.size(), 1U);
    const EyeOpening& eye = report.eyes[0];
    EXPECT_TRUE(report.symbolsKnown);
    EXPECT_NEAR(*eye.widthPs, 100.0 * *eye.widthUi, 1e-9);
    EXPECT_NEAR(eye.threshold, 0.6, 0.05);
    EXPECT_NEAR(*report.noiseRms, 0.05, 0.005);
    EXPECT_NEAR(eye.q, 10.0, 1.0);
    EXPECT_LT(*report.ber, 1e-15);  // more than 8 sigma to the threshold
    EXPECT_NEAR(*eye.heightAtBer, 1.0 - 2.0 * 4.6 * 0.05,
                0.06);  // see ErrorRatio; the mean of four keeps half the noise
    EXPECT_NEAR(*ExtinctionRatioDb(report), 10.0 * std::log10(11.0), 0.5);  // 0.01 V of the lower level
    EXPECT_NEAR(OuterModulationAmplitude(report), 1.0, 0.03);
    ASSERT_EQ(report.bathtub.size(), 65U);
    const auto measured = std::find_if(report.bathtub.begin(), report.bathtub.end(),
                                       [](const BathtubPoint& point) { return point.offsetUi == 0.0; });
    ASSERT_NE(measured, report.bathtub.end());
    EXPECT_EQ(measured->ber, *report.ber);

    // A part of it; what lies outside may be anything.
    std::fill(samples.begin(), samples.begin() + 1000, 7.0);
    settings.circular = false;
    settings.valid = ValidPart{1100, samples.size() - 1100};
    const EyeReport part = MeasureEyes(samples, settings);
    EXPECT_EQ(part.valid.first, 1100U);
    EXPECT_TRUE(part.symbolsKnown);
    EXPECT_NEAR(part.eyes.at(0).height, eye.height, 0.05);
    EXPECT_LT(*part.ber, 1e-15);
}

// Behind a line an eye opens widest late in its UI. The bathtub shows the wall on either side all the same.
TEST(EyeMeasure, ShowsBothWallsOfABathtubWhereverItMeasures)
{
    const auto levels = LevelsOf(PrbsSymbols(9, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false);
    const std::vector<double> samples = Simulate(levels, 2, {.repetitions = 4, .lossDb = 6.0, .noiseRms = 0.005});
    EyeSettings settings{.samplesPerUi = 16.0, .levelCount = 2, .withBathtub = true};
    settings.pattern = levels;
    settings.periodUi = levels.size();
    const EyeReport report = MeasureEyes(samples, settings);
    const EyeOpening& eye = report.eyes.at(0);
    EXPECT_NEAR(eye.rightUi - eye.leftUi, *eye.widthUi, 1e-12);
    const double middle = 0.5 * (eye.leftUi + eye.rightUi);
    EXPECT_GT(std::abs(middle), 0.1);
    ASSERT_EQ(report.bathtub.size(), 65U);
    EXPECT_NEAR(report.bathtub[32].offsetUi, middle, 0.5 / 64);
    EXPECT_GT(std::min(report.bathtub.front().ber, report.bathtub.back().ber), 1e-2);
}

// A waveform that is made of pulses gives them back at its samples, whatever stands outside the valid part.
TEST(PulseResponse, IsTheChannelsOwn)
{
    constexpr std::size_t kSpu = 16;
    std::vector<double> channel;  // its largest value at an instant half a UI from the boundaries
    for (std::size_t m = 0; m < 12 * kSpu; ++m) {
        const double ui = static_cast<double>(m) / kSpu - 3.5;
        channel.push_back(0.7 * std::exp(-4.0 * ui * ui) + (ui > 1.0 ? 0.1 * std::exp(-0.5 * ui) : 0.0));
    }
    const struct {
        const char* label;
        E_SIGNAL_CODING coding;
        bool isKnown;
        ValidPart valid;  // count 0: all of it, which repeats
    } cases[] = {{"NRZ", SIGNAL_CODING_NRZ, true, {}},
                 {"PAM4", SIGNAL_CODING_PAM4, true, {}},
                 {"decided", SIGNAL_CODING_NRZ, false, {}},
                 {"single shot", SIGNAL_CODING_NRZ, true, {1000, 6000}},
                 {"single shot, decided", SIGNAL_CODING_NRZ, false, {1000, 6000}}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const int levelCount = LevelCount(row.coding);
        const std::vector<int> levels = LevelsOf(PrbsSymbols(9, row.coding), row.coding, false);
        std::vector<double> samples(levels.size() * kSpu, 0.3);
        for (std::size_t i = 0; i < levels.size(); ++i)
            for (std::size_t m = 0; m < channel.size(); ++m)
                samples[(i * kSpu + m) % samples.size()] += levels[i] * channel[m] / (levelCount - 1);
        EyeSettings eyes{.samplesPerUi = kSpu, .levelCount = levelCount};
        if (row.isKnown)
            eyes.pattern = levels;
        eyes.circular = row.valid.count == 0;
        for (std::size_t k = 0; !eyes.circular && k < samples.size(); ++k)
            if (k < row.valid.first || k >= row.valid.first + row.valid.count)
                samples[k] = 7.0;
        EyeReport behind;
        behind.levels = {0.3, 1.0};
        const WaveformPart part{samples, row.valid};
        const StageTaps taps{.delayUi = 2.0, .instantUi = 0.5};
        const auto pulses = FitPulseResponses(taps, part, part, eyes, behind);
        ASSERT_TRUE(pulses);
        EXPECT_EQ(pulses->source == PulseResponses::Source::KnownSymbols, row.isKnown);
        EXPECT_LT(pulses->afterResidualRms, 1e-12);  // rounding
        const std::size_t step = pulses->valuesPerUi / kSpu;
        ASSERT_EQ(pulses->after.size(), 25 * pulses->valuesPerUi + 1);
        for (std::size_t n = 0; n < pulses->after.size(); n += step) {
            const std::size_t m = n / step - 2 * kSpu + kSpu / 2;  // the cursor at 3.5 UI
            EXPECT_NEAR(pulses->after[n], m < channel.size() ? channel[m] : 0.0, 1e-12) << n;
            if (n >= 2 * pulses->valuesPerUi) {
                EXPECT_NEAR(pulses->before[n], pulses->after[n - 2 * pulses->valuesPerUi], 1e-12) << n;
            }
        }
    }
    // A pattern shorter than the response cannot tell its UI apart.
    const std::vector<double> samples = Simulate(std::vector<int>{0, 0, 1, 0, 1, 1, 1, 0}, 2, {.repetitions = 40});
    EyeReport behind;
    behind.levels = {-0.5, 0.5};
    const WaveformPart part{samples, {}};
    EXPECT_FALSE(FitPulseResponses({}, part, part, {.samplesPerUi = 16.0}, behind));
}

// An FFE and a DFE fitted together: what comes out of the FFE at the instants is the taps' sum of what goes in, and the
// taps of the DFE are what goes into it, of which it leaves nothing.
TEST(PulseResponse, ShowsWhatTheTapsDo)
{
    const json device = {
        {"baudRateGBd", 10}, {"samplesPerUi", 16}, {"signalCoding", "NRZ"}, {"patternSymbols", {{"prbs", 9}}}};
    const json filters = {{{"type", "ffe"}, {"numberOfTaps", 4}, {"fitAtSamplingPhase", true}, {"dfeTaps", 2}},
                          {{"type", "dfe"}, {"numberOfTaps", 2}}};
    const std::vector<double> capture =
        Simulate(LevelsOf(PrbsSymbols(9, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false), 2,
                 {.repetitions = 2, .symbolRateGBd = 10.0, .lossDb = 6.0, .noiseRms = 0.01});
    Chain chain(ChainFile::FromText(json{{"device", device}, {"filters", filters}}.dump(), "chain"), capture.size());
    EyeSettings eyes = EyeSettingsOf(chain);
    eyes.withPulses = true;
    const ChainResult result = RunChain(chain, capture, eyes, "capture");
    EXPECT_FALSE(result.stages[0].taps);
    for (std::size_t stage = 1; stage <= 2; ++stage) {
        ASSERT_TRUE(result.stages[stage].taps && result.stages[stage].taps->pulses);
        const StageTaps& taps = result.stages[stage].taps->taps;
        const PulseResponses* const pulses = &*result.stages[stage].taps->pulses;
        const auto at = [&](const std::vector<double>& pulse, double ui) {
            return pulse.at(
                static_cast<std::size_t>((ui - pulses->firstUi) * static_cast<double>(pulses->valuesPerUi)));
        };
        const double cursor = at(pulses->after, 0.0);
        EXPECT_GT(cursor, 0.2);
        for (int ui = 0; ui <= 5; ++ui) {
            double expected = 0.0;
            for (std::size_t k = 0; k < taps.values.size(); ++k)
                expected += stage == 1                ? taps.values[k] * at(pulses->before, ui - taps.offsetsUi[k])
                            : taps.offsetsUi[k] == ui ? -taps.values[k] * cursor
                                                      : 0.0;
            if (stage == 2)
                expected += at(pulses->before, ui);
            // The search for the taps of the DFE, and what the line does beyond 20 UI.
            EXPECT_NEAR(at(pulses->after, ui), expected, 0.01 * cursor) << stage << ' ' << ui;
            if (stage == 2 && (ui == 1 || ui == 2)) {
                EXPECT_NEAR(at(pulses->after, ui), 0.0, 0.02 * cursor);
            }
        }
    }
}

TEST(EyeMeasure, SaysNothingOfWhatHasNoEyes)
{
    std::vector<double> broken = Simulate(Symbols(2), 2, {});
    broken[7] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(MeasureEyes(broken, 16.0, 2).levels.empty());
    EXPECT_TRUE(MeasureEyes(std::vector<double>(160, 0.25), 16.0, 2).levels.empty());
    EXPECT_TRUE(MeasureEyes(std::vector<double>(16, 0.25), 16.0, 4).levels.empty());
    EXPECT_TRUE(MeasureEyes(std::vector<double>(), 16.0, 4).levels.empty());
}

bool IsRotation(const std::vector<int>& found, std::vector<int> sent)
{
    const bool isAsLong = found.size() == sent.size();
    sent.insert(sent.end(), sent.begin(), sent.end());
    return isAsLong && std::search(sent.begin(), sent.end(), found.begin(), found.end()) != sent.end();
}

TEST(SymbolSearch, FindsEveryCodingInAClosedEye)
{
    const struct {
        E_SIGNAL_CODING coding;
        std::vector<int> levels;
    } cases[] = {
        {SIGNAL_CODING_NRZ, LevelsOf(PrbsSymbols(9, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false)},
        {SIGNAL_CODING_PAM3, Symbols(3)},
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

LockedCapture Locked(std::vector<double> samples, const CaptureFacts& facts)
{
    Waveform capture;
    capture.samples = std::move(samples);
    return Lock(capture, facts, "capture");
}

TEST(SignalQualityMeasure, SeesLossAndOnlyMeasuresWhatThereIs)
{
    const auto levels = LevelsOf(PrbsSymbols(13, SIGNAL_CODING_PAM4), SIGNAL_CODING_PAM4, false);
    const CaptureFacts period{.patternLengthUi = 8191};
    double before = -1.0;
    for (const double loss : {1.0, 4.0, 8.0}) {
        const LockedCapture capture = Locked(Simulate(levels, 4, {.lossDb = loss}), period);
        EXPECT_EQ(capture.report.mode, RecordKind::Periodic);
        const SignalQuality quality = MeasureSignalQuality(capture, 5, "capture");
        ASSERT_TRUE(quality.equaliser) << quality.whyNoTdecq;
        EXPECT_FALSE(quality.equaliser->leavesEyeClosed);
        EXPECT_GT(quality.equaliser->tdecqDb, before);
        EXPECT_LT(quality.equaliser->tdecqDb, 4.0);
        EXPECT_TRUE(quality.eye.symbolsKnown);
        EXPECT_NEAR(*quality.levelMismatchRatio, 1.0, 0.02);
        before = quality.equaliser->tdecqDb;
    }
    const std::vector<double> asLevels(levels.begin(), levels.end());
    const struct {
        LockedCapture capture;
        std::string why;
    } cases[] = {
        {Locked(Simulate(levels, 4, {}), {.coding = SIGNAL_CODING_NRZ}), "it is defined for PAM4"},
        {Locked(asLevels, {.samplesPerUi = 1.0}),
         "1 samples per UI do not hold two time slices 0.1 UI apart; expected 2 or more"},
    };
    for (const auto& [capture, why] : cases) {
        const SignalQuality quality = MeasureSignalQuality(capture, 5, "capture");
        EXPECT_FALSE(quality.equaliser);
        EXPECT_EQ(quality.whyNoTdecq, why);
    }
    EXPECT_EQ(Testing::FailureOf<DataFailure>([] { MeasureSignalQuality({}, 5, "c.npy"); }),
              "c.npy: no levels can be made out in it; give its coding");
}

// Whatever keeps a capture from being acquired, its samples are described; not those that are no numbers.
TEST(CaptureContent, IsToldWithoutAnAcquisitionToo)
{
    const auto nrz = LevelsOf(PrbsSymbols(7, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false);
    const struct {
        std::vector<double> samples;
        std::string why;  // empty: there is one
    } cases[] = {
        {Simulate(nrz, 2, {.repetitions = 4}), ""},
        {Simulate(nrz, 2, {}), "c.npy: holds 127 UI; expected at least 200"},
        {{0.25, 0.25, 0.25}, "c.npy: is constant, 0.25 V"},
        {Simulate(std::vector<int>(1000, 0), 2, {.amplitude = 0.0, .noiseRms = 1.0}), "c.npy: no clock found"},
    };
    for (const auto& [samples, why] : cases) {
        Waveform capture;
        capture.samples = samples;
        const CaptureContent content = FindContent(capture, {}, "c.npy");
        EXPECT_EQ(content.acquisition.has_value(), why.empty());
        EXPECT_EQ(content.whyNoAcquisition.substr(0, why.size()), why);
        const json report = json::parse(ContentAsJson(content));
        EXPECT_EQ(report["samples"], samples.size());
        EXPECT_EQ(report["max"], *std::max_element(samples.begin(), samples.end()));
        EXPECT_EQ(report["acquisition"].is_null(), !report["whyNoAcquisition"].is_null());
        EXPECT_NE(ContentAsText(content).find(why.empty() ? "NRZ (found)" : "none: " + why), std::string::npos);
    }
    Waveform broken;
    broken.samples = {0.0, std::numeric_limits<double>::quiet_NaN()};
    EXPECT_EQ(Testing::FailureOf<DataFailure>([&] { FindContent(broken, {}, "c.npy"); }),
              "c.npy: sample 2 is nan; expected finite values");
}

// Each level held from half a UI before its decision to half a UI after, circular over the repetitions.
std::vector<double> Held(const std::vector<int>& pattern, int repetitions, double samplesPerUi, double delay)
{
    const auto symbols = static_cast<long>(pattern.size());
    std::vector<double> samples(static_cast<std::size_t>(samplesPerUi * static_cast<double>(symbols) * repetitions));
    for (std::size_t k = 0; k < samples.size(); ++k) {
        const double ui = (static_cast<double>(k) - delay) / samplesPerUi + 0.5;
        samples[k] = 0.1 * pattern[static_cast<std::size_t>((static_cast<long>(ui + 1.0) - 1 + symbols) % symbols)];
    }
    return samples;
}

TEST(Decisions, AreCountedAgainstThePatternAtItsBestRotation)
{
    const struct {
        const char* label;
        E_SIGNAL_CODING coding;
        double samplesPerUi;
        double delay;
        int repetitions;
        int rotation;
        std::vector<std::size_t> wrong;  // UIs of the pattern that are spoiled
    } cases[] = {
        {"all right", SIGNAL_CODING_NRZ, 8.0, 0.0, 1, 0, {}},
        {"one wrong in each of three", SIGNAL_CODING_NRZ, 8.0, 7.0, 3, 126, {5}},
        {"four levels, two wrong", SIGNAL_CODING_PAM4, 4.0, 2.0, 2, 77, {0, 126}},
        {"fraction of a sample", SIGNAL_CODING_PAM4, 6.4, 3.0, 4, 11, {1}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const std::vector<int> sent = LevelsOf(PrbsSymbols(7, row.coding), row.coding, true);
        const std::vector<double> samples = Held(sent, row.repetitions, row.samplesPerUi, row.delay);
        std::vector<int> expected = sent;
        for (const std::size_t ui : row.wrong)
            expected[ui] = expected[ui] == 0 ? 1 : expected[ui] - 1;
        std::rotate(expected.begin(), expected.begin() + row.rotation, expected.end());
        const DecisionCount count =
            CountDecisions(samples, expected, LevelCount(row.coding), row.samplesPerUi, row.delay);
        EXPECT_EQ(count.decisions, 127U * static_cast<std::size_t>(row.repetitions));
        EXPECT_EQ(count.errors, row.wrong.size() * static_cast<std::size_t>(row.repetitions));
    }
    EXPECT_EQ(CountDecisions(std::vector<double>(1015), std::vector<int>(127, 1), 2, 8.0, 0.0).decisions, 0U);
}

// A capture of two repetitions behind a line that leaves its eye open, and a pattern with a wrong symbol.
TEST(Decisions, AreReportedOfADfeWhoseSymbolsAreKnown)
{
    const std::string right = PrbsSymbols(9, SIGNAL_CODING_NRZ);
    const std::vector<double> capture =
        Simulate(LevelsOf(right, SIGNAL_CODING_NRZ, false), 2, {.repetitions = 2, .lossDb = 6.0, .noiseRms = 0.02});
    std::string spoiled = right;
    spoiled[100] = spoiled[100] == '0' ? '1' : '0';
    const struct {
        const char* label;
        json symbols;
        json filter;
        int errors;  // -1: none are reported
    } cases[] = {
        {"found", nullptr, {{"numberOfTaps", 3}}, 0},
        {"spoiled", spoiled, {{"numberOfTaps", 3}}, 2},
        {"manual, a UI earlier", right, {{"taps", {1e-9}}, {"useManualTaps", true}, {"samplingDelayPs", -5}}, 0},
        {"manual, unknown symbols", nullptr, {{"taps", {1e-9}}, {"useManualTaps", true}}, -1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        json device = {
            {"baudRateGBd", 26.5625}, {"samplesPerUi", 16}, {"signalCoding", "NRZ"}, {"patternLengthUi", 511}};
        if (!row.symbols.is_null())
            device["patternSymbols"] = row.symbols;
        json filter = row.filter;
        filter["type"] = "dfe";
        const json content = {{"device", device}, {"filters", json::array({filter})}};
        std::vector<std::string> notes;
        const ChainFile file = ChainFile::FromText(content.dump(), "chain.json");
        Chain chain(WithSymbols(file, capture, "capture", notes), capture.size());
        const json stage = json::parse(RunChain(chain, capture, "capture").stages[1].findings);
        EXPECT_EQ(stage.value("errors", -1), row.errors);
        EXPECT_EQ(stage.value("decisions", -1), row.errors < 0 ? -1 : 1022);
    }
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
