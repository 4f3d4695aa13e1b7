// The command line as a whole: what is parsed, and what manual and shell completion tell of it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Tarnwick::App {

/// The program with all its commands, ready to parse. It is called once; made again it only describes.
std::unique_ptr<CLI::App> MakeProgram();

/// An option or an argument of a command, in words.
struct OptionText {
    std::vector<std::string> names;    ///< with their dashes, short ones first; of an argument its name alone
    std::string value;                 ///< what stands for its value; empty: a flag
    std::vector<std::string> choices;  ///< all values that it takes; empty: there are too many
    std::string help;
    std::string standard;  ///< the value when it is left out; empty: none
    bool isArgument = false;
    bool isRequired = false;
    bool isRepeated = false;
    bool isNumber = false;
};

/// In the order of the help, "--help" among them.
std::vector<OptionText> OptionsOf(const CLI::App& command);

/// The commands of a program, in their order.
std::vector<const CLI::App*> CommandsOf(const CLI::App& program);

}  // namespace Tarnwick::App
