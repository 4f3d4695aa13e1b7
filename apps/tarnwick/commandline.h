// The options of a command, over CLI11. Its headers are read by commandline.cpp and program.cpp alone: every source that includes
// them compiles all of that library again.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Tarnwick::App {

/// What the values of an option may be.
struct ValueCheck {
    /// What is wrong with a value; nothing: an empty text.
    std::function<std::string(const std::string& text)> failure;
    std::string values;  ///< as the help has them
};

/// A finite real number from `low` to `high`. CLI11's own range lets NaN pass.
ValueCheck RealRange(double low, double high);

/// A whole number from `low` to `high`.
ValueCheck WholeRange(long long low, long long high);

/// One of these words.
ValueCheck OneOf(std::vector<std::string> words);

/// An option of a command, to which each method adds something. Not the option itself: it may be copied.
class Option {
public:
    explicit Option(CLI::Option* option) : option_(option) {}
    const Option& Required() const;
    const Option& Check(const ValueCheck& check) const;
    const Option& TypeName(const std::string& name) const;
    /// Shows in the help the value that its variable has now.
    const Option& ShowDefault() const;
    /// Each use takes one value, although there may be several uses.
    const Option& OneValueEach() const;
    const Option& Delimiter(char delimiter) const;
    const Option& Excludes(const Option& other) const;
    const Option& Needs(const std::string& name) const;

private:
    CLI::Option* option_;
};

/// A command to which options are added.
class CommandLine {
public:
    explicit CommandLine(CLI::App& command) : command_(&command) {}

    /// @param names  "-o,--output"; without dashes an argument by its place
    /// @param value  what the option's value is put into; lives as long as the command
    template <typename Value>
    Option AddOption(const std::string& names, Value& value, const std::string& help) const;
    Option AddFlag(const std::string& names, bool& value, const std::string& help) const;
    Option AddFlag(const std::string& names, std::function<void()> seen, const std::string& help) const;
    /// What the help says below the options.
    void Footer(const std::string& text) const;
    /// What the command does.
    void OnRun(std::function<void()> run) const;

private:
    CLI::App* command_;
};

}  // namespace Tarnwick::App
