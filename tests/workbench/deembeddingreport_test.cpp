#include "workbench/deembeddingreport.h"

#include <cmath>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/files.h"
#include "support/touchstonetext.h"
#include "workbench/run.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;
using Testing::TestFolder;
using Transmission = std::map<double, std::complex<double>>;
using Testing::FourPorts;
using Testing::kMagnitudeOptions;
using Testing::kRealOptions;

// A pad of 20 dB, known from 1 to 20 GHz, taken away at 160 GS/s: the band ends at 12 GHz for 10 GHz of bandwidth. With
// the raised cosine from 0.8 to 1.2 of that, white noise behind is 100 times 9.5 of 80 GHz.
TEST(DeEmbeddingReport, OfAPadIsItsGainInTheBand)
{
    const TestFolder folder;
    std::string rows = kMagnitudeOptions;
    for (int k = 2; k <= 40; ++k)
        rows += std::to_string(0.5 * k) + " 0 0 .1 0 .1 0 0 0\n";
    (void)folder.Write("pad.s2p", rows);
    const auto path = folder.Write("chain.json", R"({
        "device": {"baudRateGBd": 10, "samplesPerUi": 16, "patternLengthUi": 100, "signalCoding": "NRZ"},
        "filters": [{"type": "deembedding", "sparamFileName": "pad.s2p", "conversionParameterB": 10,
                     "preserveNoise": false}]})");
    Chain chain(path, 1600);
    Stage& stage = chain.Stages().at(0);
    std::vector<double> samples(1600, 0.25);
    const json found = json::parse(stage.findings(RunStage(stage, samples, "chain", "capture")));
    EXPECT_NEAR(found["largestBoostDb"].get<double>(), 20.0, 1e-9);
    EXPECT_EQ(found["largestBoostGHz"], 0.0);
    // The sum over bins of 0.1 GHz against the integral.
    EXPECT_NEAR(found["noiseAmplificationDb"].get<double>(), 20.0 + 10.0 * std::log10(9.5 / 80.0), 0.03);
    EXPECT_NEAR(found["energyBeforeZeroPercent"].get<double>(), 50.0, 10.0);  // even, and its middle is at 0
    EXPECT_NEAR(found["bandUsedGHz"][1].get<double>(), 12.0, 0.11);           // one bin
    EXPECT_EQ(found["extrapolatedGHz"][1], 1.0);
    EXPECT_NEAR(found["extrapolatedPercent"].get<double>(), 100.0 / 12.0, 0.1);
}

TEST(DeEmbeddingReport, TellsTimeBeforeZeroAndMadeValues)
{
    std::vector<double> kernel(64, 0.0);
    kernel[61] = 0.6;
    kernel[2] = 0.3;
    const Transmission fixture = {{0.0, 0.5}, {1e9, 0.5}, {2e9, 0.5}, {3e9, 0.5}};
    DeEmbeddingFigures figures = FiguresOfDeEmbedding(kernel, 64e9, fixture, {false, 30.0, 0.0});
    EXPECT_NEAR(figures.energyBeforeZero, 0.8, 1e-15);
    EXPECT_NEAR(figures.peakDelay, -3.0 / 64e9, 1e-24);
    EXPECT_NEAR(figures.noiseAmplificationDb, 10.0 * std::log10(0.45), 1e-12);
    EXPECT_EQ(figures.extrapolatedTo, 1e9);  // the value at 0 Hz is the rule's
    Transmission measured = fixture;
    measured[0.0] = 0.51;
    figures = FiguresOfDeEmbedding(kernel, 64e9, measured, {false, 30.0, 0.0});
    EXPECT_EQ(figures.extrapolatedTo, 0.0);
}

TEST(DeEmbeddingReport, WarnsBeforeAWaveformIsSpoilt)
{
    const TestFolder folder;
    std::string rows = kRealOptions;
    for (int k = 1; k <= 5; ++k)
        rows += FourPorts(std::to_string(2 * k + 1), "\n");
    const auto file = folder.Write("f.s4p", rows).string();
    (void)folder.Write("g.s2p",
                       kMagnitudeOptions + "1 .1 0 .5 0 .5 0 .1 0 \n3 .1 0 .5 0 .5 0 .1 0 \n4 .1 0 .5 0 .5 0 .1 0\n");
    const auto path = folder.Write("chain.json", R"({"filters": [
        {"type": "deembedding", "sparamFileName": "f.s4p"}, {"type": "deembedding", "sparamFileName": "f.s4p", "portOrder": 1},
        {"type": "deembedding", "sparamFileName": "g.s2p"}]})");
    Chain chain(path, 128);
    EXPECT_EQ(chain.Stages()[0].notes, std::vector<std::string>{file + ": portOrder is 0, but 1 carries 19.1 dB more"});
    EXPECT_EQ(chain.Stages()[1].notes, std::vector<std::string>{});
    EXPECT_EQ(chain.Stages()[2].notes,
              std::vector<std::string>{(folder / "g.s2p").string() +
                                       ": line 2, token 10: a blank at the end counts as a token; their value is put "
                                       "at 0 Hz; 1 more like it, the last in line 3"});
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
