#include <algorithm>
#include <cmath>

#include "apps/program.h"
#include "support/touchstonetext.h"

namespace Tarnwick::App {

namespace {

using Testing::FourPorts;
using Testing::kMagnitudeOptions;
using Testing::kRealOptions;

const std::string kRow = "1 .1 0 .5 -90 .5 -90 .1 0\n";

TEST(TouchstoneCommand, TellsDrawsAndNormalises)
{
    const TestFolder folder;
    std::string rows;
    for (int k = 1; k <= 300; ++k)
        rows += std::to_string(k) + " .1 0 .5 -90 .5 -90 .1 0 \n";
    (void)folder.Write("f.s2p", kMagnitudeOptions + rows);
    ASSERT_EQ(RunProgram(folder, "touchstone f.s2p -o plot --normalise clean.s2p"), 0) << folder.Read("err");
    const std::string text = folder.Read("out");
    EXPECT_EQ(text.rfind("f.s2p: 2 ports, 300 points from 1 to 300 GHz, steps of 1 GHz\n"
                         "options in line 1: GHz, S-parameters, MA, reference 50\n"
                         "at 0 Hz: no data; the second frequency is twice the first, so the filter puts 0.5 there, ",
                         0),
              0U)
        << text;
    EXPECT_TRUE(IsPng(folder.Read("plot.png")));
    const std::string csv = folder.Read("plot.csv");
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 302);  // heading, 0 Hz as read, 300 as meant

    const json before = ReportOf(folder, "touchstone f.s2p");
    EXPECT_FALSE(before["readAsMeant"]);
    EXPECT_EQ(before["differences"].size(), 300U);
    EXPECT_EQ(before["differenceKinds"][0]["count"], 300);

    const json after = ReportOf(folder, "touchstone clean.s2p");
    EXPECT_TRUE(after["readAsMeant"]);
    EXPECT_EQ(after["atZeroHz"]["madeByFilter"], 0.5);
    EXPECT_EQ(after["values"][0]["S21"]["phaseDeg"], -90.0);
}

TEST(TouchstoneCommand, ShowsBothPortOrders)
{
    const TestFolder folder;
    (void)folder.Write("F.S4P", kRealOptions + FourPorts("1", " "));
    ASSERT_EQ(RunProgram(folder, "touchstone F.S4P"), 0) << folder.Read("err");
    const std::string text = folder.Read("out");
    EXPECT_NE(text.find("through path: port 1 to port 2, port 3 to port 4 (port order 1), 19.1 dB above the other\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("-20.0000      0.000       -0.9151      0.000"), std::string::npos) << text;
}

// Admittances of a series resistor of 100 Ohm at 50: Y = ((.5, -.5), (-.5, .5)), so S21 = 1/2.
TEST(TouchstoneCommand, ShowsWhatItWouldWrite)
{
    const TestFolder folder;
    const std::string row = " .5 0 -.5 0 -.5 0 .5 0\n";
    (void)folder.Write("y.s2p", "# GHz Y RI R 50\n1" + row + "2" + row);
    const json report = ReportOf(folder, "touchstone y.s2p --at 1.5 --normalise s.s2p");
    EXPECT_EQ(report["convertedFrom"], "Y");
    ASSERT_EQ(report["values"].size(), 1U);
    EXPECT_EQ(report["values"][0]["frequencyHz"], 1.5e9);
    EXPECT_NEAR(report["values"][0]["S21"]["magnitudeDb"].get<double>(), 20.0 * std::log10(0.5), 1e-12);
    EXPECT_TRUE(report["quality"]["passive"]["holds"]);
    const json written = ReportOf(folder, "touchstone s.s2p --at 1.5");
    EXPECT_EQ(written["values"][0]["S21"], report["values"][0]["S21"]);

    (void)folder.Write("m.s4p", "! Sdd11 Sdd12 ...\n" + kRealOptions + FourPorts("1", "\n"));
    ASSERT_EQ(RunProgram(folder, "touchstone m.s4p"), 0) << folder.Read("err");
    EXPECT_NE(folder.Read("out").find("mixed-mode parameters, as line 1 says"), std::string::npos);
    EXPECT_EQ(folder.Read("out").find("through path"), std::string::npos);
    ExpectRefusals(folder, "touchstone", {{"m.s4p --at 3", 2, "--at: is 3 GHz; expected a frequency within"}});

    (void)folder.Write("short.s2p", kMagnitudeOptions + "1 .1 0 .5 -90\n.5 -90 .1 0\n");
    EXPECT_EQ(RunProgram(folder, "touchstone short.s2p"), 1);
    EXPECT_NE(folder.Read("err").find("refuses it in line 3; --normalise OUT rewrites it"), std::string::npos)
        << folder.Read("err");
}

TEST(TouchstoneCommand, LeavesNothingHalfDone)
{
    const TestFolder folder;
    const std::string bad = kMagnitudeOptions + "1 .1 0 .5 x .5 -90 .1 0\n";
    (void)folder.Write("bad.s2p", bad);
    (void)folder.Write("good.s2p", kMagnitudeOptions + "1 .1 0 .5 -90 .5 -90 .1 0 \n");
    ExpectRefusals(folder, "touchstone",
                   {
                       {"nowhere.s2p", 1, "nowhere.s2p: cannot be read"},
                       {".", 1, ".: cannot be read"},
                       {"bad.s2p --normalise bad.s2p", 1, "bad.s2p: line 2, token 5: \"x\" is no decimal number"},
                       {"good.s2p --normalise none/out.s2p", 1, "none/out.s2p: cannot be written"},
                       {"good.s2p --normalise out.s1p", 2, "expected one that ends in .s2p, lower case"},
                       {"bad.s2p -o plot", 1, "bad.s2p: holds nothing to draw; line 2: \"x\" is no decimal number"},
                   });
    EXPECT_EQ(folder.Read("bad.s2p"), bad);
    // Over itself: complete, or as it was.
    EXPECT_EQ(RunProgram(folder, "touchstone good.s2p --normalise good.s2p"), 0) << folder.Read("err");
    EXPECT_EQ(folder.Read("good.s2p"), kMagnitudeOptions + kRow);
}

}  // namespace

}  // namespace Tarnwick::App
