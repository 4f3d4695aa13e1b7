#include "commandline.h"
#include "workbench/joined.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

namespace Tarnwick::App {

ValueCheck RealRange(double low, double high)
{
    return {[low, high](const std::string& text) {
                double value = 0.0;
                // Written so that NaN, which compares as false, is refused.
                if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high)
                    return std::string();
                return fmt::format("is {}; expected a number from {} to {}", text, low, high);
            },
            fmt::format("FLOAT in [{} - {}]", low, high)};
}

ValueCheck WholeRange(long long low, long long high)
{
    return {[low, high](const std::string& text) {
                long long value = 0;
                if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high)
                    return std::string();
                return fmt::format("is {}; expected a whole number from {} to {}", text, low, high);
            },
            fmt::format("INT in [{} - {}]", low, high)};
}

ValueCheck OneOf(std::vector<std::string> words)
{
    const std::string list = DSO::Workbench::Joined(words, ", ");
    return {[words = std::move(words), list](const std::string& text) {
                return std::find(words.begin(), words.end(), text) != words.end()
                           ? std::string()
                           : fmt::format("is {}; expected one of {}", text, list);
            },
            "{" + list + "}"};
}

const Option& Option::Required() const
{
    option_->required();
    return *this;
}

const Option& Option::Check(const ValueCheck& check) const
{
    option_->check(check.failure, check.values);
    return *this;
}

const Option& Option::TypeName(const std::string& name) const
{
    option_->type_name(name);
    return *this;
}

const Option& Option::ShowDefault() const
{
    option_->capture_default_str();
    return *this;
}

const Option& Option::OneValueEach() const
{
    option_->allow_extra_args(false);
    return *this;
}

const Option& Option::Delimiter(char delimiter) const
{
    option_->delimiter(delimiter);
    return *this;
}

const Option& Option::Excludes(const Option& other) const
{
    option_->excludes(other.option_);
    return *this;
}

const Option& Option::Needs(const std::string& name) const
{
    option_->needs(name);
    return *this;
}

template <typename Value>
Option CommandLine::AddOption(const std::string& names, Value& value, const std::string& help) const
{
    return Option(command_->add_option(names, value, help));
}
template Option CommandLine::AddOption(const std::string&, double&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::int32_t&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::uint32_t&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::uint64_t&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::string&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::optional<double>&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::optional<std::int32_t>&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::optional<std::size_t>&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::vector<double>&, const std::string&) const;
template Option CommandLine::AddOption(const std::string&, std::vector<std::string>&, const std::string&) const;

Option CommandLine::AddFlag(const std::string& names, bool& value, const std::string& help) const
{
    return Option(command_->add_flag(names, value, help));
}

Option CommandLine::AddFlag(const std::string& names, std::function<void()> seen, const std::string& help) const
{
    return Option(command_->add_flag_callback(names, std::move(seen), help));
}

void CommandLine::Footer(const std::string& text) const
{
    command_->footer(text);
}

void CommandLine::OnRun(std::function<void()> run) const
{
    command_->callback(std::move(run));
}

}  // namespace Tarnwick::App
