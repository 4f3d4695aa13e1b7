// tarnwick: filters captures from the command line.
#include <cstdio>
#include <exception>

#include <fmt/format.h>

#include "commands/commands.h"
#include "workbench/failure.h"

namespace {

using Tarnwick::DSO::Workbench::DataFailure;
using Tarnwick::DSO::Workbench::UsageFailure;

constexpr int kDataStatus = 1;
constexpr int kUsageStatus = 2;

int Report(const std::exception& failure, int status)
{
    fmt::print(stderr, "tarnwick: {}\n", failure.what());
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        CLI::App program("Filters pattern-locked captures of a sampling oscilloscope.", "tarnwick");
        program.set_version_flag("--version", "tarnwick " TARNWICK_VERSION);
        program.require_subcommand(1);
        for (const auto& [name, help, example, addOptions] : Tarnwick::App::Commands()) {
            CLI::App* const command = program.add_subcommand(name, help);
            addOptions(*command);
            // Behind what the command itself has to say there.
            command->footer(fmt::format("{}Example: tarnwick {} {}", command->get_footer(), name, example));
        }
        try {
            program.parse(argc, argv);
        } catch (const CLI::Success& help) {
            return program.exit(help);
        } catch (const CLI::ParseError& wrong) {
            fmt::print(stderr, "tarnwick: {}\nRun with --help for more information.\n", wrong.what());
            return kUsageStatus;
        }
        if (std::fflush(stdout) != 0)
            throw DataFailure("standard output cannot be written");
        return 0;
    } catch (const UsageFailure& failure) {
        return Report(failure, kUsageStatus);
    } catch (const std::exception& failure) {
        return Report(failure, kDataStatus);
    }
}
