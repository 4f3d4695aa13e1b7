// Log lines while memory runs short, or a host's callback fails: a line may be lost, the log goes on.
#include <easylogging++.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "faults/allocations.h"
#include "filters/filters/besselthomson.h"
#include "framework/storagesinglton.h"

namespace {

using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

using Texts = std::vector<std::string>;

Texts messages;
bool failing = false;

class Collector : public el::LogDispatchCallback {
protected:
    void handle(const el::LogDispatchData* data) override
    {
        if (failing)
            throw std::runtime_error("a host's failure");
        messages.push_back(data->logMessage()->message());
    }
};

void LogFourLines()
{
    BesselThomsonParameters parameters;
    const BesselThomson filter(&parameters);
}

const Texts kFourLines{"Initializing BesselThomson constructor...", "BesselThomson constructor finished",
                       "~BesselThomson()...", "~BesselThomson() finished"};

// From another thread, which would wait for ever if the logger had stayed locked.
Texts LinesOfAnotherThread()
{
    messages.clear();
    std::promise<void> finished;
    const std::future<void> isFinished = finished.get_future();
    std::thread([finished = std::move(finished)]() mutable {
        LogFourLines();
        finished.set_value_at_thread_exit();
    }).detach();
    if (isFinished.wait_for(std::chrono::seconds(20)) != std::future_status::ready)
        return {"the logger is locked"};
    return messages;
}

TEST(LogLines, GoOnAfterMemoryRanShort)
{
    ASSERT_TRUE(el::Helpers::installLogDispatchCallback<Collector>("collector"));
    LogFourLines();
    ASSERT_EQ(messages, kFourLines);
    bool hasFailed = true;
    long n = 0;
    while (hasFailed && !HasFailure()) {
        ++n;
        SCOPED_TRACE("allocation " + std::to_string(n));
        for (const Shortage shortage : {Shortage::Once, Shortage::FromThenOn}) {
            const FailingAllocation shortOf(n, shortage);
            LogFourLines();
            hasFailed = shortOf.HasFailed();
        }
        EXPECT_EQ(LinesOfAnotherThread(), kFourLines);
    }
    EXPECT_GT(n, 4);
    el::Helpers::uninstallLogDispatchCallback<Collector>("collector");
}

TEST(LogLines, GoOnAfterACallbackFailed)
{
    ASSERT_TRUE(el::Helpers::installLogDispatchCallback<Collector>("collector"));
    failing = true;
    LogFourLines();
    failing = false;
    EXPECT_EQ(LinesOfAnotherThread(), kFourLines);
    el::Helpers::uninstallLogDispatchCallback<Collector>("collector");
}

}  // namespace
