// Work that falls into parts, on threads.
#pragma once

#include <cstddef>
#include <functional>
#include <mutex>

namespace Tarnwick::DSO::Workbench {

/// As asked for, or for 0 as many as there are processors.
unsigned ThreadCount(unsigned asked);

/// Calls work(k) for k = 0 to count - 1, once each and begun in this order, on this many threads, including the calling one.
/// @param stop  asked before each call, on any thread but never twice at a time; true: nothing further is begun. May be empty
/// What work throws ends the rest as `stop` does, and is thrown when all threads have ended.
void RunOnThreads(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work,
                  const std::function<bool()>& stop = {});

/// What several threads tell one listener, one at a time. A call that throws is the last: what other threads would tell after it,
/// before they learn that the work has ended, is not told.
class CallsInTurn {
public:
    /// @return whether call() was called
    template <typename Call>
    bool Tell(const Call& call)
    {
        const std::lock_guard lock(mutex_);
        if (isRefused_)
            return false;
        isRefused_ = true;  // unless it returns
        call();
        isRefused_ = false;
        return true;
    }

private:
    std::mutex mutex_;
    bool isRefused_ = false;
};

}  // namespace Tarnwick::DSO::Workbench
