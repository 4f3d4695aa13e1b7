#include <algorithm>

#include "apps/program.h"

namespace Tarnwick::App {

namespace {

TEST(SweepProgram, RanksTheBandwidthsOfANoisyCapture)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o c.npy --prbs 9 --noise 0.03 --loss 6 --spu 8 --chain chain.json"), 0);
    const json report =
        ReportOf(folder, "sweep chain.json c.npy --over filters.1.cutoffPercent=-1,20:1,30,50,70,90 -o s");
    EXPECT_EQ(report["over"], json::array({"filters.1.cutoffPercent"}));
    ASSERT_EQ(report["runs"].size(), 6U);
    for (std::size_t k = 0; k < 4; ++k) {
        const json& run = report["runs"][k];
        EXPECT_EQ(run["rank"], k + 1);
        EXPECT_EQ(run["eyes"].size(), 3U);
        const auto smallest = [&](const char* figure) {
            return std::min({run["eyes"][0][figure], run["eyes"][1][figure], run["eyes"][2][figure]});
        };
        EXPECT_EQ(run["smallestHeight"], smallest("height"));
        EXPECT_EQ(run["smallestWidthUi"], smallest("widthUi"));
        EXPECT_LE(run["smallestHeight"], report["runs"][k == 0 ? 0 : k - 1]["smallestHeight"]);
    }
    // 30 % of the symbol rate is too little for four levels, whatever the noise.
    EXPECT_EQ(report["runs"][3]["values"]["filters.1.cutoffPercent"], 30);
    EXPECT_EQ(report["runs"][4]["values"]["filters.1.cutoffPercent"], -1);
    EXPECT_NE(report["runs"][4]["error"].get<std::string>().find("cutoffPercent is -1"), std::string::npos);
    EXPECT_NE(report["runs"][5]["error"].get<std::string>().find("expected a number"), std::string::npos);
    EXPECT_EQ(report["runs"][5].size(), 2U);
    EXPECT_TRUE(IsPng(folder.Read("s.png")));
}

// The sheet takes 64 of them; the table all.
TEST(SweepProgram, TellsOfMoreRunsThanASheetTakes)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o c.npy --prbs 7 --coding NRZ --spu 8 --chain chain.json"), 0);
    ASSERT_EQ(RunProgram(folder, "sweep chain.json c.npy --over filters.1.cutoffPercent=31:100:1"), 0);
    const std::string table = folder.Read("out");
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 71);
    EXPECT_NE(table.find("\n   70 "), std::string::npos) << table;
    EXPECT_TRUE(IsPng(folder.Read("sweep.png")));
}

TEST(SweepProgram, SaysWhoseFaultAFailureIs)
{
    const TestFolder folder;
    folder.Write("chain.json", R"({
        "device": {"baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": {"prbs": 7}},
        "filters": [{"type": "copy"}, {"type": "copy"}, {"type": "bessel-thomson", "cutoffPercent": 75},
                    {"type": "copy"}, {"type": "copy"}]})");
    folder.Write("none.json", R"({"device": {"samplesPerUi": 8}, "filters": [{"type": "copy"}]})");
    ASSERT_EQ(RunProgram(folder, "simulate -o c.npy --prbs 7 --coding NRZ --spu 8 --baud 10"), 0);
    folder.Write("short.txt", "1\n2\n");
    const std::string good = " --over filters.2.cutoffPercent=50,75";
    ExpectRefusals(
        folder, "sweep",
        {
            {"chain.json c.npy", 2, "--over is required"},
            {"chain.json c.npy --over filters.2.cutofPercent=1,2", 2, "the nearest one is \"cutoffPercent\""},
            {"chain.json c.npy --over filters.5.order=1", 2, "filters has no 5; it holds 5, counted from 0"},
            {"chain.json c.npy --over filters.2.cutoffPercent.x=1", 2, "filters.2.cutoffPercent is 75, which holds no"},
            {"chain.json c.npy --over filters.2.cutoffPercent=-1,-2", 1, "cutoffPercent is -1"},
            {"chain.json c.npy" + good + good, 2, "is given twice"},
            {"chain.json c.npy" + good + good + good, 2, "is given 3 times"},
            {"chain.json c.npy --over a=1:200:1 --over b=1:200:1", 2, "gives 40000 combinations"},
            {"none.json c.npy --over filters.0.channel=0", 2, "device.signalCoding: is missing; sweep needs it"},
            {"chain.json c.npy --minus short.txt" + good, 1, "short.txt: has 2 samples"},
        });
}

}  // namespace

}  // namespace Tarnwick::App
