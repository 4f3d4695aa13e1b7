// tarnwick completion: what a shell needs to complete commands, options, values and files.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "commandline.h"
#include "commands/commands.h"
#include "outputs.h"
#include "program.h"
#include "workbench/joined.h"

namespace Tarnwick::App {

namespace {

std::string Replaced(std::string text, std::string_view what, std::string_view by)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

// In single quotes for a shell of the Bourne family.
std::string Quoted(const std::string& text)
{
    return fmt::format("'{}'", Replaced(text, "'", "'\\''"));
}

// In single quotes for fish.
std::string FishQuoted(const std::string& text)
{
    return fmt::format("'{}'", Replaced(Replaced(text, "\\", "\\\\"), "'", "\\'"));
}

std::vector<std::string> NamesOf(const std::vector<OptionText>& options)
{
    std::vector<std::string> names;
    for (const OptionText& option : options)
        if (!option.isArgument)
            names.insert(names.end(), option.names.begin(), option.names.end());
    return names;
}

std::string ForBash(const ProgramText& program)
{
    std::vector<std::string> first;
    std::string options;
    std::string choices;
    for (const CommandText& command : program.commands) {
        first.push_back(command.name);
        options += fmt::format("        {}) options={} ;;\n", command.name,
                               Quoted(DSO::Workbench::Joined(NamesOf(command.options), " ")));
        for (const OptionText& option : command.options)
            for (const std::string& name : option.names)
                if (!option.choices.empty() && !option.isArgument)
                    choices += fmt::format("        {},{}) choices={} ;;\n", command.name, name,
                                           Quoted(DSO::Workbench::Joined(option.choices, " ")));
        for (const OptionText& option : command.options)
            if (!option.choices.empty() && option.isArgument)
                choices += fmt::format("        {},{}) choices={} ;;\n", command.name, command.name,
                                       Quoted(DSO::Workbench::Joined(option.choices, " ")));
    }
    for (const std::string& name : NamesOf(program.options))
        first.push_back(name);
    return fmt::format(R"(# Completion of tarnwick for bash; made by "tarnwick completion bash".
_tarnwick()
{{
    local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} options= choices=
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W {} -- "$current")
        return
    fi
    # bash takes --option=value for three words.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${{COMP_WORDS[COMP_CWORD - 2]}}
    fi
    case ${{COMP_WORDS[1]}} in
{}    esac
    case ${{COMP_WORDS[1]}},$previous in
{}    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    elif [[ -n $choices ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
    fi
}}
# What it has no words for are files.
complete -o default -F _tarnwick tarnwick
)",
                       Quoted(DSO::Workbench::Joined(first, " ")), options, choices);
}

// What _arguments takes for an option: '(-o --output)'{-o,--output}'[help]:FILE:_files'
std::string ZshOption(const OptionText& option)
{
    const std::string help = Replaced(Replaced(Replaced(option.help, "\\", "\\\\"), "[", "\\["), "]", "\\]");
    std::string value;
    if (!option.choices.empty())
        value = fmt::format(":value:({})", DSO::Workbench::Joined(option.choices, " "));
    else if (!option.value.empty())
        value = option.isNumber ? ":number: " : ":file:_files";
    if (option.isArgument)
        return Quoted(fmt::format("{}{}", option.isRepeated ? "*" : "", value.empty() ? ":file:_files" : value));
    const bool isPair = option.names.size() > 1;
    const std::string names =
        isPair ? fmt::format("{{{}}}", DSO::Workbench::Joined(option.names, ",")) : option.names.front();
    const std::string others = fmt::format("'({})'", DSO::Workbench::Joined(option.names, " "));
    return fmt::format("{}{}{}", option.isRepeated ? "'*'" : others, names, Quoted(fmt::format("[{}]{}", help, value)));
}

std::string ForZsh(const ProgramText& program)
{
    std::string commands;
    std::string cases;
    for (const CommandText& command : program.commands) {
        commands += fmt::format("                {}\n", Quoted(command.name + ":" + command.description));
        cases += fmt::format("                {})\n                    _arguments", command.name);
        for (const OptionText& option : command.options)
            cases += fmt::format(" \\\n                        {}", ZshOption(option));
        cases += "\n                    ;;\n";
    }
    return fmt::format(R"(#compdef tarnwick
# Completion of tarnwick for zsh; made by "tarnwick completion zsh".
_tarnwick()
{{
    local curcontext="$curcontext" state line
    _arguments -C '(- *)'{{-h,--help}}'[Print help]' '(- *)--version[Print the version]' \
        '1:command:->command' '*::argument:->argument'
    case $state in
        command)
            local -a commands=(
{}            )
            _describe command commands
            ;;
        argument)
            case $words[1] in
{}            esac
            ;;
    esac
}}
_tarnwick "$@"
)",
                       commands, cases);
}

std::string ForFish(const ProgramText& program)
{
    std::string text =
        "# Completion of tarnwick for fish; made by \"tarnwick completion fish\".\n"
        "complete -c tarnwick -n __fish_use_subcommand -f -l version -d 'Print the version'\n"
        "complete -c tarnwick -n __fish_use_subcommand -f -s h -l help -d 'Print help'\n";
    for (const CommandText& command : program.commands) {
        text += fmt::format("complete -c tarnwick -n __fish_use_subcommand -f -a {} -d {}\n", command.name,
                            FishQuoted(command.description));
        for (const OptionText& option : command.options) {
            const std::string words = FishQuoted(DSO::Workbench::Joined(option.choices, " "));
            std::string line = fmt::format("complete -c tarnwick -n '__fish_seen_subcommand_from {}'", command.name);
            if (option.isArgument && option.choices.empty())
                continue;  // files, as fish completes by itself
            if (!option.isArgument)
                for (const std::string& name : option.names)
                    line += name.starts_with("--") ? fmt::format(" -l {}", name.substr(2))
                                                   : fmt::format(" -s {}", name.substr(1));
            if (!option.choices.empty())
                line += (option.isArgument ? " -f -a " : " -x -a ") + words;
            else if (!option.value.empty())
                line += option.isNumber ? " -x" : " -r";
            text += line + " -d " + FishQuoted(option.help) + "\n";
        }
    }
    return text;
}

}  // namespace

void AddCompletion(const CommandLine& command)
{
    auto shell = std::make_shared<std::string>();
    command.AddOption("shell", *shell, "The shell").Required().Check(OneOf({"bash", "zsh", "fish"}));
    command.Footer("An installed program is completed without this. ");
    command.OnRun([shell] {
        const ProgramText program = DescribeProgram();
        PrintReport(*shell == "bash" ? ForBash(program) : *shell == "zsh" ? ForZsh(program) : ForFish(program));
    });
}

}  // namespace Tarnwick::App
