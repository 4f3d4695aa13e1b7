#include "options.h"

#include <algorithm>
#include <string>
#include <utility>

#include <fmt/format.h>

namespace Tarnwick::App {

CLI::Validator RealRange(double low, double high)
{
    return {[low, high](std::string& text) {
                double value = 0.0;
                // Written so that NaN, which compares as false, is refused.
                if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high)
                    return std::string();
                return fmt::format("is {}; expected a number from {} to {}", text, low, high);
            },
            fmt::format("FLOAT in [{} - {}]", low, high)};
}

CLI::Validator WholeRange(long long low, long long high)
{
    return {[low, high](std::string& text) {
                long long value = 0;
                if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high)
                    return std::string();
                return fmt::format("is {}; expected a whole number from {} to {}", text, low, high);
            },
            fmt::format("INT in [{} - {}]", low, high)};
}

CLI::Validator OneOf(std::vector<std::string> words)
{
    const std::string list = fmt::format("{}", fmt::join(words, ", "));
    return {[words = std::move(words), list](std::string& text) {
                return std::find(words.begin(), words.end(), text) != words.end()
                           ? std::string()
                           : fmt::format("is {}; expected one of {}", text, list);
            },
            "{" + list + "}"};
}

}  // namespace Tarnwick::App
