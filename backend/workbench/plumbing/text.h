// Texts in parts.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "workbench/joined.h"

namespace Tarnwick::DSO::Workbench {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  ///< in UTF-8

/// The parts between separators, empty ones among them; always at least one.
std::vector<std::string> SplitAt(std::string_view text, char separator);

/// The words between blanks of any kind.
std::vector<std::string> WordsOf(std::string_view text);

/// A text line by line.
class LineCursor {
public:
    explicit LineCursor(std::string_view text) : rest_(text) {}

    /// The next line without its newline, and without a carriage return before that; nothing at the end.
    std::optional<std::string_view> Next();
    /// What is left behind the line read last.
    std::string_view Rest() const { return rest_; }
    /// Passes over this many characters of that, which make this many whole lines.
    void Skip(std::size_t characters, std::size_t lines)
    {
        rest_.remove_prefix(characters);
        number_ += lines;
    }
    /// The number of the line read last, from 1.
    std::size_t Number() const { return number_; }

private:
    std::string_view rest_;
    std::size_t number_ = 0;
};

/// The numbers with a separator between each two.
/// @param format  of one, such as "{:.4g}"
std::string Joined(std::span<const double> numbers, std::string_view format, std::string_view separator);

/// 0 in place of a value that rounds to zero at three decimals and would be printed as "-0.000".
double WithoutNegativeZero(double value);

}  // namespace Tarnwick::DSO::Workbench
