#include "presets.h"

#include <initializer_list>

#include "filters/filters.h"
#include "program.h"

namespace Tarnwick::App {

namespace {

// What the filter itself writes into its parameters for a preset.
DSO::Filters::CTLEFilterParameters Prepared(CTLE_Type type, double gain)
{
    DSO::DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = 4;
    config.samplesPerUi = 4;
    config.patternLocked[0] = true;
    DSO::Filters::CTLEFilterParameters parameters(&config);
    parameters.type = type;
    parameters.gain = gain;
    DSO::Filters::CTLEFilter filter(&parameters);
    static_cast<DSO::SystemFramework::BaseFilter&>(filter).Prepare(nullptr);
    return parameters;
}

// Its corners, as many as a list has, in GHz.
void ExpectCorners(const std::vector<double>& listed, std::initializer_list<double> radians)
{
    ASSERT_EQ(listed.size(), radians.size());
    for (std::size_t k = 0; k < listed.size(); ++k)
        EXPECT_DOUBLE_EQ(listed[k] * 6.283185307179586e9, radians.begin()[k]);
}

TEST(Presets, AreThoseOfTheFilter)
{
    const auto rows = Ieee802_3bsRows();
    ASSERT_EQ(rows.size(), 17U);
    for (std::size_t k = 0; k < rows.size(); ++k) {
        const PresetRow& row = rows[k];
        EXPECT_EQ(row.gain, 1.0 + 0.5 * static_cast<double>(k));
        const auto filter = Prepared(CTLE_IEEE802_3bs, row.gain);
        ExpectCorners(row.polesGHz, {filter.pole1, filter.pole2, filter.pole3});
        ExpectCorners(row.zerosGHz, {filter.zero1, filter.zero2});
        EXPECT_NEAR(row.dcGain, filter.dcGain, 1e-12);
        EXPECT_NEAR(row.peakingDb, row.gain, 1e-3);  // the zeros have six decimals
        EXPECT_TRUE(row.peakGHz > 10.0 && row.peakGHz < 26.5625) << row.peakGHz;
    }
    const auto levels = HdmiRows();
    ASSERT_EQ(levels.size(), 8U);
    for (std::size_t k = 0; k < levels.size(); ++k) {
        const PresetRow& row = levels[k];
        EXPECT_EQ(row.gain, static_cast<double>(k + 1));
        const auto filter = Prepared(CTLE_HDMI, row.gain);
        ExpectCorners(row.polesGHz, {filter.pole1, filter.pole2});
        ExpectCorners(row.zerosGHz, {filter.zero1});
        EXPECT_NEAR(row.dcGain, 1.0, 1e-12);
        EXPECT_NEAR(row.peakingDb, row.gain, 0.03);  // a level is its peaking in dB, of a ratio with three digits
    }
}

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

    ASSERT_EQ(RunProgram(folder, "presets"), 0);
    EXPECT_NE(folder.Read("out").find("26.5625"), std::string::npos);
    EXPECT_EQ(folder.Read("err"), "");
}

}  // namespace

}  // namespace Tarnwick::App
