#include "program.h"

#include <cstddef>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "commandline.h"
#include "commands/commands.h"
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
        text.value = text.choices.empty() ? kind : fmt::format("{}", fmt::join(text.choices, "|"));
    return text;
}

std::vector<OptionText> OptionsOf(const CLI::App& command)
{
    std::vector<OptionText> texts;
    for (const CLI::Option* option : command.get_options())
        texts.push_back(TextOf(*option));
    return texts;
}

}  // namespace

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
