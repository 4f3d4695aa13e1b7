#include "maths/responses/ctle.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace {

using namespace Tarnwick::DSO::Maths;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
// The design's error, to rounding, and what it is in decibels around 1.
constexpr double kRounding = kDesignError;
constexpr double kRoundingDb = kRounding * 8.6859;
constexpr double kHighest = 60e9;  // [Hz] where the search for a peak ends

double Db(double ratio)
{
    return 20.0 * std::log10(ratio);
}

TEST(CtlePeakingDesign, ReachesThePeakingAndUnitGainAtHalfTheSymbolRate)
{
    for (const double symbolRate : {10e9, 26.5625e9, 53.125e9})
        for (int step = 0; step <= 48; ++step) {
            const double gain = 0.25 * step;
            SCOPED_TRACE(std::to_string(gain) + " dB at " + std::to_string(symbolRate));
            const auto design = DesignPeaking(symbolRate, gain);
            ASSERT_TRUE(design);
            const TwoPoleResponse response = design->Response();
            const double middle = std::abs(response(symbolRate / 2.0));
            const double dc = std::abs(response(0.0));
            EXPECT_NEAR(middle, 1.0, 1.001 * kRounding);
            EXPECT_NEAR(Db(middle / dc), gain, 1.001 * kRounding);
            EXPECT_NEAR(Db(design->dcGain), -gain, 1.001 * (kRounding + kRoundingDb));
        }
}

TEST(CtlePeakingDesign, EndsForEveryGain)
{
    // The zero cannot lie above the first pole: some -2.8 dB are the least peaking there is. At 25.78125 and 28.05 GBd
    // the bisection for less ends between two neighbouring doubles.
    for (const double symbolRate : {1.25e9, 25.78125e9, 28.05e9, 106.25e9})
        for (const double gain : {-1000.0, -2.9}) {
            const auto design = DesignPeaking(symbolRate, gain);
            ASSERT_TRUE(design) << symbolRate;
            EXPECT_NEAR(design->zero, design->pole1, 1e-12 * design->pole1) << gain;
            EXPECT_NEAR(std::abs(design->Response()(symbolRate / 2.0)), 1.0, 1.001 * kRounding);
        }
    EXPECT_TRUE(DesignPeaking(10e9, 1000.0));
    EXPECT_EQ(DesignPeaking(10e9, 3.0000049)->gain, 3.0);
    for (const double symbolRate : {0.0, kNan, 1e200, 1e-200})
        EXPECT_FALSE(DesignPeaking(symbolRate, 6.0)) << symbolRate;
}

// The key is the peaking, |H| at its peak over |H| at DC, and the DC gain brings the peak to 0 dB: both to what six decimals
// of the gain and of the corners leave.
TEST(CtleIeee802_3bs, PresetsAreFoundByTheirKey)
{
    for (int step = 2; step <= 18; ++step) {
        const Ieee802_3bsPreset* const preset = FindIeee802_3bsPreset(0.5 * step);
        ASSERT_NE(preset, nullptr) << step;
        EXPECT_EQ(preset->keyDb, 0.5 * step);
        EXPECT_NEAR(std::abs(preset->Response()(0.0)), std::pow(10.0, -preset->keyDb / 20.0), 0.5001e-6) << step;
        EXPECT_NEAR(Db(FindPeak(preset->Response(), kHighest).magnitude / preset->dcGain), preset->keyDb, 5e-4);
        EXPECT_NEAR(Db(FindPeak(preset->Response(), kHighest).magnitude), 0.0, kPresetPeakErrorDb) << step;
    }
    EXPECT_NEAR(FindPeak(FindIeee802_3bsPreset(1.0)->Response(), kHighest).frequency, 13.03e9, 5e6);
    EXPECT_NEAR(FindPeak(FindIeee802_3bsPreset(9.0)->Response(), kHighest).frequency, 18.44e9, 5e6);
    for (const double other : {0.5, 1.25, 9.5, kNan, std::nextafter(4.0, 5.0)})
        EXPECT_EQ(FindIeee802_3bsPreset(other), nullptr) << other;
}

TEST(CtleHdmi, LevelsAreTheirWholePartAndPeaking)
{
    const std::pair<double, double> cases[] = {{1, 1.35}, {2, 1.57},    {3.9, 1.8}, {4, 2.05}, {5.5, 2.32}, {6, 2.63},
                                               {7, 2.97}, {8.99, 3.34}, {0.99, 0},  {9, 0},    {kNan, 0}};
    for (const auto& [level, ratio] : cases)
        EXPECT_EQ(HdmiPeakingRatio(level), ratio) << level;
}

// Poles and zero lie so near each other that the peak stays below the ratio: a level is its peaking in dB.
TEST(CtleHdmi, LevelsAreTheirPeaking)
{
    const double peakings[] = {1.016, 2.017, 3.016, 4.018, 5.002, 6.022, 7.027, 8.008};  // [dB] to the digits given
    for (const auto& [level, ratio] : kHdmiLevels) {
        const auto response = HdmiResponse(ratio, kHdmiPole1, kHdmiPole2, kHdmiPole1 / ratio);
        const double peaking = Db(FindPeak(response, kHighest).magnitude);
        EXPECT_NEAR(peaking, peakings[level - 1], 5.1e-4);
        EXPECT_NEAR(peaking, level, kHdmiLevelErrorDb);
        EXPECT_NEAR(std::abs(response(0.0)), 1.0, 4 * DBL_EPSILON);
    }
}

TEST(CtleOif, FollowsItsLimits)
{
    const double g1 = std::pow(10.0, -6.0 / 20.0);
    const double g2 = std::pow(10.0, -2.0 / 20.0);
    const auto response = [&](double lowFrequency) {
        return LowFrequencyPairResponse{
            g1, g2, 53.125 * kRadPerGHz, 28.0 * kRadPerGHz, 21.0 * kRadPerGHz, lowFrequency * kRadPerGHz};
    };
    EXPECT_NEAR(std::abs(response(0.66)(0.0) - g1 * g2), 0.0, DBL_EPSILON);
    // A pair far below the first bin leaves the one-zero, two-pole form; one far above leaves it times g2.
    const std::complex<double> j(0.0, 1.0);
    const std::complex<double> plain = (g1 + j * 10.0 / 21.0) / ((1.0 + j * 10.0 / 53.125) * (1.0 + j * 10.0 / 28.0));
    EXPECT_LT(std::abs(response(1e-9)(10e9) - plain), 1e-9);
    EXPECT_LT(std::abs(response(1e12)(10e9) - g2 * plain), 1e-9);
    // Far above every corner |H| falls as f_p1 f_p2 / (f_z f).
    EXPECT_NEAR(std::abs(response(0.66)(1e15)), 53.125 * 28.0 / (21.0 * 1e6), 1e-7 * 53.125 * 28.0 / 21e6);
}

// The bounded inverse of a cable at 5.94 GBd with 8 dB, to the digits that the design figures have.
TEST(CtleCable, HasItsGainAtHalfTheSymbolRate)
{
    const double symbolRate = 5.94e9;
    const struct {
        double part, db;
    } cases[] = {{0.0, 0.0}, {0.25, 5.981}, {0.5, 8.0}, {0.75, 9.034}, {1.0, 9.301}, {2.0, -1.094}};
    const CableResponse response(symbolRate, 8.0);
    for (const auto& [part, db] : cases)
        EXPECT_NEAR(Db(std::abs(response(part * symbolRate))), db, 6e-4) << part;
    for (const double gain : {-20.0, -12.0, 0.0, 8.0, 20.0}) {
        const CableResponse cable(symbolRate, gain);
        EXPECT_NEAR(Db(std::abs(cable(symbolRate / 2.0))), gain, kCableGainErrorDb) << gain;
        EXPECT_NEAR(std::abs(cable(0.0)), 1.0, 4 * DBL_EPSILON) << gain;
    }
}

}  // namespace
