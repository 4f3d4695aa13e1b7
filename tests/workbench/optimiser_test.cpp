#include "workbench/optimiser.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/failures.h"
#include "support/files.h"
#include "workbench/chaininput.h"
#include "workbench/failure.h"
#include "workbench/optimiserreport.h"
#include "workbench/run.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;
using Testing::FailureOf;
using Testing::TestFolder;

OptimiserInput InputOf(E_SIGNAL_CODING coding, double lossDb, const std::string& chain)
{
    const SimulatedPattern pattern{.coding = coding, .prbs = 31};
    const Simulation settings{.samplesPerUi = 8, .lossDb = lossDb, .noiseRms = 0.002, .lengthUi = 2500};
    return {.chain = ChainFile::FromText(chain, "chain.json"),
            .captures = {{"capture",
                          {.samples = Simulate(pattern.Levels(2500), coding == SIGNAL_CODING_NRZ ? 2 : 4, settings)}}},
            .facts = {},
            .ctleTypes = {"peaking"},
            .ffeTaps = 5,
            .dfeTaps = 2};
}

constexpr const char* kReceiver =
    R"({"device": {"baudRateGBd": 10}, "filters": [{"type": "bessel-thomson"}, {"type": "ffe", "ridge": 1e-9}]})";

// A closed eye opens, no setting on the way was better, and whoever runs the file gets that figure.
TEST(Optimise, FindsWhatTheChainFileThenGives)
{
    for (const auto coding : {SIGNAL_CODING_NRZ, SIGNAL_CODING_PAM4}) {
        const OptimiserInput input = InputOf(coding, coding == SIGNAL_CODING_NRZ ? 14.0 : 8.0, kReceiver);
        std::size_t told = 0;
        const OptimiserResult result =
            Optimise(input, {.begin = {}, .end = [&](const EqualiserTrial&) { ++told; }, .note = {}, .stop = {}});
        EXPECT_EQ(told, result.trials.size());
        EXPECT_LE(told, kMostTrials);
        const EqualiserTrial& best = result.trials[result.best];
        EXPECT_GT(best.figure, coding == SIGNAL_CODING_NRZ ? 60.0 : 40.0);
        for (const EqualiserTrial& trial : result.trials)
            EXPECT_LE(trial.figure, best.figure);

        const TestFolder folder;
        const ChainFile file =
            ChainFile::FromText(OptimisedChain(input, best.point, folder / "."), (folder / "best.json").string());
        const ChainInput record = InputFor(file, input.captures[0].waveform, {}, "capture");
        Chain chain(record.chain, record.samples.size());
        const ChainResult applied = RunChain(chain, record.samples, record.eyes, "capture");
        EXPECT_EQ(FigureOf(applied.stages.back().eye, std::nullopt, RankBy::Opening), best.figure);
        const json filters = json::parse(file.Text())["filters"];
        EXPECT_EQ(filters[0]["type"], "bessel-thomson");
        EXPECT_EQ(filters[best.point.ctle.empty() ? 1 : 2]["ridge"], 1e-9);
    }
}

// The table that a search was writing leads the next one to the same end, which runs what is missing.
TEST(Optimise, GoesOnWhereItWasStoppedWhateverTheThreads)
{
    OptimiserInput input = InputOf(SIGNAL_CODING_NRZ, 10.0, kReceiver);
    input.threads = 1;
    const OptimiserResult whole = Optimise(input);
    input.threads = 3;
    std::string table = TrialTableHead(input);
    std::size_t ended = 0;
    const OptimiserResult part = Optimise(input, {.begin = {},
                                                  .end =
                                                      [&](const EqualiserTrial& trial) {
                                                          table += TrialTableRow(trial);
                                                          ++ended;
                                                      },
                                                  .note = {},
                                                  .stop = [&] { return ended >= 3; }});
    EXPECT_TRUE(part.stopped);
    EXPECT_GE(part.trials.size(), 3U);
    EXPECT_LT(part.trials.size(), whole.trials.size());

    input.known = ReadTrialTable(table + R"({"ctle": "pea)", input, "tried");  // cut off as it was written
    ASSERT_EQ(input.known.size(), ended);
    std::size_t begun = 0;
    const OptimiserResult rest =
        Optimise(input, {.begin = [&](const EqualiserPoint&) { ++begun; }, .end = {}, .note = {}, .stop = {}});
    EXPECT_EQ(begun + input.known.size(), whole.trials.size());
    ASSERT_EQ(rest.trials.size(), whole.trials.size());
    for (std::size_t k = 0; k < whole.trials.size(); ++k) {
        EXPECT_EQ(rest.trials[k].point, whole.trials[k].point);
        EXPECT_EQ(rest.trials[k].figure, whole.trials[k].figure);
    }
    EXPECT_EQ(rest.best, whole.best);
    EXPECT_EQ(OptimisedAsText(rest), OptimisedAsText(whole));

    // A listener that cannot take a trial is told of no other.
    std::size_t taken = 0;
    input.known.clear();
    EXPECT_THROW((void)Optimise(input, {.begin = {},
                                        .end =
                                            [&](const EqualiserTrial&) {
                                                if (++taken == 2)
                                                    throw std::runtime_error("full");
                                            },
                                        .note = {},
                                        .stop = {}}),
                 std::runtime_error);
    EXPECT_EQ(taken, 2U);

    input.captures[0].waveform.samples[7] += 1e-9;
    EXPECT_EQ(
        FailureOf<UsageFailure>([&] { (void)ReadTrialTable(table, input, "tried"); }).rfind("tried: is no table", 0),
        0U);
    EXPECT_EQ(FailureOf<UsageFailure>(
                  [&] { (void)ReadTrialTable(TrialTableHead(input) + "{\"ctle\": 5}\n", input, "tried"); }),
              "tried: line 2 is no trial");
}

// Each trial has the worst figure over the captures, whatever their order, and the best chain is not that of one of them.
TEST(Optimise, TakesTheWorstOfSeveralCaptures)
{
    const OptimiserInput easy = InputOf(SIGNAL_CODING_NRZ, 2.0, kReceiver);
    const OptimiserInput hard = InputOf(SIGNAL_CODING_NRZ, 12.0, kReceiver);
    OptimiserInput both = easy;
    both.captures = {{"easy", easy.captures[0].waveform}, {"hard", hard.captures[0].waveform}};
    const OptimiserResult result = Optimise(both);
    const auto figureIn = [](const OptimiserResult& of, const EqualiserPoint& point) {
        for (const EqualiserTrial& trial : of.trials)
            if (trial.point == point)
                return trial.figure;
        return std::numeric_limits<double>::quiet_NaN();
    };
    const OptimiserResult onEasy = Optimise(easy);
    const OptimiserResult onHard = Optimise(hard);
    std::size_t compared = 0;
    for (const EqualiserTrial& trial : result.trials) {
        const double easyFigure = figureIn(onEasy, trial.point);
        const double hardFigure = figureIn(onHard, trial.point);
        if (std::isnan(easyFigure) || std::isnan(hardFigure))
            continue;
        ++compared;
        EXPECT_EQ(trial.figure, std::min(easyFigure, hardFigure));
        EXPECT_EQ(trial.openingPercent, trial.figure);
        EXPECT_EQ(trial.capture, easyFigure <= hardFigure ? "easy" : "hard");
    }
    EXPECT_GE(compared, 5U);  // the coarse grid at least, which all searches begin with
    std::swap(both.captures[0], both.captures[1]);
    EXPECT_EQ(OptimisedAsText(Optimise(both)), OptimisedAsText(result));
    EXPECT_EQ(ReadTrialTable(TrialTableHead(both) + TrialTableRow(result.trials[0]), both, "t")[0].capture,
              result.trials[0].capture);
}

TEST(Optimise, KeepsTheOtherFiltersAndNamesTheirFilesAnew)
{
    const TestFolder folder;
    OptimiserInput input = InputOf(SIGNAL_CODING_NRZ, 3.0, "{}");
    input.chain = ChainFile::FromText(
        R"({"filters": [{"type": "ctle", "ctleType": "hdmi", "gain": 2, "preserveNoise": true},
                        {"type": "deembedding", "sparamFileName": "a.s2p"},
                        {"type": "ffe", "useManualTaps": true, "taps": [1], "tapsPerUi": 2}]})",
        (folder / "chain.json").string());
    input.facts = {.symbolRateGBd = 2.5, .samplesPerUi = 7.5, .coding = SIGNAL_CODING_PAM4};
    const json chain = json::parse(OptimisedChain(input, {"peaking", 3.0, 4, 1}, folder / "best"));
    EXPECT_EQ(chain["device"], json({{"baudRateGBd", 2.5},
                                     {"signalCoding", "PAM4"},
                                     {"useFractionalSampling", true},
                                     {"uiDuration", 7.5},
                                     {"sampleSpacing", 1.0}}));
    EXPECT_EQ(
        chain["filters"],
        json({{{"type", "ctle"}, {"ctleType", "peaking"}, {"gain", 3.0}, {"preserveNoise", true}},
              {{"type", "deembedding"}, {"sparamFileName", "../a.s2p"}},
              {{"type", "ffe"}, {"numberOfTaps", 4}, {"fitAtSamplingPhase", true}, {"dfeTaps", 1}, {"tapsPerUi", 2}},
              {{"type", "dfe"}, {"numberOfTaps", 1}}}));
}

TEST(Optimise, SaysWhyNothingIsFound)
{
    OptimiserInput input = InputOf(SIGNAL_CODING_NRZ, 3.0, R"({"filters": [{"type": "copy"}]})");
    EXPECT_EQ(FailureOf<DataFailure>([&] {
                  (void)Optimise(input);
              }).rfind("chain.json: filters.1: FFEFilter: baudRateGBd is 0", 0),
              0U);
    input.ctleTypes = {"magic"};
    EXPECT_EQ(FailureOf<UsageFailure>([&] {
                  (void)Optimise(input);
              }).rfind("optimise: the type of CTLE is \"magic\"; expected peaking", 0),
              0U);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
