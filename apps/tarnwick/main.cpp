// tarnwick: filters captures from the command line.
#include <cstdio>
#include <exception>

#include <fmt/format.h>

#include "commands/commands.h"
#include "workbench/failure.h"

namespace {

int Report(const std::exception& failure, int status)
{
    fmt::print(stderr, "tarnwick: {}\n", failure.what());
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    using namespace Tarnwick::App;
    using namespace Tarnwick::DSO::Workbench;
    try {
        CLI::App program("Filters pattern-locked captures of a sampling oscilloscope.", "tarnwick");
        program.set_version_flag("--version", "tarnwick " TARNWICK_VERSION);
        program.require_subcommand(1);
        AddApply(program);
        AddSimulate(program);
        AddInfo(program);
        AddMeasure(program);
        AddSweep(program);
        AddResponse(program);
        AddPresets(program);
        AddTouchstone(program);
        AddChainKeys(program);
        try {
            program.parse(argc, argv);
        } catch (const CLI::Success& help) {
            return program.exit(help);
        } catch (const CLI::ParseError& wrong) {
            fmt::print(stderr, "tarnwick: {}\nRun with --help for more information.\n", wrong.what());
            return 2;
        }
        if (std::fflush(stdout) != 0)
            throw DataFailure("standard output cannot be written");
        return 0;
    } catch (const UsageFailure& failure) {
        return Report(failure, 2);
    } catch (const std::exception& failure) {
        return Report(failure, 1);
    }
}
