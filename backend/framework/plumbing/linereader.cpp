#include "framework/plumbing/linereader.h"

#include <algorithm>
#include <cstring>

namespace Tarnwick::DSO::SystemFramework {

namespace {

constexpr std::size_t kBufferSize = 65536;

}  // namespace

LineReader::LineReader(std::istream& source) : source_(source), buffer_(kBufferSize) {}

bool LineReader::ReadMore()
{
    if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    if (end_ == buffer_.size())
        buffer_.resize(2 * buffer_.size());
    source_.read(buffer_.data() + end_, static_cast<std::streamsize>(buffer_.size() - end_));
    const auto count = static_cast<std::size_t>(source_.gcount());
    end_ += count;
    return count > 0;
}

std::optional<std::string_view> LineReader::Next()
{
    std::size_t searched = 0;
    const char* newline = nullptr;
    do {
        const char* const from = buffer_.data() + begin_ + searched;
        newline = static_cast<const char*>(std::memchr(from, '\n', end_ - begin_ - searched));
        searched = end_ - begin_;
    } while (newline == nullptr && ReadMore());
    if (newline == nullptr && searched == 0)
        return std::nullopt;
    const char* const first = buffer_.data() + begin_;
    std::string_view line(first, newline != nullptr ? static_cast<std::size_t>(newline - first) : searched);
    begin_ += line.size() + (newline != nullptr ? 1 : 0);
    ++number_;
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

}  // namespace Tarnwick::DSO::SystemFramework
