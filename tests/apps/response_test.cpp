#include "commands/response.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "apps/program.h"
#include "maths/responses/ctle.h"
#include "workbench/failure.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

// A PRBS9 at 10 GBd with these filters.
json ChainWith(const json& filters, int repeats = 0, int samplesPerUi = 16)
{
    json device = {{"baudRateGBd", 10},
                   {"samplesPerUi", samplesPerUi},
                   {"signalCoding", "NRZ"},
                   {"patternSymbols", {{"prbs", 9}}}};
    if (repeats > 0)
        device["patternRepeats"] = repeats;
    return {{"device", device}, {"filters", filters}};
}

ChainResponse ResponseOf(const json& file)
{
    const ImpulseRecord record = RecordFor(file, "chain");
    Chain chain(file, "chain", record.sampleCount);
    return MeasureResponse(chain.Stages(), record, 1e10, "chain");
}

TEST(TransferFunction, OfAShiftIsItsDelay)
{
    const struct {
        int count;
        int shift;
        int delay;
    } cases[] = {{64, 0, 0}, {64, 5, 5}, {64, 32, 32}, {64, 61, -3}, {63, 31, 31}, {63, 32, -31}, {1, 0, 0}};
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << row.shift << " of " << row.count);
        std::vector<double> impulse(static_cast<std::size_t>(row.count), 0.0);
        impulse[static_cast<std::size_t>(row.shift)] = -2.0;
        const TransferFunction function = Transform(impulse, 1e9);
        EXPECT_EQ(function.peak, row.delay);
        ASSERT_EQ(function.magnitudeDb.size(), static_cast<std::size_t>(row.count / 2 + 1));
        for (std::size_t k = 0; k < function.magnitudeDb.size(); ++k) {
            // Rounding of a transform of 64 points.
            EXPECT_NEAR(function.magnitudeDb[k], 20.0 * std::log10(2.0), 1e-12);
            EXPECT_NEAR(function.groupDelay[k], row.delay * 1e-9, 1e-21);
        }
    }
}

// h = (1/2, 1/2): H = cos(pi f/fs) exp(-j pi f/fs).
TEST(TransferFunction, OfTwoTapsHasTheFiguresOfACosine)
{
    std::vector<double> impulse(1024, 0.0);
    impulse[0] = impulse[1] = 0.5;
    const TransferFunction function = Transform(impulse, 8e9);
    EXPECT_TRUE(std::isnan(function.groupDelay.back()));
    // Hann's window weighs the second tap by 1e-5 less.
    EXPECT_NEAR(function.groupDelay[100], 0.5 / 8e9, 1e-5 / 8e9);
    const ResponseFigures figures = FiguresOf(function, 2e9);
    EXPECT_NEAR(figures.dcGainDb, 0.0, 1e-12);
    EXPECT_NEAR(figures.halfRateGainDb, 20.0 * std::log10(std::cos(std::numbers::pi / 8.0)), 1e-12);
    EXPECT_EQ(figures.peakFrequency, 0.0);
    ASSERT_TRUE(figures.cutoffFrequency && figures.noiseBandwidth);
    EXPECT_NEAR(*figures.cutoffFrequency, 2e9, 1.0);
    EXPECT_NEAR(figures.noiseGain, std::sqrt(0.5), 1e-15);
    EXPECT_NEAR(*figures.noiseBandwidth, 2e9, 1e-3);
}

// Of an odd number of samples, on which the taps have the formula's values at every bin.
// Each (1 + jf/z) brings forward and each 1/(1 + jf/p) delays, by 1 / (2 pi c (1 + (f/c)^2)) for its corner c.
TEST(Response, OfACtleHasTheGroupDelayOfItsPolesAndZeros)
{
    const ChainResponse response =
        ResponseOf(ChainWith({{{"type", "ctle"}, {"ctleType", "ieee802.3bs"}, {"gain", 6}}}, 0, 15));
    const DSO::Maths::Ieee802_3bsPreset& preset = *DSO::Maths::FindIeee802_3bsPreset(6.0);
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
    const ChainResponse response = ResponseOf(ChainWith({
        {{"type", "moving-average"}, {"WindowLength", 5}},
        {{"type", "dfe"}, {"useManualTaps", true}, {"numberOfTaps", 1}, {"taps", {0.1}}},
        {{"type", "bessel-thomson"}},
        {{"type", "ffe"}, {"useManualTaps", true}, {"numberOfTaps", 2}, {"taps", {1.2, -0.2}}},
        {{"type", "ffe"}, {"numberOfTaps", 3}},
    }));
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
        return RecordFor({{"device", json::parse(device)}, {"filters", json::array()}}, "c");
    };
    const ImpulseRecord record = recordFor(R"({"baudRateGBd": 10, "patternLengthUi": 7, "patternRepeats": 3,
                                               "useFractionalSampling": true, "uiDuration": 10, "sampleSpacing": 4})");
    EXPECT_EQ(record.sampleCount, 53U);  // 3 x 17.5, rounded up
    EXPECT_EQ(record.RepetitionLength(), 17U);
    EXPECT_EQ(record.sampleRate, 25e9);

    ExpectFailures<UsageFailure>(
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

TEST(ResponseProgram, WritesFiguresColumnsAndAPicture)
{
    const TestFolder folder;
    const json filters = {{{"type", "moving-average"}, {"WindowLength", 2}},
                          {{"type", "copy"}, {"enabled", false}},
                          {{"type", "bessel-thomson"}, {"cutoffPercent", 50}}};
    folder.Write("chain.json", ChainWith(filters, 3).dump());  // the figures are those of one repetition
    const json report = ReportOf(folder, "response chain.json -o r");
    EXPECT_EQ(report["samples"], 511 * 16);
    ASSERT_EQ(report["filters"].size(), 2U);
    const json& receiver = report["filters"][1];
    EXPECT_EQ(receiver["name"], "2 bessel-thomson");
    // The normalised cutoff of order 4 is known to five digits, and the record is one sample longer than the taps.
    EXPECT_NEAR(receiver["halfRateGainDb"].get<double>(), 10.0 * std::log10(0.5), 1e-3);
    EXPECT_NEAR(receiver["cutoffFrequencyGHz"].get<double>(), 5.0, 2e-3);
    EXPECT_NEAR(report["whole"]["dcGainDb"].get<double>(), 0.0, 1e-9);
    EXPECT_LT(report["whole"]["noiseBandwidthGHz"], receiver["noiseBandwidthGHz"]);

    const std::string frequency = folder.Read("r-frequency.csv");
    EXPECT_EQ(frequency.rfind("frequencyHz,0 moving-average magnitude [dB],0 moving-average group delay [ps],"
                              "2 bessel-thomson magnitude [dB],2 bessel-thomson group delay [ps],whole magnitude [dB],"
                              "whole group delay [ps]\n0,",
                              0),
              0U);
    EXPECT_EQ(std::count(frequency.begin(), frequency.end(), '\n'), 1 + 511 * 8 + 1);
    EXPECT_NE(frequency.find("\n80000000000,"), std::string::npos);
    EXPECT_EQ(frequency.substr(frequency.size() - 2), ",\n");  // far below -60 dB at half the sample rate: no delay

    const Waveform impulse = ReadWaveform(folder / "r-impulse.csv");  // of the whole, the last column
    ASSERT_EQ(impulse.samples.size(), 511U * 16);
    EXPECT_NEAR(std::accumulate(impulse.samples.begin(), impulse.samples.end(), 0.0), 16.0, 1e-9);  // DC gain, per UI
    const auto peak = std::max_element(impulse.samples.begin(), impulse.samples.end()) - impulse.samples.begin();
    EXPECT_EQ(peak, (511 * 16 - 1) / 2);  // in the middle
    EXPECT_NEAR((impulse.start + static_cast<double>(peak) * impulse.interval) * 1e12,
                report["whole"]["peakDelayPs"].get<double>(), 1e-9);
    EXPECT_TRUE(IsPng(folder.Read("r.png")));

    ASSERT_EQ(RunProgram(folder, "response chain.json"), 0);
    const std::string table = folder.Read("out");
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 4);
    EXPECT_EQ(folder.Read("err"), "");
    ExpectRefusals(folder, "response", {{"chain.json -o no/r", 1, "no/r-frequency.csv: cannot be written"}});
}

}  // namespace

}  // namespace Tarnwick::App
