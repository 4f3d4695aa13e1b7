// A text, line by line, in memory bounded by its longest line.
#pragma once

#include <cstddef>
#include <istream>
#include <optional>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

class TARNWICK_FRAMEWORK_API LineReader {
public:
    /// @param source  binary, must outlive the reader; one that is not open holds no line
    explicit LineReader(std::istream& source);

    /// The next line without its newline, and without a carriage return before that; nothing at the end. It stays valid
    /// until the next call.
    std::optional<std::string_view> Next();
    /// The number of the line read last, from 1.
    std::size_t Number() const { return number_; }

private:
    bool ReadMore();

    std::istream& source_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;  // of what is read and not handed out
    std::size_t end_ = 0;
    std::size_t number_ = 0;
};

}  // namespace Tarnwick::DSO::SystemFramework
