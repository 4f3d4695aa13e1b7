#include "workbench/chainresponse.h"

#include <cmath>
#include <numbers>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "maths/responses/ctle.h"
#include "support/failures.h"
#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;

// A PRBS9 at 10 GBd with these filters.
std::string ChainWith(const json& filters, int samplesPerUi)
{
    const json device = {{"baudRateGBd", 10},
                         {"samplesPerUi", samplesPerUi},
                         {"signalCoding", "NRZ"},
                         {"patternSymbols", {{"prbs", 9}}}};
    return json{{"device", device}, {"filters", filters}}.dump();
}

ChainResponse ResponseOf(const json& filters, int samplesPerUi = 16)
{
    const ChainFile file = ChainFile::FromText(ChainWith(filters, samplesPerUi), "chain");
    const ImpulseRecord record = ImpulseRecordFor(file);
    Chain chain(file, record.sampleCount);
    return MeasureResponse(chain, record, 1e10);
}

// Of an odd number of samples, on which the taps have the formula's values at every bin.
// Each (1 + jf/z) brings forward and each 1/(1 + jf/p) delays, by 1 / (2 pi c (1 + (f/c)^2)) for its corner c.
TEST(Response, OfACtleHasTheGroupDelayOfItsPolesAndZeros)
{
    const ChainResponse response = ResponseOf({{{"type", "ctle"}, {"ctleType", "ieee802.3bs"}, {"gain", 6}}}, 15);
    const Maths::Ieee802_3bsPreset& preset = *Maths::FindIeee802_3bsPreset(6.0);
    const auto corner = [](double ghz, double at) {
        return 1e-9 / (2.0 * std::numbers::pi * at * (1.0 + ghz / at * (ghz / at)));
    };
    for (std::size_t k = 2; k < response.whole.magnitudeDb.size() / 4; ++k) {
        const double ghz = static_cast<double>(k) * response.whole.Spacing() / 1e9;
        const double expected = corner(ghz, preset.pole1) + corner(ghz, preset.pole2) + corner(ghz, preset.pole3) -
                                corner(ghz, preset.zero1) - corner(ghz, preset.zero2);
        // The mean over three bins rounds the bend near DC.
        EXPECT_NEAR(response.whole.groupDelay[k] * 1e12, expected * 1e12, 0.05) << ghz << " GHz";
    }
}

TEST(Response, OfTheWholeIsTheProductWithoutWhatDecidesOrAdapts)
{
    const ChainResponse response = ResponseOf({
        {{"type", "moving-average"}, {"WindowLength", 5}},
        {{"type", "dfe"}, {"useManualTaps", true}, {"numberOfTaps", 1}, {"taps", {0.1}}},
        {{"type", "bessel-thomson"}},
        {{"type", "ffe"}, {"useManualTaps", true}, {"numberOfTaps", 2}, {"taps", {1.2, -0.2}}},
        {{"type", "ffe"}, {"numberOfTaps", 3}},
    });
    EXPECT_EQ(response.leftOut, (std::vector<std::string>{"1 dfe", "4 ffe"}));
    ASSERT_EQ(response.filters.size(), 3U);
    for (std::size_t k = 0; k < response.whole.magnitudeDb.size() / 4; ++k) {
        double sum = 0.0;
        for (const FilterResponse& filter : response.filters)
            sum += filter.function.magnitudeDb[k];
        EXPECT_NEAR(response.whole.magnitudeDb[k], sum, 1e-9);  // rounding, at -60 dB of the largest
    }
}

TEST(ResponseRecord, FollowsTheDevice)
{
    const auto recordFor = [](const std::string& device) {
        return ImpulseRecordFor(ChainFile::FromText("{\"device\": " + device + ", \"filters\": []}", "c"));
    };
    const ImpulseRecord record = recordFor(R"({"baudRateGBd": 10, "patternLengthUi": 7, "patternRepeats": 3,
                                               "useFractionalSampling": true, "uiDuration": 10, "sampleSpacing": 4})");
    EXPECT_EQ(record.sampleCount, 53U);  // 3 x 17.5, rounded up
    EXPECT_EQ(record.RepetitionLength(), 17U);
    EXPECT_EQ(record.sampleRate, 25e9);

    Testing::ExpectFailures<UsageFailure>(
        "c: ",
        {
            {R"({})", "device.baudRateGBd: is missing; response needs it"},
            {R"({"baudRateGBd": -1})", "device.baudRateGBd: is -1; expected a positive symbol rate"},
            {R"({"baudRateGBd": 1})", "device.samplesPerUi: is missing; response needs it"},
            {R"({"baudRateGBd": 1, "samplesPerUi": 8})", "device.patternLengthUi: is missing; response needs it"},
            {R"({"baudRateGBd": 1, "useFractionalSampling": true})",
             "device.uiDuration: is missing; response needs it"},
            {R"({"baudRateGBd": 1, "useFractionalSampling": true, "uiDuration": 1, "sampleSpacing": 2})",
             "device.sampleSpacing: is 2; expected a positive time of at most uiDuration"},
            {R"({"baudRateGBd": 1, "samplesPerUi": 8, "patternLengthUi": 4, "patternRepeats": 0})",
             "device.patternRepeats: is 0; expected at least 1"},
            {R"({"baudRateGBd": 1, "samplesPerUi": 65536, "patternLengthUi": 65536})",
             "device: patternLengthUi * samplesPerUi * patternRepeats is 4294967296; expected at most 67108864"},
        },
        recordFor);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
