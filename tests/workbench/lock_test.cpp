#include "workbench/lock.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "maths/captures/codingdecision.h"
#include "support/failures.h"
#include "workbench/eye.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::FailureOf;

Waveform Captured(E_SIGNAL_CODING coding, int prbs, const Simulation& settings, double interval = 0.0)
{
    const SimulatedPattern pattern{.coding = coding, .prbs = prbs};
    Waveform capture;
    capture.samples =
        Simulate(pattern.Levels(static_cast<std::size_t>(settings.lengthUi)), LevelCount(coding), settings);
    capture.interval = interval;
    return capture;
}

TEST(Lock, FindsWhatACaptureIsWithoutAFact)
{
    const struct {
        const char* label;
        E_SIGNAL_CODING coding;
        int prbs;
        Simulation settings;
        double rateError;  // [UI] over the record
        std::string pattern;
        int periodUi;
        int repetitions;
    } cases[] = {
        {"whole periods", SIGNAL_CODING_NRZ, 9, {.samplesPerUi = 8, .repetitions = 3}, 0.0, "PRBS9", 511, 3},
        {"closed, the first symbol decided wrong",
         SIGNAL_CODING_NRZ,
         9,
         {.samplesPerUi = 16, .repetitions = 3, .lossDb = 18.0, .noiseRms = 0.002},
         0.0,
         "PRBS9",
         511,
         3},
        {"square edges",
         SIGNAL_CODING_NRZ,
         9,
         {.samplesPerUi = 8, .repetitions = 2, .riseUi = 0.0},
         0.0,
         "PRBS9",
         511,
         2},
        {"random jitter",
         SIGNAL_CODING_NRZ,
         11,
         {.samplesPerUi = 32, .repetitions = 2, .jitterRms = 0.02},
         0.0,
         "PRBS11",
         2047,
         2},
        {"PAM4, open and noisy",
         SIGNAL_CODING_PAM4,
         9,
         {.samplesPerUi = 16, .repetitions = 2, .noiseRms = 0.005},
         0.0,
         "PRBS9Q",
         511,
         2},
        {"PAM4, closed",
         SIGNAL_CODING_PAM4,
         11,
         {.samplesPerUi = 16, .repetitions = 4, .lossDb = 6.0, .noiseRms = 0.01},
         0.0,
         "PRBS11Q",
         2047,
         4},
        // A rate is contradicted from 0.1 UI over the record on; found ones are ten times nearer.
        {"clock offset",
         SIGNAL_CODING_NRZ,
         15,
         {.samplesPerUi = 8, .clockOffsetPpm = 50, .lengthUi = 5000},
         0.01,
         "PRBS15",
         0,
         1},
        {"PAM4 at any rate",
         SIGNAL_CODING_PAM4,
         31,
         {.samplesPerUi = 3.7123, .lossDb = 6.0, .noiseRms = 0.003, .lengthUi = 6000},
         0.01,
         "PRBS31Q",
         0,
         1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const Waveform capture = Captured(row.coding, row.prbs, row.settings);
        const LockedCapture locked = Lock(capture, {}, "capture");
        const LockReport& report = locked.report;
        const auto count = static_cast<double>(capture.samples.size());
        EXPECT_NEAR(count / report.samplesPerUi, count / row.settings.SampledPerUi(), row.rateError);
        EXPECT_EQ(report.coding, row.coding);
        EXPECT_EQ(report.pattern, row.pattern);
        EXPECT_EQ(report.periodUi, row.periodUi);
        EXPECT_EQ(report.repetitions, row.repetitions);
        EXPECT_EQ(report.mode, row.periodUi > 0 ? RecordKind::Periodic : RecordKind::SingleShot);
        EXPECT_EQ(report.resampled, !row.settings.IsSeamless());
        EXPECT_TRUE(report.warnings.empty()) << report.warnings.front();
        EXPECT_EQ(report.levels.size(), static_cast<std::size_t>(LevelCount(row.coding)));
        EXPECT_TRUE(std::is_sorted(report.levels.begin(), report.levels.end()));
        if (!report.resampled) {
            EXPECT_EQ(locked.samples, capture.samples);
        }
        if (report.mode == RecordKind::Periodic) {
            const SimulatedPattern pattern{.coding = row.coding, .prbs = row.prbs};
            EXPECT_EQ(Maths::CompareSymbols(locked.symbols, pattern.Levels(0), LevelCount(row.coding)).share, 1.0);
        }
    }
}

// Whatever the record begins with: the symbols at its ends have neighbours too, a period away.
TEST(Lock, DecidesTheSymbolsAtTheEndsOfAPeriodWithTheirNeighbours)
{
    const Simulation settings{.repetitions = 1, .lossDb = 18.0, .noiseRms = 0.002};
    const LockedCapture locked = Lock(Captured(SIGNAL_CODING_NRZ, 9, settings), {.patternLengthUi = 511}, "capture");
    EXPECT_EQ(locked.report.mode, RecordKind::Periodic);
    const SimulatedPattern pattern{.coding = SIGNAL_CODING_NRZ, .prbs = 9};
    EXPECT_EQ(Maths::CompareSymbols(locked.symbols, pattern.Levels(0), 2).share, 1.0);
}

// Facts are used, and what contradicts them is said.
TEST(Lock, WarnsOfFactsThatContradict)
{
    const Simulation settings{.samplesPerUi = 8, .lossDb = 6.0, .lengthUi = 4000};
    const Waveform capture = Captured(SIGNAL_CODING_NRZ, 15, settings, 12.5e-12);
    const struct {
        const char* label;
        CaptureFacts facts;
        std::string warning;  // empty: none
    } cases[] = {
        {"right rate", {.symbolRateGBd = 10.0}, ""},
        {"right samples per UI", {.samplesPerUi = 8.0}, ""},
        {"rate 100 ppm off", {.symbolRateGBd = 10.001}, "is said to have 7.9992001 samples per UI; its clock has 8.0"},
        {"period where there is none", {.patternLengthUi = 1000}, "is said to repeat after 1000 UI; "},
        {"cut at a seam", {.patternLengthUi = 3987}, "where its end meets its beginning"},
        {"another pattern",
         {.pattern = std::vector<int>{0, 1, 1, 0, 0, 0, 1}},
         "of its symbols are those of the given pattern"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const LockReport report = Lock(capture, row.facts, "capture").report;
        if (row.warning.empty()) {
            EXPECT_TRUE(report.warnings.empty()) << report.warnings.front();
            EXPECT_DOUBLE_EQ(report.symbolRateGBd, 10.0);
            continue;
        }
        ASSERT_FALSE(report.warnings.empty());
        EXPECT_NE(report.warnings.front().find(row.warning), std::string::npos) << report.warnings.front();
        EXPECT_EQ(report.mode, RecordKind::SingleShot);
    }
    EXPECT_EQ(Lock(capture, {.patternLengthUi = 1000, .record = RecordKind::Periodic}, "capture").report.repetitions,
              4);
}

// A clock that wanders by 0.4 UI either way, at a tenth of the loop's bandwidth of 6 MHz: told, and followed when asked.
TEST(Lock, TellsAClockThatMovesAndFollowsIt)
{
    Simulation settings{.samplesPerUi = 8};
    settings.symbolRateGBd = 10.0;
    settings.lengthUi = 30000;
    settings.sinusoidalJitterUi = 0.4;
    settings.sinusoidalJitterMHz = 0.6;
    const Waveform capture = Captured(SIGNAL_CODING_NRZ, 31, settings, 12.5e-12);
    const LockReport constant = Lock(capture, {}, "capture").report;
    ASSERT_EQ(constant.warnings.size(), 1U);
    EXPECT_NE(constant.warnings.front().find("its clock moves by 0.2"), std::string::npos) << constant.warnings.front();
    const LockReport tracked = Lock(capture, {.clock = ClockKind::Tracked}, "capture").report;
    EXPECT_TRUE(tracked.warnings.empty());
    EXPECT_EQ(tracked.trackedPhaseUi.size(), tracked.phaseUi.size());
    EXPECT_GT(tracked.trackedUi, 0.2);
    EXPECT_LT(tracked.trackedResidualUi, 0.02);  // 0.012 measured at a tenth of the bandwidth
    // The line stands where it was found, in a spectrum from 2 to 200 samples per UI.
    const ClockSpectrum& spectrum = tracked.spectrum;
    EXPECT_NEAR(spectrum.line, 0.125, spectrum.spacing);
    EXPECT_NEAR(1.0 / spectrum.first, 200.0, 5.0);
    EXPECT_NEAR(spectrum.first + static_cast<double>(spectrum.scoreDb.size() - 1) * spectrum.spacing, 0.5,
                spectrum.spacing);
    EXPECT_GE(*std::max_element(spectrum.scoreDb.begin(), spectrum.scoreDb.end()),
              20.0 * std::log10(tracked.clockScore) - 1e-9);
}

TEST(Lock, AveragesRepetitionsAndSaysWhatThatTookOff)
{
    const Waveform capture = Captured(SIGNAL_CODING_NRZ, 9, {.samplesPerUi = 8, .repetitions = 25, .noiseRms = 0.01});
    const LockedCapture locked = Lock(capture, {.average = true}, "capture");
    EXPECT_EQ(locked.samples.size(), 511U * 8U);
    // The rms about the mean of 25: sqrt(24/25) of the noise, within 2 % at 100 000 samples and five standard deviations.
    EXPECT_NEAR(locked.report.removedNoiseRms, 0.01 * std::sqrt(24.0 / 25.0), 2e-4);
}

TEST(Lock, RefusesWhatHoldsNoSignal)
{
    const auto refused = [](std::vector<double> samples) {
        Waveform capture;
        capture.samples = std::move(samples);
        return FailureOf<DataFailure>([&] { Lock(capture, {}, "c.npy"); });
    };
    EXPECT_EQ(refused(std::vector<double>(5000, 0.5)), "c.npy: is constant, 0.5 V; expected a data signal");
    std::vector<double> broken(5000, 0.5);
    broken[41] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(refused(broken), "c.npy: sample 42 is nan; expected finite values");
    EXPECT_NE(
        refused(Simulate(std::vector<int>(1000, 0), 2, {.amplitude = 0.0, .noiseRms = 1.0})).find("no clock found"),
        std::string::npos);
    EXPECT_NE(refused({0.0, 1.0, 0.0}).find("too few to find a clock in"), std::string::npos);
    const Waveform gap = WaveformFrom("0,5\n1,6\n2,7\n9,8\n10,9\n", "c.csv");
    EXPECT_NE(FailureOf<DataFailure>([&] { Lock(gap, {.samplesPerUi = 2.0}, "c.csv"); }).find("sample 3, at 9 s"),
              std::string::npos);
    const Waveform few = Captured(SIGNAL_CODING_NRZ, 7, {.samplesPerUi = 16});
    EXPECT_NE(refused(few.samples).find("127 UI; expected at least 200"), std::string::npos);
    EXPECT_EQ(Lock(few, {.samplesPerUi = 16, .patternLengthUi = 127}, "c.npy").report.mode, RecordKind::Periodic);
}

TEST(Lock, GivesItsReportAndEyeAsJson)
{
    const LockedCapture locked =
        Lock(Captured(SIGNAL_CODING_NRZ, 9, {.samplesPerUi = 8, .repetitions = 2}, 12.5e-12), {}, "capture");
    const auto report = nlohmann::json::parse(EyeAsJson(locked, MeasureEyes(locked.samples, EyeSettingsOf(locked))));
    const auto& acquisition = report["acquisition"];
    EXPECT_EQ(acquisition["symbolRateGBd"], 10.0);
    EXPECT_EQ(acquisition["mode"], "periodic");
    EXPECT_EQ(acquisition["periodUi"], 511);
    EXPECT_EQ(acquisition["samples"], 2 * 511 * 8);
    EXPECT_EQ(report["stages"][0]["symbolsKnown"], true);
    // Straight edges of 0.2 UI between levels that are held: nothing closes the eye but the interpolation's overshoot.
    EXPECT_GT(report["stages"][0]["eyes"][0]["openingPercent"], 95.0);
    const auto device = nlohmann::json::parse(ChainFileFor(locked))["device"];
    EXPECT_EQ(device["patternSymbols"].get<std::string>().size(), 511U);
    EXPECT_EQ(device["samplesPerUi"], 8);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
