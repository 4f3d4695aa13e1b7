#include "workbench/ctlepresets.h"

#include <gtest/gtest.h>

#include "filters/filters.h"

namespace Tarnwick::DSO::Workbench {

namespace {

// What the filter itself writes into its parameters for a preset.
Filters::CTLEFilterParameters Prepared(CTLE_Type type, double gain)
{
    DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = 4;
    config.samplesPerUi = 4;
    config.patternLocked[0] = true;
    Filters::CTLEFilterParameters parameters(&config);
    parameters.type = type;
    parameters.gain = gain;
    Filters::CTLEFilter filter(&parameters);
    static_cast<SystemFramework::BaseFilter&>(filter).Prepare(nullptr);
    return parameters;
}

TEST(CtlePresets, AreThoseOfTheFilter)
{
    const struct {
        CTLE_Type type;
        std::vector<CtlePreset> rows;
        std::size_t count;
        double step;           // of the gain, from 1
        std::size_t poles;     // and a zero less
        double peakingMargin;  // [dB]
    } cases[] = {
        {CTLE_IEEE802_3bs, Ieee802_3bsPresets(), 17, 0.5, 3, 1e-3},  // the zeros have six decimals
        {CTLE_HDMI, HdmiPresets(), 8, 1.0, 2, 0.03},  // a level is its peaking, of a ratio with three digits
    };
    constexpr double kRadPerGHz = 6.283185307179586e9;
    for (const auto& expected : cases) {
        ASSERT_EQ(expected.rows.size(), expected.count);
        for (std::size_t k = 0; k < expected.count; ++k) {
            const CtlePreset& row = expected.rows[k];
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

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
