#include "commands/commands.h"

#include "apps/program.h"

namespace Tarnwick::App {

namespace {

TEST(Commands, AreAllInTheHelpWithTheirExamples)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "--help"), 0);
    const std::string help = folder.Read("out");
    for (const Command& command : Commands()) {
        EXPECT_NE(help.find(fmt::format("\n  {} ", command.name)), std::string::npos) << help;
        ASSERT_EQ(RunProgram(folder, fmt::format("{} --help", command.name)), 0);
        const std::string example = fmt::format("Example: tarnwick {} {}\n", command.name, command.example);
        EXPECT_NE(folder.Read("out").find(example), std::string::npos) << folder.Read("out");
    }
    ExpectRefusals(folder, "",
                   {
                       {"", 2, "a command is missing; expected one of apply, "},
                       {"aply", 2, "\"aply\" is no command; the nearest one is \"apply\""},
                       {"presets --jsn", 2, "--jsn is no option of presets; the nearest one is --json"},
                       {"presets x", 2, "presets takes no further argument: \"x\""},
                       {"simulate --baud", 2, "--baud: needs one value"},
                       {"simulate --prbs 8", 2, "--prbs: is 8; expected one of 7, 9, 11, 13, 15"},
                   });
}

TEST(PresetsProgram, PrintsBothLists)
{
    const TestFolder folder;
    const auto report = ReportOf(folder, "presets");
    EXPECT_EQ(report["ieee802.3bs"].size(), 17U);
    EXPECT_EQ(report["hdmi"].size(), 8U);
    const auto& row = report["ieee802.3bs"][16];
    EXPECT_EQ(row["gain"], 9.0);
    EXPECT_EQ(row["zerosGHz"], (std::vector<double>{4.006377, 1.0}));
    EXPECT_NEAR(row["dcGainDb"].get<double>(), -9.0, 1e-5);
    EXPECT_NEAR(row["peakFrequencyGHz"].get<double>(), 20.0, 5.0);

    ASSERT_EQ(RunProgram(folder, "presets"), 0);
    EXPECT_NE(folder.Read("out").find("26.5625"), std::string::npos);
    EXPECT_EQ(folder.Read("err"), "");
}

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
