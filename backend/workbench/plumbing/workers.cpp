#include "workbench/plumbing/workers.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace Tarnwick::DSO::Workbench {

unsigned ThreadCount(unsigned asked)
{
    return asked > 0 ? asked : std::max(std::thread::hardware_concurrency(), 1U);
}

void RunOnThreads(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work,
                  const std::function<bool()>& stop)
{
    std::mutex mutex;
    std::size_t next = 0;
    std::exception_ptr failure;
    const auto run = [&] {
        for (;;) {
            std::size_t part = 0;
            try {
                {
                    const std::lock_guard lock(mutex);
                    if (next == count || failure || (stop && stop()))
                        return;
                    part = next++;
                }
                work(part);
            } catch (...) {
                const std::lock_guard lock(mutex);
                failure = std::current_exception();
                return;
            }
        }
    };
    std::vector<std::jthread> helpers;
    for (std::size_t k = 1; k < std::min<std::size_t>(threads, count); ++k)
        helpers.emplace_back(run);
    run();
    helpers.clear();  // waits for them
    if (failure)
        std::rethrow_exception(failure);
}

}  // namespace Tarnwick::DSO::Workbench
