// A host that does nothing about the log sees nothing of it. This program does not set up Easylogging++, so the storage
// is made by the first line that a filter writes, inside the test.
#include <gtest/gtest.h>

#include <filesystem>

#include "filters/filters/besselthomson.h"
#include "support/files.h"

namespace {

using namespace Tarnwick::DSO::Filters;
using Tarnwick::Testing::TestFolder;

TEST(FiltersWithoutALogSetUp, PrintNothingAndMakeNoFile)
{
    const TestFolder folder;
    const auto home = std::filesystem::current_path();
    std::filesystem::current_path(folder / "");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        BesselThomsonParameters parameters;
        const BesselThomson filter(&parameters);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(folder.Count(), 0U);
    std::filesystem::current_path(home);
}

}  // namespace
