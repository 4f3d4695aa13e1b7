// A progress bar on stderr for work that takes longer than a second; nothing at all when stderr is no terminal.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace Tarnwick::App {

/// "12 of 200, 3.4/s, 0:55 left": how far work has come, how fast, and how long the rest will take at that rate.
std::string PaceText(std::size_t done, std::size_t steps, double seconds);

class Progress {
public:
    explicit Progress(std::size_t steps);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();
    /// To be called before each step, where they follow each other; `what` is shown.
    void Begin(const std::string& what);
    /// To be called behind each step instead, where they run side by side; their pace is shown.
    void End();

private:
    void Run();

    std::size_t steps_;
    std::size_t begun_ = 0;
    std::size_t ended_ = 0;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::string what_;
    bool done_ = false;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::thread thread_;
};

}  // namespace Tarnwick::App
