#include <algorithm>
#include <cmath>
#include <numeric>

#include "apps/program.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::ReadWaveform;
using DSO::Workbench::Waveform;

TEST(ResponseProgram, WritesFiguresColumnsAndAPicture)
{
    const TestFolder folder;
    const json filters = {{{"type", "moving-average"}, {"WindowLength", 2}},
                          {{"type", "copy"}, {"enabled", false}},
                          {{"type", "bessel-thomson"}, {"cutoffPercent", 50}}};
    const json device = {{"baudRateGBd", 10},
                         {"samplesPerUi", 16},
                         {"signalCoding", "NRZ"},
                         {"patternSymbols", {{"prbs", 9}}},
                         {"patternRepeats", 3}};  // the figures are those of one repetition
    folder.Write("chain.json", json{{"device", device}, {"filters", filters}}.dump());
    const json report = ReportOf(folder, "response chain.json -o r");
    EXPECT_EQ(report["samples"], 511 * 16);
    ASSERT_EQ(report["filters"].size(), 2U);
    const json& receiver = report["filters"][1];
    EXPECT_EQ(receiver["name"], "2 bessel-thomson");
    // The normalised cutoff of order 4 is known to five digits, and the record is one sample longer than the taps.
    EXPECT_NEAR(receiver["halfRateGainDb"].get<double>(), 10.0 * std::log10(0.5), 1e-3);
    EXPECT_NEAR(receiver["cutoffFrequencyGHz"].get<double>(), 5.0, 2e-3);
    EXPECT_NEAR(report["whole"]["dcGainDb"].get<double>(), 0.0, 1e-9);
    EXPECT_LT(report["whole"]["noiseBandwidthGHz"], receiver["noiseBandwidthGHz"]);

    const std::string frequency = folder.Read("r-frequency.csv");
    EXPECT_EQ(frequency.rfind("frequencyHz,0 moving-average magnitude [dB],0 moving-average group delay [ps],"
                              "2 bessel-thomson magnitude [dB],2 bessel-thomson group delay [ps],whole magnitude [dB],"
                              "whole group delay [ps]\n0,",
                              0),
              0U);
    EXPECT_EQ(std::count(frequency.begin(), frequency.end(), '\n'), 1 + 511 * 8 + 1);
    EXPECT_NE(frequency.find("\n80000000000,"), std::string::npos);
    EXPECT_EQ(frequency.substr(frequency.size() - 2), ",\n");  // far below -60 dB at half the sample rate: no delay

    const Waveform impulse = ReadWaveform(folder / "r-impulse.csv");  // of the whole, the last column
    ASSERT_EQ(impulse.samples.size(), 511U * 16);
    EXPECT_NEAR(std::accumulate(impulse.samples.begin(), impulse.samples.end(), 0.0), 16.0, 1e-9);  // DC gain, per UI
    const auto peak = std::max_element(impulse.samples.begin(), impulse.samples.end()) - impulse.samples.begin();
    EXPECT_EQ(peak, (511 * 16 - 1) / 2);  // in the middle
    EXPECT_NEAR((impulse.start + static_cast<double>(peak) * impulse.interval) * 1e12,
                report["whole"]["peakDelayPs"].get<double>(), 1e-9);
    EXPECT_TRUE(IsPng(folder.Read("r.png")));

    ASSERT_EQ(RunProgram(folder, "response chain.json"), 0);
    const std::string table = folder.Read("out");
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 4);
    EXPECT_EQ(folder.Read("err"), "");
    ExpectRefusals(folder, "response", {{"chain.json -o no/r", 1, "no/r-frequency.csv: cannot be written"}});
}

// A Gaussian channel of 8 ps, its peak at 3 ns.
TEST(ResponseProgram, DrawsAndReportsACorrectedChannel)
{
    const TestFolder folder;
    constexpr double kInterval = 1.2303e-12;  // [s]
    std::vector<double> impulse(8128);
    for (std::size_t k = 0; k < impulse.size(); ++k)
        impulse[k] = 0.4 * std::exp(-0.5 * std::pow((static_cast<double>(k) * kInterval - 3e-9) / 8e-12, 2.0));
    DSO::Workbench::WriteWaveform(folder / "table.csv", impulse, kInterval);
    const json filters = {{{"type", "copy"}},
                          {{"type", "sirc"}, {"channelResponse", "table.csv"}, {"referenceCutoffPercent", 75}}};
    const json device = {{"baudRateGBd", 26.5625}, {"samplesPerUi", 16}, {"patternLengthUi", 511}};
    folder.Write("chain.json", json{{"device", device}, {"filters", filters}}.dump());
    const json report = ReportOf(folder, "response chain.json -o r")["filters"];
    EXPECT_FALSE(report[0].contains("correctedChannel"));
    const json& channel = report[1]["correctedChannel"];
    EXPECT_NEAR(channel["cutoffGHz"].get<double>(), 19.921875, 1e-9);
    EXPECT_NEAR(channel["comparedToGHz"].get<double>(), 1.5 * 19.921875, 0.06);  // a bin
    // Linear interpolation of the kernel and of the table on the filter's grid: a hundredth of a dB.
    EXPECT_LT(std::abs(channel["largestDifferenceDb"].get<double>()), 0.02);

    EXPECT_TRUE(IsPng(folder.Read("r-sirc-1.png")));
    const std::string table = folder.Read("r-sirc-1.csv");
    EXPECT_EQ(table.rfind("frequencyHz,measured [dB],target [dB],correction [dB],corrected [dB]\n0,", 0), 0U);
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1024);  // a head and bins 0 to 2 * 511
    EXPECT_FALSE(std::filesystem::exists(folder / "r-sirc-0.png"));

    ASSERT_EQ(RunProgram(folder, "response chain.json"), 0);
    EXPECT_NE(folder.Read("out").find("\n1 sirc: corrected channel less target (Bessel-Thomson, 19.922 GHz): "),
              std::string::npos);
}

}  // namespace

}  // namespace Tarnwick::App
