#include "progress.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include <fmt/format.h>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace Tarnwick::App {

namespace {

bool StderrIsTerminal()
{
#if defined(_WIN32)
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

}  // namespace

std::string PaceText(std::size_t done, std::size_t steps, double seconds)
{
    constexpr long kMinute = 60;  // [s]
    std::string text = fmt::format("{} of {}", done, steps);
    if (done == 0 || !(seconds > 0.0))
        return text;
    const double rate = static_cast<double>(done) / seconds;
    text += rate >= 1.0 ? fmt::format(", {:.3g}/s", rate) : fmt::format(", {:.3g}/min", rate * kMinute);
    const long left = std::lround(static_cast<double>(steps - std::min(done, steps)) / rate);
    const long minutes = left / kMinute;
    if (minutes < kMinute)
        return text + fmt::format(", {}:{:02} left", minutes, left % kMinute);
    return text + fmt::format(", {}:{:02} h left", minutes / kMinute, minutes % kMinute);
}

Progress::Progress(std::size_t steps) : steps_(steps)
{
    if (StderrIsTerminal())
        thread_ = std::thread(&Progress::Run, this);
}

Progress::~Progress()
{
    if (!thread_.joinable())
        return;
    {
        const std::lock_guard lock(mutex_);
        done_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void Progress::Begin(const std::string& what)
{
    const std::lock_guard lock(mutex_);
    ++begun_;
    what_ = what;
}

void Progress::End()
{
    const std::lock_guard lock(mutex_);
    ++ended_;
}

void Progress::Run()
{
    using namespace std::chrono_literals;
    constexpr std::size_t kWidth = 30;
    constexpr std::size_t kTextWidth = 44;
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, 1s, [this] { return done_; }))
        return;
    while (!done_) {
        const std::size_t done = begun_ > 0 ? begun_ - 1 : ended_;
        const std::size_t full = steps_ == 0 ? 0 : kWidth * done / steps_;
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
        const std::string text = begun_ > 0 ? what_ : PaceText(ended_, steps_, seconds.count());
        fmt::print(stderr, "\r[{:=<{}}{: <{}}] {:<{}.{}}", "", full, "", kWidth - full, text, kTextWidth, kTextWidth);
        (void)std::fflush(stderr);
        changed_.wait_for(lock, 100ms, [this] { return done_; });
    }
    fmt::print(stderr, "\r{: <{}}\r", "", kWidth + 3 + kTextWidth);
}

}  // namespace Tarnwick::App
