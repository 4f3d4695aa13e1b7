// The program's command line as a whole: what is parsed, and what manual and shell completion tell of it.
#pragma once

#include <string>
#include <vector>

namespace Tarnwick::App {

/// Runs the command that the arguments ask for, or prints the help.
/// @throws UsageFailure  saying what is wrong with the arguments
/// @throws std::exception  what the command throws
void RunProgram(int argc, const char* const* argv);

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

struct CommandText {
    std::string name;
    std::string description;
    std::string footer;  ///< what the help says below the options
    std::vector<OptionText> options;
};

struct ProgramText {
    std::string description;
    std::vector<OptionText> options;
    std::vector<CommandText> commands;
};

/// What the help says, in its order.
ProgramText DescribeProgram();

}  // namespace Tarnwick::App
