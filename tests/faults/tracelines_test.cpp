// Log lines while memory runs short, or a host's callback fails: a line may be lost, the log goes on.
#include <easylogging++.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "faults/allocations.h"
#include "filters/filters/besselthomson.h"
#include "support/loglines.h"

namespace {

using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

using Texts = std::vector<std::string>;

void LogFourLines()
{
    BesselThomsonParameters parameters;
    const BesselThomson filter(&parameters);
}

const Texts kFourLines{"Initializing BesselThomson constructor...", "BesselThomson constructor finished",
                       "~BesselThomson()...", "~BesselThomson() finished"};

class TraceLines : public LogLines {
protected:
    // From another thread, which would wait for ever if the logger had stayed locked.
    static Texts LinesOfAnotherThread()
    {
        lines.clear();
        std::promise<void> finished;
        const std::future<void> isFinished = finished.get_future();
        std::thread([finished = std::move(finished)]() mutable {
            LogFourLines();
            finished.set_value_at_thread_exit();
        }).detach();
        if (isFinished.wait_for(std::chrono::seconds(20)) != std::future_status::ready)
            return {"the logger is locked"};
        return Messages();
    }
};

TEST_F(TraceLines, GoOnAfterMemoryRanShort)
{
    LogFourLines();
    ASSERT_EQ(Messages(), kFourLines);
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
}

TEST_F(TraceLines, GoOnAfterACallbackFailed)
{
    failing = true;
    LogFourLines();
    failing = false;
    EXPECT_EQ(LinesOfAnotherThread(), kFourLines);
}

}  // namespace
