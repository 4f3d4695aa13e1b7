// The log's lines as a host's callback gets them.
#pragma once

#include <easylogging++.h>
#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tarnwick::Testing {

struct LogLine {
    std::string message, function, file, logger;
    el::Level level;
    unsigned long number;
};

class LogLines : public testing::Test {
protected:
    void SetUp() override
    {
        lines.clear();
        ASSERT_TRUE(el::Helpers::installLogDispatchCallback<Collector>("collector"));
    }
    void TearDown() override { el::Helpers::uninstallLogDispatchCallback<Collector>("collector"); }

    /// Those that have come since the last call.
    static std::vector<std::string> Messages()
    {
        std::vector<std::string> messages;
        for (const LogLine& line : lines)
            messages.push_back(line.message);
        lines.clear();
        return messages;
    }

    inline static std::vector<LogLine> lines;
    inline static bool failing = false;  ///< the callback throws

private:
    class Collector : public el::LogDispatchCallback {
    protected:
        void handle(const el::LogDispatchData* data) override
        {
            if (failing)
                throw std::runtime_error("a host's failure");
            const el::LogMessage& message = *data->logMessage();
            const std::lock_guard lock(mutex);
            lines.push_back({message.message(), message.func(), message.file(), message.logger()->id(), message.level(),
                             static_cast<unsigned long>(message.line())});
        }
    };
    inline static std::mutex mutex;
};

}  // namespace Tarnwick::Testing
