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
    ExpectRefusals(folder, "", {{"", 2, "A subcommand is required"}, {"aply", 2, "A subcommand is required"}});
}

}  // namespace

}  // namespace Tarnwick::App
