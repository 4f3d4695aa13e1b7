#include "workbench/plumbing/wholefile.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <system_error>

#ifndef _WIN32
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#endif

#include <fmt/format.h>

#include "framework/filenames.h"
#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kPipeBlock = std::size_t{1} << 16U;    // [bytes]
constexpr std::size_t kLongestPipe = std::size_t{1} << 30U;  // [bytes] one that gives more may never end

void AppendOfPipe(std::string& content, const char* block, std::size_t count, const std::string& name)
{
    content.append(block, count);
    if (content.size() > kLongestPipe)
        throw DataFailure(fmt::format("{}: is a pipe that gives more than {} bytes", name, kLongestPipe));
}

#ifndef _WIN32
constexpr int kWriterWaitMs = 500;  // for somebody to open the other end of a named pipe

class Descriptor {
public:
    // Without waiting for a writer, who may never come.
    explicit Descriptor(const std::filesystem::path& path)
        : number_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (number_ >= 0)
            ::close(number_);
    }
    int Number() const { return number_; }

private:
    int number_;
};

// All that comes until the last writer closes the pipe.
std::string ReadPipe(const std::filesystem::path& path)
{
    const Descriptor pipe(path);
    std::string content;
    if (pipe.Number() < 0)
        throw DataFailure(fmt::format("{}: cannot be read", path.string()));
    pollfd waited{pipe.Number(), POLLIN, 0};
    (void)::poll(&waited, 1, kWriterWaitMs);
    std::array<char, kPipeBlock> block{};
    for (;;) {
        const ssize_t count = ::read(pipe.Number(), block.data(), block.size());
        if (count > 0) {
            AppendOfPipe(content, block.data(), static_cast<std::size_t>(count), path.string());
        } else if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            (void)::poll(&waited, 1, -1);  // somebody holds the other end open
        } else {
            break;
        }
    }
    if (content.empty())
        throw DataFailure(fmt::format("{}: cannot be read: a pipe that nothing is written to", path.string()));
    return content;
}
#endif

}  // namespace

std::string ReadStandardInput()
{
    const std::string name = "standard input";
    std::string content;
    std::array<char, kPipeBlock> block{};
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), stdin))
        AppendOfPipe(content, block.data(), count, name);
    if (std::ferror(stdin) != 0)
        throw DataFailure(name + ": cannot be read");
    if (content.empty())
        throw DataFailure(name + ": holds nothing");
    return content;
}

std::string ReadWholeFile(const std::filesystem::path& path)
{
    std::error_code error;
#ifndef _WIN32
    if (std::filesystem::is_fifo(path, error))
        return ReadPipe(path);
#endif
    const std::filesystem::path opened = Openable(path);
    std::ifstream file;
    std::uintmax_t size = 0;
    if (std::filesystem::is_regular_file(opened, error)) {
        size = std::filesystem::file_size(opened, error);
        if (!error)
            file.open(opened, std::ios::binary);
    }
    if (!file.is_open())
        throw DataFailure(fmt::format("{}: cannot be read", path.string()));
    std::string content(static_cast<std::size_t>(size), '\0');
    file.read(content.data(), static_cast<std::streamsize>(size));
    if (file.gcount() != static_cast<std::streamsize>(size))
        throw DataFailure(fmt::format("{}: only {} of {} bytes could be read", path.string(), file.gcount(), size));
    return content;
}

}  // namespace Tarnwick::DSO::Workbench
