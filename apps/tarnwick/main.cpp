// tarnwick: filters captures from the command line.
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "console.h"
#include "notes.h"
#include "program.h"
#include "reports.h"
#include "workbench/chain.h"
#include "workbench/failure.h"

namespace {

using Tarnwick::DSO::Workbench::DataFailure;
using Tarnwick::DSO::Workbench::UsageFailure;

constexpr int kDataStatus = 1;
constexpr int kUsageStatus = 2;

int Report(const std::exception& failure, int status)
{
    Tarnwick::App::PrintNote(failure.what());
    return status;
}

std::vector<std::string> CommandNames()
{
    std::vector<std::string> names;
    for (const auto& command : Tarnwick::App::Commands())
        names.emplace_back(command.name);
    return names;
}

std::string ExtraText(const CLI::App& command, const std::string& extra)
{
    std::vector<std::string> known = {"--help"};
    for (const CLI::Option* option : command.get_options())
        for (const std::string& name : option->get_lnames())
            known.push_back("--" + name);
    if (extra.substr(0, 1) != "-")
        return fmt::format("{} takes no further argument: \"{}\"", command.get_name(), extra);
    return fmt::format("{} is no option of {}; the nearest one is {}", extra, command.get_name(),
                       Tarnwick::DSO::Workbench::Nearest(extra, known));
}

// What is wrong with the arguments.
std::string UsageText(const CLI::App& program, const CLI::ParseError& wrong, const std::string& first)
{
    const auto commands = program.get_subcommands();
    if (commands.empty()) {
        const std::vector<std::string> names = CommandNames();
        if (first.empty() || first.front() == '-')
            return fmt::format("a command is missing; expected one of {}", fmt::join(names, ", "));
        return fmt::format("\"{}\" is no command; the nearest one is \"{}\"", first,
                           Tarnwick::DSO::Workbench::Nearest(first, names));
    }
    const CLI::App& command = *commands.front();
    std::string text = wrong.what();
    const std::vector<std::string> extras = program.remaining(true);
    if (dynamic_cast<const CLI::ExtrasError*>(&wrong) != nullptr && !extras.empty())
        return ExtraText(command, extras.front());
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&wrong) != nullptr)
        return fmt::format("{}: needs one value", text.substr(0, text.find(':')));
    if (dynamic_cast<const CLI::RequiredError*>(&wrong) != nullptr)
        for (const CLI::Option* option : command.get_options())
            if (option->get_required() && option->count() == 0)
                return fmt::format("{} is required", option->get_name());
    return text;
}

}  // namespace

#if defined(_WIN32)
// The arguments as Windows has them: those of main have lost what the code page does not know.
int wmain(int argc, wchar_t** wideArgv)
{
    const Tarnwick::App::Utf8Arguments arguments(argc, wideArgv);
    const char* const* const argv = arguments.Get();
#else
int main(int argc, char** argv)
{
#endif
    try {
        Tarnwick::App::PrepareStreams();
        Tarnwick::App::KeepCommandLine(argc, argv);
        const auto made = Tarnwick::App::MakeProgram();
        CLI::App& program = *made;
        try {
            program.parse(argc, argv);
        } catch (const CLI::Success& help) {
            return program.exit(help);
        } catch (const CLI::ParseError& wrong) {
            Tarnwick::App::PrintNote(UsageText(program, wrong, argc > 1 ? argv[1] : "") +
                                     "\nRun with --help for more information.");
            return kUsageStatus;
        }
        if (std::fflush(stdout) != 0)
            throw DataFailure("standard output cannot be written");
        return 0;
    } catch (const UsageFailure& failure) {
        return Report(failure, kUsageStatus);
    } catch (const std::bad_alloc&) {
        return Report(std::runtime_error("there is not enough memory for this"), kDataStatus);
    } catch (const std::exception& failure) {
        return Report(failure, kDataStatus);
    }
}
