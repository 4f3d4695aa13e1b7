#include "workbench/sweep.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/failures.h"
#include "workbench/captures.h"
#include "workbench/chaininput.h"
#include "workbench/failure.h"
#include "workbench/joined.h"
#include "workbench/pattern.h"
#include "workbench/run.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;
using Testing::FailureOf;

TEST(SweepAxis, ReadsRangesAndLists)
{
    const auto valuesOf = [](const std::string& text) { return "[" + Joined(ReadSweepAxis(text).values, ",") + "]"; };
    EXPECT_EQ(valuesOf("a.b=1:3:1"), "[1,2,3]");
    EXPECT_EQ(valuesOf("a=0:0.3:0.1"), "[0,0.1,0.2,0.3]");  // 3 * 0.1 lies above 0.3
    EXPECT_EQ(valuesOf("a=0:1:0.3"), "[0,0.3,0.6,0.8999999999999999]");
    EXPECT_EQ(valuesOf("a=3:-1:-2"), "[3,1,-1]");
    EXPECT_EQ(valuesOf("a=5:5:1"), "[5]");
    EXPECT_EQ(valuesOf("a=0:1:0.33333333"), "[0,0.33333333,0.66666666,1]");   // ends 3e-8 of a step before 1
    EXPECT_EQ(valuesOf("a=0:1:0.333333"), "[0,0.333333,0.666666,0.999999]");  // 3e-6 before
    EXPECT_EQ(valuesOf("a=2,2.0,1e3,0.5"), "[2,2,1000,0.5]");
    EXPECT_EQ(valuesOf("a=true,false,ieee802.3bs,a=b"), R"([true,false,"ieee802.3bs","a=b"])");
    EXPECT_EQ(ReadSweepAxis("filters.1.gain=1").path, "filters.1.gain");
}

TEST(SweepAxis, RefusesWhatIsNoAxis)
{
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"a", "expected PATH="},
        {"a..b=1", "expected PATH="},
        {"a=1,,2", "a value is missing"},
        {"a=1:2", "the step is missing"},
        {"a=1:2:x", "\"x\" is no finite number"},
        {"a=nan:2:1", "\"nan\" is no finite number"},
        {"a=1:1e999:1", "\"1e999\" is no finite number"},
        {"a=1,nan", "value is nan"},
        {"a=1:2:0", "step is 0; expected one that leads from 1 to 2"},
        {"a=2:2:0", "step is 0"},
        {"a=1:2:-1", "step is -1"},
        {"a=1:10001:1", "a=1:10001:1: has 10001 values; expected at most 10000"},
    };
    for (const auto& row : cases) {
        const std::string message = FailureOf<UsageFailure>([&] { (void)ReadSweepAxis(row.text); });
        EXPECT_EQ(message.rfind(std::string("--over ") + row.text + ": ", 0), 0U) << message;
        EXPECT_NE(message.find(row.message), std::string::npos) << row.text << ": " << message;
    }
    EXPECT_EQ(ReadSweepAxis("a=1:10000:1").values.size(), 10000U);
}

// The worst eye decides; larger is better, and what is missing is worst.
TEST(SweepRanking, PutsTheLargerFigureFirstThenTheWiderEye)
{
    EyeReport report;
    report.eyes = {{.height = 0.2, .widthUi = 0.5, .openingPercent = 60.0},
                   {.height = 0.3, .widthUi = 0.4, .openingPercent = 50.0}};
    report.ber = 1e-9;
    constexpr double kNone = -std::numeric_limits<double>::infinity();
    const struct {
        const char* name;
        double figure;
    } cases[] = {{"opening", 50.0}, {"height", 0.2}, {"width", 0.4}, {"ber", -1e-9}, {"tdecq", -1.5}};
    ASSERT_EQ(std::size(cases), RankNames().size());
    for (const auto& row : cases) {
        EXPECT_EQ(FigureOf(report, 1.5, RankOf(row.name).value()), row.figure) << row.name;
        EXPECT_EQ(NameOf(RankOf(row.name).value()), row.name);
        EXPECT_EQ(FigureOf({}, std::nullopt, RankOf(row.name).value()), kNone) << row.name;
    }
    EXPECT_FALSE(RankOf("luck"));

    std::vector<SweepRun> runs(6);
    const double figures[] = {kNone, 0.1, 0.2, 0.2, -0.1, 9.0};
    const double widths[] = {0.0, 0.5, 0.3, 0.4, 0.0, 1.0};
    for (std::size_t k = 0; k < runs.size(); ++k) {
        runs[k].figure = figures[k];
        runs[k].eye.eyes = {{.widthUi = widths[k]}};
    }
    runs[5].error = "refused";
    EXPECT_EQ(Ranking(runs), (std::vector<std::size_t>{3, 2, 1, 4, 0}));
}

constexpr const char* kSweptChain = R"({
    "device": {"baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": {"prbs": 7}},
    "filters": [{"type": "copy"},
                {"type": "moving-average", "WindowLength": 3},
                {"type": "bessel-thomson", "cutoffPercent": 75},
                {"type": "bessel-thomson", "order": 2, "cutoffPercent": 90},
                {"type": "dfe", "numberOfTaps": 2, "enabled": false}]})";

Waveform CaptureOf(double lossDb)
{
    return {.samples = Simulate(LevelsOf(PrbsSymbols(7, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, false), 2,
                                {.samplesPerUi = 8, .repetitions = 2, .lossDb = lossDb, .noiseRms = 0.01})};
}

SweepInput InputOver(std::initializer_list<const char*> axes)
{
    SweepInput input{ChainFile::FromText(kSweptChain, "chain.json"), {{"capture.csv", CaptureOf(6.0)}}, {}, {}};
    for (const char* axis : axes)
        input.axes.push_back(ReadSweepAxis(axis));
    return input;
}

const SweepObserver kNobody = {[](std::size_t, const std::vector<std::string>&) {},
                               [](std::size_t, const SweepRun&, std::span<const double>, double) {},
                               {}};

// What is kept from value to value changes nothing: each result is that of the whole chain with these values.
TEST(Sweep, GivesWhatTheWholeChainGives)
{
    const std::initializer_list<const char*> cases[] = {
        {"filters.2.cutoffPercent=40:100:20"},
        {"filters.2.cutoffPercent=40,60", "filters.1.WindowLength=1,3,5"},
        {"filters.1.WindowLength=1,3", "filters.3.enabled=true,false"},
        {"filters.2.cutoffPercent=50,75", "filters.2.order=2,4"},
        {"filters.4.enabled=true,false"},
        {"filters.3.order=1,3", "device.baudRateGBd=9,10"},
    };
    const auto pointerTo = [](std::string path) {
        std::replace(path.begin(), path.end(), '.', '/');
        return json::json_pointer("/" + path);
    };
    for (const auto& axes : cases) {
        SCOPED_TRACE(*axes.begin());
        const SweepInput input = InputOver(axes);
        std::map<std::size_t, std::vector<double>> behind;
        SweepObserver observer = kNobody;
        observer.end = [&](std::size_t run, const SweepRun&, std::span<const double> samples, double samplesPerUi) {
            behind[run].assign(samples.begin(), samples.end());
            EXPECT_EQ(samplesPerUi, 8.0);
        };
        const std::vector<SweepRun> runs = Sweep(input, observer);
        const std::size_t combinations = CombinationsOf(input.axes);
        ASSERT_EQ(runs.size(), combinations);
        ASSERT_EQ(behind.size(), combinations);
        for (std::size_t run = 0; run < combinations; ++run) {
            EXPECT_EQ(runs[run].error, "");
            const std::size_t last = input.axes.back().values.size();
            EXPECT_EQ(runs[run].values.back(), input.axes.back().values[run % last]);  // the last one changes fastest
            json file = json::parse(kSweptChain);
            for (std::size_t axis = 0; axis < input.axes.size(); ++axis)
                file[pointerTo(input.axes[axis].path)] = json::parse(runs[run].values[axis]);
            const ChainInput record =
                InputFor(ChainFile::FromText(file.dump(), "chain.json"), input.captures[0].waveform, {}, "capture.csv");
            Chain chain(record.chain, record.samples.size());
            const ChainResult whole = RunChain(chain, record.samples, record.eyes, "capture.csv");
            const std::span<const double> valid = whole.valid.Of(whole.samples);
            EXPECT_EQ(behind[run], std::vector<double>(valid.begin(), valid.end())) << "run " << run;
            EXPECT_EQ(runs[run].figure, whole.stages.back().eye.eyes[0].openingPercent);
        }
    }
}

// The first of the two is before the second in the chain: what it refuses reaches none of the second's runs.
TEST(Sweep, ListsWhatAFilterRefusesAndRunsTheRest)
{
    const auto runs = Sweep(InputOver({"filters.3.order=3,17", "filters.2.cutoffPercent=-1,50,75"}), kNobody);
    ASSERT_EQ(runs.size(), 6U);
    for (std::size_t run = 0; run < runs.size(); ++run) {
        const char* const expected = run % 3 == 0 ? "chain.json: filters.2: BesselThomson: cutoffPercent is -1"
                                     : run > 3    ? "chain.json: filters.3: BesselThomson: order is 17"
                                                  : "";
        EXPECT_EQ(runs[run].error.rfind(expected, 0), 0U) << run << ": " << runs[run].error;
        EXPECT_EQ(runs[run].error.empty(), *expected == '\0');
        EXPECT_EQ(runs[run].eye.eyes.empty(), *expected != '\0');
        EXPECT_FALSE(runs[run].hasUnknownKey);
    }
}

TEST(Sweep, TakesTheWorstOfSeveralCaptures)
{
    SweepInput input = InputOver({"filters.2.cutoffPercent=40,75", "filters.1.WindowLength=1,7"});
    const NamedCapture captures[] = {{"easy", CaptureOf(1.0)}, {"hard", CaptureOf(9.0)}, {"medium", CaptureOf(5.0)}};
    input.captures.assign(std::begin(captures), std::end(captures));
    const std::vector<SweepRun> together = Sweep(input, kNobody);
    for (std::size_t run = 0; run < together.size(); ++run) {
        double worst = std::numeric_limits<double>::infinity();
        for (const NamedCapture& capture : captures) {
            input.captures = {capture};
            const SweepRun alone = Sweep(input, kNobody)[run];
            EXPECT_EQ(alone.capture, "");
            worst = std::min(worst, alone.figure);
            if (together[run].capture == capture.name) {
                EXPECT_EQ(together[run].figure, alone.figure);
            }
        }
        EXPECT_EQ(together[run].figure, worst);
        EXPECT_NE(together[run].capture, "");
    }
}

TEST(Sweep, StopsAtWhatNoValueMends)
{
    SweepInput input = InputOver({"filters.3.cutoffPercent=50,75"});
    json file = json::parse(kSweptChain);
    file["filters"][2]["order"] = 17;
    input.chain = ChainFile::FromText(file.dump(), "chain.json");
    const std::string message = FailureOf<UsageFailure>([&] { Sweep(input, kNobody); });
    EXPECT_EQ(message.rfind("chain.json: filters.2: BesselThomson: order is 17", 0), 0U) << message;
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
