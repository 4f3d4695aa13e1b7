#include "pictures/gnuplot.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <string_view>

#include <fmt/format.h>

#include "framework/filenames.h"
#include "workbench/failure.h"

#if !defined(_WIN32)
#include <csignal>
#endif

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;
using DSO::Workbench::DataFailure;

bool IsControl(char letter)
{
    const auto code = static_cast<unsigned char>(letter);
    return code < 0x20 || code == 0x7f;
}

// Writing to a gnuplot that has ended, or that is not installed, would otherwise end this program as well. The signal is the
// process's, not a thread's: the last picture that is being drawn puts back what the first one found.
class BrokenPipesIgnored {
public:
    BrokenPipesIgnored(const BrokenPipesIgnored&) = delete;
    BrokenPipesIgnored& operator=(const BrokenPipesIgnored&) = delete;
#if defined(_WIN32)
    BrokenPipesIgnored() = default;
    ~BrokenPipesIgnored() = default;
#else
    BrokenPipesIgnored()
    {
        const std::lock_guard lock(Shared().mutex);
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        if (Shared().pictures++ == 0)
            sigaction(SIGPIPE, &ignore, &Shared().before);
    }
    ~BrokenPipesIgnored()
    {
        const std::lock_guard lock(Shared().mutex);
        if (--Shared().pictures == 0)
            sigaction(SIGPIPE, &Shared().before, nullptr);
    }

private:
    struct State {
        std::mutex mutex;
        int pictures = 0;
        struct sigaction before = {};
    };
    static State& Shared()
    {
        static State state;
        return state;
    }
#endif
};

// A fixed command that ignores the user's own settings: the picture is described through its standard input alone.
bool RunGnuplot(const std::string& script)
{
    [[maybe_unused]] const BrokenPipesIgnored guard;
#if defined(_WIN32)
    std::FILE* pipe = _popen("gnuplot -d - 2>NUL", "wb");
#else
    std::FILE* pipe = popen("gnuplot -d - 2>/dev/null", "w");
#endif
    if (pipe == nullptr)
        return false;
    const bool written = std::fwrite(script.data(), 1, script.size(), pipe) == script.size();
#if defined(_WIN32)
    return _pclose(pipe) == 0 && written;
#else
    return pclose(pipe) == 0 && written;
#endif
}

// From the signature to the chunk that ends every PNG file.
bool IsWholePng(const fs::path& path)
{
    constexpr std::string_view kSignature = "\x89PNG\r\n\x1a\n";
    constexpr std::string_view kEnd("\0\0\0\0IEND\xae\x42\x60\x82", 12);
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    return content.size() > kSignature.size() + kEnd.size() && content.compare(0, kSignature.size(), kSignature) == 0 &&
           content.compare(content.size() - kEnd.size(), kEnd.size(), kEnd) == 0;
}

// The file that gnuplot writes. Its name is absolute because gnuplot would run what follows a leading '|' as a command and
// expand a leading '~'.
fs::path TemporaryBeside(const fs::path& path)
{
    std::error_code error;
    fs::path temporary = fs::absolute(path, error);
    temporary += DSO::PathOf(fmt::format(".{:08x}.part", std::random_device()()));
    temporary = DSO::Openable(temporary);
    const std::string name = temporary.string();
    if (std::any_of(name.begin(), name.end(), IsControl))
        throw DataFailure(
            fmt::format("{}: the name holds a control character; gnuplot takes none", Quoted(path.string())));
    if (error || !std::ofstream(temporary, std::ios::binary))
        throw DataFailure(fmt::format("{}: cannot be written", path.string()));
    return temporary;
}

}  // namespace

bool HasGnuplot()
{
    return RunGnuplot("");
}

void DrawPng(const fs::path& path, int width, int height, const std::string& script)
{
    const fs::path temporary = TemporaryBeside(path);
    const std::string whole = fmt::format(
                                  "set encoding utf8\nset terminal pngcairo size {},{} noenhanced font 'sans,12' "
                                  "background '#101018'\nset output {}\n",
                                  width, height, Quoted(temporary.string())) +
                              script + "\nunset output\n";
    std::error_code error;
    const auto discard = [&](const char* why) {
        fs::remove(temporary, error);
        throw DataFailure(fmt::format("{}: {}", path.string(), why));
    };
    // On a full disk gnuplot ends as if all were well.
    const bool isRun = RunGnuplot(whole);
    const bool isBegun = fs::file_size(temporary, error) > 0;
    if (isBegun && !IsWholePng(temporary))
        discard("cannot be written as a whole; is the disk full?");
    if (!isRun || !isBegun)
        discard("gnuplot, which draws the pictures, is missing or failed, or the disk is full (Debian: gnuplot-nox)");
    fs::rename(temporary, DSO::Openable(path), error);
    if (error) {
        const std::string reason = error.message();
        fs::remove(temporary, error);
        throw DataFailure(fmt::format("{}: cannot be written: {}", path.string(), reason));
    }
}

std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char letter : text) {
        if (letter == '\'')
            quoted += "''";
        else
            quoted += IsControl(letter) ? ' ' : letter;
    }
    return quoted + "'";
}

std::string Theme()
{
    return "set title textcolor '#e8e8f0'\n"
           "set border linecolor '#a0a0b0'\n"
           "set xlabel textcolor '#e8e8f0'\n"
           "set ylabel textcolor '#e8e8f0'\n"
           "set tics textcolor '#e8e8f0'\n"
           "set grid front linecolor '#505060' linewidth 0.5\n"
           "set key textcolor '#e8e8f0'\n";
}

}  // namespace Tarnwick::App
