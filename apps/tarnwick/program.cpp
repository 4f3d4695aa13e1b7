#include "program.h"

#include <cstddef>
#include <memory>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "commandline.h"
#include "commands/commands.h"
#include "workbench/chain.h"
#include "workbench/failure.h"
#include "workbench/joined.h"
#include "workbench/tarnwick.h"

namespace Tarnwick::App {

namespace {

// "{NRZ, PAM4}" among a type's words.
std::vector<std::string> ChoicesIn(const std::string& type)
{
    std::vector<std::string> choices;
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}', open);
    if (close == std::string::npos)
        return choices;
    for (std::string& choice : CLI::detail::split(type.substr(open + 1, close - open - 1), ','))
        choices.push_back(CLI::detail::trim_copy(choice));
    return choices;
}

OptionText TextOf(const CLI::Option& option)
{
    // "GSPS:FLOAT in [0 - 1]": what the command calls it, then what its checks say.
    const std::string type = option.get_type_name();
    const std::string kind = type.substr(0, type.find(':'));
    OptionText text;
    text.isArgument = option.get_positional();
    if (text.isArgument) {
        text.names = {option.get_name(true)};
    } else {
        for (const std::string& name : option.get_snames())
            text.names.push_back("-" + name);
        for (const std::string& name : option.get_lnames())
            text.names.push_back("--" + name);
    }
    text.choices = ChoicesIn(type);
    text.help = option.get_description();
    text.standard = option.get_default_str();
    text.isRequired = option.get_required();
    text.isRepeated = option.get_items_expected_max() > 1;
    text.isNumber = kind == "UINT" || kind == "INT" || kind == "FLOAT" || type.find(" in [") != std::string::npos;
    if (option.get_items_expected_max() > 0)
        text.value = text.choices.empty() ? kind : DSO::Workbench::Joined(text.choices, "|");
    return text;
}

std::vector<OptionText> OptionsOf(const CLI::App& command)
{
    std::vector<OptionText> texts;
    for (const CLI::Option* option : command.get_options())
        texts.push_back(TextOf(*option));
    return texts;
}

std::vector<std::string> CommandNames()
{
    std::vector<std::string> names;
    for (const auto& command : Commands())
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
                       DSO::Workbench::Nearest(extra, known));
}

// What is wrong with the arguments.
std::string UsageText(const CLI::App& program, const CLI::ParseError& wrong, const std::string& first)
{
    const auto commands = program.get_subcommands();
    if (commands.empty()) {
        const std::vector<std::string> names = CommandNames();
        if (first.empty() || first.front() == '-')
            return fmt::format("a command is missing; expected one of {}", DSO::Workbench::Joined(names, ", "));
        return fmt::format("\"{}\" is no command; the nearest one is \"{}\"", first,
                           DSO::Workbench::Nearest(first, names));
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

/// The program with all its commands, ready to parse once.
std::unique_ptr<CLI::App> MakeProgram()
{
    auto program =
        std::make_unique<CLI::App>("Filters pattern-locked captures of a sampling oscilloscope.", "tarnwick");
    program->set_version_flag("--version", fmt::format("tarnwick {}", tarnwick_version()));
    program->require_subcommand(1);
    program->allow_windows_style_options(false);  // "/data/capture.npy" is a file everywhere
    for (const auto& [name, help, example, addOptions] : Commands()) {
        CLI::App* const command = program->add_subcommand(name, help);
        addOptions(CommandLine(*command));
        // Behind what the command itself has to say there.
        command->footer(fmt::format("{}Example: tarnwick {} {}", command->get_footer(), name, example));
    }
    return program;
}

}  // namespace

void RunProgram(int argc, const char* const* argv)
{
    const auto program = MakeProgram();
    try {
        program->parse(argc, argv);
    } catch (const CLI::Success& help) {
        program->exit(help);
    } catch (const CLI::ParseError& wrong) {
        throw DSO::Workbench::UsageFailure(UsageText(*program, wrong, argc > 1 ? argv[1] : "") +
                                           "\nRun with --help for more information.");
    }
}

ProgramText DescribeProgram()
{
    const auto program = MakeProgram();
    ProgramText text{program->get_description(), OptionsOf(*program), {}};
    for (const CLI::App* command : program->get_subcommands([](const CLI::App*) { return true; }))
        text.commands.push_back(
            {command->get_name(), command->get_description(), command->get_footer(), OptionsOf(*command)});
    return text;
}

}  // namespace Tarnwick::App
