#include "apps/program.h"

namespace Tarnwick::App {

namespace {

TEST(SimulateProgram, RefusesWhatItCannotDoAndWritesNothing)
{
    const TestFolder folder;
    ExpectRefusals(folder, "simulate --prbs 7 -o c.csv",
                   {
                       {"--noise nan", 2, "--noise: is nan; expected a number from 0 to"},
                       {"--noise -1", 2, "--noise: is -1"},
                       {"--noise 1x", 2, "--noise: is 1x"},
                       {"--baud nan", 2, "--baud: is nan"},
                       {"--amplitude -nan", 2, "--amplitude: is -nan"},
                       {"--rise nan", 2, "--rise: is nan"},
                       {"--loss nan", 2, "--loss: is nan"},
                       {"--jitter NAN", 2, "--jitter: is NAN"},
                       {"--chain c.csv", 2, "--chain: is c.csv, as the capture; expected another file"},
                       {"--chain ./d/../c.csv", 2, "as the capture"},
                       {"--jitter 0.3 --rise 0.5", 2, "jitter is 0.3 UI rms; expected at most 0.25 UI"},
                   });
}

TEST(SimulateProgram, SaysThatLongEdgesHoldTheJitter)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate --prbs 7 -o c.csv --jitter 0.1 --rise 0.5"), 0);
    EXPECT_NE(folder.Read("err").find("hold the jitter within 0.25 UI"), std::string::npos) << folder.Read("err");
    ASSERT_EQ(RunProgram(folder, "simulate --prbs 7 -o c.csv --jitter 0.05 --rise 0.5"), 0);
    EXPECT_EQ(folder.Read("err"), "");
}

}  // namespace

}  // namespace Tarnwick::App
