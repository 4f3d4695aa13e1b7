#include "workbench/plumbing/text.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <sstream>

#include <fmt/format.h>

namespace Tarnwick::DSO::Workbench {

std::vector<std::string> SplitAt(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

std::vector<std::string> WordsOf(std::string_view text)
{
    std::istringstream words{std::string(text)};
    return {std::istream_iterator<std::string>(words), {}};
}

std::optional<std::string_view> LineCursor::Next()
{
    if (rest_.empty())
        return std::nullopt;
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    ++number_;
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

std::string Joined(std::span<const double> numbers, std::string_view format, std::string_view separator)
{
    std::vector<std::string> texts;
    texts.reserve(numbers.size());
    for (const double number : numbers)
        texts.push_back(fmt::format(fmt::runtime(format), number));
    return Joined(texts, separator);
}

double WithoutNegativeZero(double value)
{
    constexpr double kHalfLastDigit = 0.0005;
    return std::abs(value) < kHalfLastDigit ? 0.0 : value;
}

}  // namespace Tarnwick::DSO::Workbench
