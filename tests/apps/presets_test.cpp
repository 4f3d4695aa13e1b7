#include "commands/presets.h"

#include "apps/program.h"
#include "filters/filters.h"

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

TEST(Presets, AreThoseOfTheFilter)
{
    const struct {
        CTLE_Type type;
        std::vector<PresetRow> rows;
        std::size_t count;
        double step;           // of the gain, from 1
        std::size_t poles;     // and a zero less
        double peakingMargin;  // [dB]
    } cases[] = {
        {CTLE_IEEE802_3bs, Ieee802_3bsRows(), 17, 0.5, 3, 1e-3},  // the zeros have six decimals
        {CTLE_HDMI, HdmiRows(), 8, 1.0, 2, 0.03},  // a level is its peaking, of a ratio with three digits
    };
    constexpr double kRadPerGHz = 6.283185307179586e9;
    for (const auto& expected : cases) {
        ASSERT_EQ(expected.rows.size(), expected.count);
        for (std::size_t k = 0; k < expected.count; ++k) {
            const PresetRow& row = expected.rows[k];
            EXPECT_EQ(row.gain, 1.0 + expected.step * static_cast<double>(k));
            const auto filter = Prepared(expected.type, row.gain);
            const double poles[] = {filter.pole1, filter.pole2, filter.pole3};
            const double zeros[] = {filter.zero1, filter.zero2};
            ASSERT_EQ(row.polesGHz.size(), expected.poles);
            ASSERT_EQ(row.zerosGHz.size(), expected.poles - 1);
            for (std::size_t n = 0; n < row.polesGHz.size(); ++n)
                EXPECT_DOUBLE_EQ(row.polesGHz[n] * kRadPerGHz, poles[n]);
            for (std::size_t n = 0; n < row.zerosGHz.size(); ++n)
                EXPECT_DOUBLE_EQ(row.zerosGHz[n] * kRadPerGHz, zeros[n]);
            EXPECT_NEAR(row.dcGain, expected.type == CTLE_HDMI ? 1.0 : filter.dcGain, 1e-12);
            EXPECT_NEAR(row.peakingDb, row.gain, expected.peakingMargin);
        }
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
    EXPECT_NEAR(row["peakFrequencyGHz"].get<double>(), 20.0, 5.0);

    ASSERT_EQ(RunProgram(folder, "presets"), 0);
    EXPECT_NE(folder.Read("out").find("26.5625"), std::string::npos);
    EXPECT_EQ(folder.Read("err"), "");
}

}  // namespace

}  // namespace Tarnwick::App
