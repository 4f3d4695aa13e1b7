#include <cmath>
#include <string>

#include "apps/program.h"

namespace Tarnwick::App {

namespace {

TEST(EqualiserProgram, FindsSymbolsAndTapsByItself)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o capture.npy --loss 8 --noise 0.004 --prbs 11 --repetitions 2"), 0);
    folder.Write("ffe.json", R"({
        "device": {"baudRateGBd": 26.5625, "patternLengthUi": 2047, "samplesPerUi": 16, "signalCoding": "PAM4"},
        "filters": [{"type": "ffe", "numberOfTaps": 7, "tapsPerUi": 1, "quantizeTaps": true, "tapResolution": 64}]})");
    const json stages = ReportOf(folder, "apply ffe.json capture.npy -o out.npy")["stages"];
    const std::string said = "ffe.json: device.patternSymbols is not given; found 2047 PAM4 symbols (certain, quality ";
    EXPECT_NE(folder.Read("err").find(said), std::string::npos) << folder.Read("err");
    const json& ffe = stages[1];
    EXPECT_EQ(ffe["taps"].size(), 7U);
    EXPECT_EQ(ffe["appliedTaps"].size(), 7U);
    EXPECT_EQ(ffe["taps"][0].get<double>(), std::round(ffe["taps"][0].get<double>()));
    EXPECT_LT(ffe["residualError"], 0.3);
    EXPECT_GE(ffe["mainCursor"], 1);
    EXPECT_LT(stages[0]["eyes"][1]["height"], 0.01);
    EXPECT_GT(ffe["eyes"][1]["height"], 0.15);

    const json swept = ReportOf(folder, "sweep ffe.json capture.npy --over filters.0.numberOfTaps=1,7");
    EXPECT_EQ(swept["runs"][0]["values"]["filters.0.numberOfTaps"], 7);

    const json measured = ReportOf(folder, "measure out.npy");
    EXPECT_EQ(measured["coding"], "PAM4");
    EXPECT_EQ(measured["samplesPerUi"], 16);
    EXPECT_EQ(measured["patternLengthUi"], 2047);
    EXPECT_EQ(measured["eyes"].size(), 3U);
    EXPECT_TRUE(measured["tdecqDb"].is_number());
    EXPECT_FALSE(measured["assumptions"].empty());
    // The eye is closed: how many levels there are has to be said.
    ExpectRefusals(folder, "measure", {{"capture.npy", 1, "the number of levels cannot be told (closed eyes?)"}});
    EXPECT_EQ(RunProgram(folder, "measure capture.npy --coding PAM4"), 0);

    folder.Write("none.json", R"({"device": {"samplesPerUi": 16, "signalCoding": "PAM4"},
                                  "filters": [{"type": "ffe", "numberOfTaps": 3}]})");
    ExpectRefusals(
        folder, "apply",
        {{"none.json capture.npy -o f.npy", 2, "device.patternLengthUi: is missing; filters.0 (ffe) needs it"}});
}

}  // namespace

}  // namespace Tarnwick::App
