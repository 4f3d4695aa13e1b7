#include "progress.h"

#include <chrono>
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

void Progress::Run()
{
    using namespace std::chrono_literals;
    constexpr std::size_t kWidth = 30;
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, 1s, [this] { return done_; }))
        return;
    while (!done_) {
        const std::size_t full = steps_ == 0 || begun_ == 0 ? 0 : kWidth * (begun_ - 1) / steps_;
        fmt::print(stderr, "\r[{:=<{}}{: <{}}] {:<30.30}", "", full, "", kWidth - full, what_);
        (void)std::fflush(stderr);
        changed_.wait_for(lock, 100ms, [this] { return done_; });
    }
    fmt::print(stderr, "\r{: <70}\r", "");
}

}  // namespace Tarnwick::App
