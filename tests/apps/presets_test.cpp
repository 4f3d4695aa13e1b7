#include "apps/program.h"

namespace Tarnwick::App {

namespace {

TEST(PresetsProgram, PrintsBothLists)
{
    const TestFolder folder;
    const auto report = ReportOf(folder, "presets");
    EXPECT_EQ(report["ieee802.3bs"].size(), 17U);
    EXPECT_EQ(report["hdmi"].size(), 8U);
    const auto& row = report["ieee802.3bs"][16];
    EXPECT_EQ(row["gain"], 9.0);
    EXPECT_EQ(row["zerosGHz"], (std::vector<double>{4.006377, 1.0}));
    EXPECT_NEAR(row["dcGainDb"].get<double>(), -9.0, 1e-5);
    EXPECT_NEAR(row["peakFrequencyGHz"].get<double>(), 20.0, 5.0);

    ASSERT_EQ(RunProgram(folder, "presets"), 0);
    EXPECT_NE(folder.Read("out").find("26.5625"), std::string::npos);
    EXPECT_EQ(folder.Read("err"), "");
}

}  // namespace

}  // namespace Tarnwick::App
