// A progress bar on stderr for work that takes longer than a second; nothing at all when stderr is no terminal.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace Tarnwick::App {

class Progress {
public:
    explicit Progress(std::size_t steps);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();
    /// To be called before each step; `what` is shown.
    void Begin(const std::string& what);

private:
    void Run();

    std::size_t steps_;
    std::size_t begun_ = 0;
    std::string what_;
    bool done_ = false;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::thread thread_;
};

}  // namespace Tarnwick::App
