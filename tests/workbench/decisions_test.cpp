#include "workbench/decisions.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "workbench/pattern.h"
#include "workbench/run.h"
#include "workbench/simulation.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;

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
        {"manual, a UI earlier", right, {{"numberOfTaps", 0}, {"useManualTaps", true}, {"samplingDelayPs", -5}}, 0},
        {"manual, unknown symbols", nullptr, {{"numberOfTaps", 0}, {"useManualTaps", true}}, -1},
        {"no taps, no delay", right, {{"numberOfTaps", 0}}, -1},
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
