// A host that shares the log storage and routes the lines to a callback of its own.
#include <easylogging++.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "filters/filters.h"
#include "framework/storagesinglton.h"
#include "support/expectations.h"
#include "support/loglines.h"
#include "support/signals.h"

SHARE_EASYLOGGINGPP(Tarnwick::DSO::SystemFramework::StorageSinglton::GetStorage())

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

using Logging = LogLines;
using Texts = std::vector<std::string>;
const Texts kConstructor{"Initializing BesselThomson constructor...", "BesselThomson constructor finished"};
const Texts kPrepare{"BesselThomson::Prepare...", "BesselThomson::Prepare finished"};
const Texts kDestructor{"~BesselThomson()...", "~BesselThomson() finished"};

// The host's callback gets them; nothing else is printed.
TEST_F(Logging, PairsLinesAroundConstructorPrepareAndDestructor)
{
    DeviceConfiguration config = Configuration(8, 8);
    BesselThomsonParameters parameters(&config);
    Record record(Constant(1.0, 64));
    testing::internal::CaptureStdout();
    std::optional<BesselThomson> filter(&parameters);
    EXPECT_EQ(Messages(), kConstructor);
    filter->Prepare(nullptr);
    EXPECT_EQ(Messages(), kPrepare);
    Take(filter->Apply(&record), 64);  // still dirty
    EXPECT_EQ(Messages(), kPrepare);
    parameters.ResetDirty();
    Take(filter->Apply(&record), 64);
    EXPECT_EQ(Messages(), Texts{});
    filter.reset();
    EXPECT_EQ(Messages(), kDestructor);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(Logging, NeverSaysThatAFailedStepFinished)
{
    DeviceConfiguration config = Configuration(8, 8);
    {
        DFEFilterParameters parameters(&config);
        DFEFilter filter(&parameters);
        Record record(Constant(1.0, 64));
        Take(filter.Apply(&record), 64);
        Take(filter.Apply(&record), 64);
        parameters.SetDirty();
        EXPECT_THROW(filter.Prepare(nullptr), std::invalid_argument);
    }
    EXPECT_EQ(Messages(), (Texts{"Initializing DFEFilter constructor...", "DFEFilter constructor finished",
                                 "DFEFilter::Prepare...", "DFEFilter::Prepare finished", "DFEFilter::Prepare...",
                                 "~DFEFilter()...", "~DFEFilter() finished"}));
    BesselThomsonParameters parameters(&config);
    config.patternLocked[0] = false;
    EXPECT_THROW(BesselThomson{&parameters}, PatternLockFailed);
    EXPECT_EQ(Messages(), Texts{kConstructor[0]});
}

TEST_F(Logging, NamesLoggerLevelAndWhereTheLineComesFrom)
{
    DeviceConfiguration config = Configuration(8, 8);
    BesselThomsonParameters parameters(&config);
    BesselThomson(&parameters).Prepare(nullptr);
    ASSERT_EQ(lines.size(), 6U);
    const std::string functions[] = {"BesselThomson::BesselThomson(", "BesselThomson::Prepare(",
                                     "BesselThomson::~BesselThomson("};
    for (std::size_t k = 0; k < 6; ++k) {
        const LogLine& line = lines[k];
        SCOPED_TRACE(line.message);
        EXPECT_EQ(line.logger, "default");
        EXPECT_EQ(line.level, el::Level::Trace);
        EXPECT_NE(line.function.find("Tarnwick::DSO::Filters::" + functions[k / 2]), std::string::npos)
            << line.function;
        EXPECT_NE(line.file.find("besselthomson.cpp"), std::string::npos) << line.file;
        EXPECT_GT(line.number, 1U);
    }
}

TEST_F(Logging, SurroundsEachRepetitionThatSircCorrects)
{
    DeviceConfiguration config = Configuration(4, 4);
    config.electricalResponseTable = {{0.0, 1.0}};
    config.referenceTable = {{}};
    config.channelBandwidths = {0.0};
    SircFilterParameters parameters(&config);
    parameters.referenceCutoffPercent = 75.0;
    SircFilter filter(&parameters);
    Record record(Constant(1.0, 33));
    Take(filter.Apply(&record), 33);
    ASSERT_EQ(lines.size(), 4U);
    for (const LogLine& line : lines) {
        EXPECT_NE(line.function.find("SircFilter::Apply("), std::string::npos) << line.function;
        EXPECT_EQ(line.function.find("lambda"), std::string::npos) << line.function;
        EXPECT_NE(line.file.find("sircfilter.cpp"), std::string::npos) << line.file;
    }
    EXPECT_EQ(Messages(), Texts({"Applying SiRC", "SiRC applied", "Applying SiRC", "SiRC applied"}));
}

TEST_F(Logging, IsNotUsedByCopyAndMovingAverage)
{
    CopyParameters copy;
    MovingAverageWindowSmoothingParameters average(3);
    Record record(Constant(1.0, 64));
    Take(Copy(&copy).Apply(&record), 64);
    Take(MovingAverageSmoothingFilter(&average).Apply(&record), 64);
    EXPECT_EQ(Messages(), Texts{});
}

// Each thread has a filter of its own; every line arrives once and whole.
TEST_F(Logging, LosesNoLineOfSeveralThreads)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 100;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([thread] {
            DeviceConfiguration config = Configuration(4, 20 + thread);
            BesselThomsonParameters parameters(&config);
            for (int round = 0; round < kRounds; ++round) {
                BesselThomson filter(&parameters);
                filter.Prepare(nullptr);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    const Texts messages = Messages();
    EXPECT_EQ(messages.size(), 6U * kThreads * kRounds);
    for (const Texts& pair : {kConstructor, kPrepare, kDestructor})
        for (const std::string& text : pair)
            EXPECT_EQ(std::count(messages.begin(), messages.end(), text), kThreads * kRounds) << text;
}

}  // namespace
