// tarnwick manual: the manual page, made of what the help says.
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "commands/commands.h"
#include "outputs.h"
#include "program.h"
#include "workbench/tarnwick.h"

namespace Tarnwick::App {

namespace {

// A code point from UTF-8 at `at`, which moves behind it.
char32_t NextLetter(std::string_view text, std::size_t& at)
{
    const auto first = static_cast<unsigned char>(text[at++]);
    const int following = first < 0x80 ? 0 : first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
    char32_t letter = following == 0 ? first : first & (0x3fU >> following);
    for (int k = 0; k < following && at < text.size(); ++k)
        letter = letter << 6 | (static_cast<unsigned char>(text[at++]) & 0x3fU);
    return letter;
}

// As roff takes it: nothing in it is a request, and a dash is one that can be copied.
std::string Roff(std::string_view text)
{
    std::string escaped = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
    for (std::size_t at = 0; at < text.size();) {
        const char32_t letter = NextLetter(text, at);
        if (letter == U'\\')
            escaped += "\\e";
        else if (letter == U'-')
            escaped += "\\-";
        else if (letter == U'\n')
            escaped += "\n.br\n";
        else if (letter < 0x80)
            escaped += static_cast<char>(letter);
        else
            escaped += fmt::format("\\[u{:04X}]", static_cast<unsigned>(letter));
    }
    return escaped;
}

std::string Term(const OptionText& option)
{
    std::string term;
    for (const std::string& name : option.names)
        term += fmt::format("{}\\fB{}\\fR", term.empty() ? "" : ", ", Roff(name));
    if (!option.value.empty() && !option.isArgument)
        term += fmt::format(" \\fI{}\\fR", Roff(option.value));
    return term;
}

std::string Describe(const CommandText& command)
{
    std::string usage = fmt::format("\\fBtarnwick {}\\fR [\\fIoptions\\fR]", Roff(command.name));
    for (const OptionText& option : command.options)
        if (option.isArgument)
            usage += fmt::format(" \\fI{}\\fR{}", Roff(option.names.front()), option.isRepeated ? "..." : "");
    std::string text = fmt::format(".SS {}\n{}.\n.PP\n{}\n", Roff(command.name), Roff(command.description), usage);
    for (const OptionText& option : command.options) {
        text += fmt::format(".TP\n{}\n{}.", Term(option), Roff(option.help));
        if (option.isRequired && !option.isArgument)
            text += " Required.";
        if (!option.standard.empty() && option.standard != "\"\"")
            text += fmt::format(" Left out: {}.", Roff(option.standard));
        text += "\n";
    }
    return text + fmt::format(".PP\n{}\n", Roff(command.footer));
}

std::string ManualPage(const ProgramText& program)
{
    std::string text = fmt::format(".TH TARNWICK 1 \"\" \"tarnwick {}\" \"User commands\"\n", tarnwick_version());
    text +=
        ".SH NAME\ntarnwick \\- filter and measure captured serial\\-data waveforms\n"
        ".SH SYNOPSIS\n\\fBtarnwick\\fR \\fIcommand\\fR [\\fIoptions\\fR] [\\fIfiles\\fR]\n"
        ".SH DESCRIPTION\n" +
        Roff(program.description) + "\n.SH COMMANDS\n";
    for (const CommandText& command : program.commands)
        text += Describe(command);
    return text +
           ".SH EXIT STATUS\n.TP\n0\nDone.\n.TP\n1\nA failure in the data; the message names file, line or sample.\n"
           ".TP\n2\nWrong usage or chain file; the message names the option or key.\n";
}

}  // namespace

void AddManual(const CommandLine& command)
{
    command.OnRun([] { PrintReport(ManualPage(DescribeProgram())); });
}

}  // namespace Tarnwick::App
