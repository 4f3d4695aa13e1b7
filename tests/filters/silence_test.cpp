// What a host sees that never heard of the log: nothing. This program does not set up Easylogging++, so the storage is
// made by the first line that a filter writes, inside the test.
#include <gtest/gtest.h>

#include <filesystem>

#include "filters/filters.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

TEST(FiltersWithoutALogSetUp, PrintNothingAndMakeNoFile)
{
    const auto home = std::filesystem::current_path();
    const auto folder = home / "silence_test_folder";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    std::filesystem::current_path(folder);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        DeviceConfiguration config = Configuration(8, 8);
        BesselThomsonParameters bessel(&config);
        MovingAverageWindowSmoothingParameters average(5);
        CopyParameters copy;
        BesselThomson besselFilter(&bessel);
        MovingAverageSmoothingFilter averageFilter(&average);
        Copy copyFilter(&copy);
        Record record(Constant(1.0, 64));
        for (SystemFramework::BaseFilter* filter :
             std::initializer_list<SystemFramework::BaseFilter*>{&besselFilter, &averageFilter, &copyFilter})
            Take(filter->Apply(&record), 64);
    }
    const std::string printed = testing::internal::GetCapturedStdout();
    const std::string complained = testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed, "");
    EXPECT_EQ(complained, "");
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    std::filesystem::current_path(home);
    std::filesystem::remove_all(folder);
}

}  // namespace
