#include <algorithm>
#include <cmath>
#include <numbers>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "maths/responses/ctle.h"
#include "support/failures.h"
#include "workbench/chainresponse.h"
#include "workbench/correctedchannel.h"
#include "workbench/failure.h"
#include "workbench/transferfunction.h"

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

// With an odd number of samples, for which the taps have the formula's values at every bin.
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
    // Taps by hand are a figure; only in front of the first that decides is it known what an ideal symbol has become.
    ASSERT_EQ(response.taps.size(), 2U);
    EXPECT_EQ(response.taps[0].type, "dfe");
    EXPECT_EQ(response.taps[0].figure.taps.offsetsUi, (std::vector<double>{1.0}));
    ASSERT_TRUE(response.taps[0].figure.pulses);
    EXPECT_TRUE(response.taps[0].figure.pulses->after.empty());
    EXPECT_EQ(response.taps[1].index, 3U);
    EXPECT_FALSE(response.taps[1].figure.pulses);
    for (std::size_t k = 0; k < response.whole.magnitudeDb.size() / 4; ++k) {
        double sum = 0.0;
        for (const FilterResponse& filter : response.filters)
            sum += filter.function.magnitudeDb[k];
        EXPECT_NEAR(response.whole.magnitudeDb[k], sum, 1e-9);  // rounding, at -60 dB of the largest
    }
}

// Whatever tap is the main one, the rectangles stand at the offsets of the taps.
TEST(Response, OfAnFfeToAnIdealSymbolIsItsTaps)
{
    const struct {
        int tapsPerUi;
        std::vector<double> taps;
        std::vector<double> offsets;
    } cases[] = {{1, {-0.1, 1.2, -0.3}, {-1.0, 0.0, 1.0}}, {2, {1.2, 0.4, -0.3}, {0.0, 0.5, 1.0}}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.tapsPerUi);
        const ChainResponse response =
            ResponseOf({{{"type", "ffe"}, {"useManualTaps", true}, {"tapsPerUi", row.tapsPerUi}, {"taps", row.taps}}});
        ASSERT_EQ(response.taps.size(), 1U);
        const TapFigure& figure = response.taps[0].figure;
        EXPECT_EQ(figure.taps.offsetsUi, row.offsets);
        ASSERT_TRUE(figure.pulses);
        const auto perUi = static_cast<double>(figure.pulses->valuesPerUi);
        const auto at = [&](const std::vector<double>& pulse, double ui) {
            return pulse.at(static_cast<std::size_t>((ui - figure.pulses->firstUi) * perUi));
        };
        const auto height = [](double ui) { return std::abs(ui) < 0.5 ? 1.0 : 0.0; };
        // With two taps in a UI both are added in the second half of the first one's rectangle.
        const double middle = row.tapsPerUi == 1 ? 0.0 : 0.25;
        for (const double ui : {-2.25, -1.0, -0.375, 0.0, 0.125, 0.875, 1.125, 3.0}) {
            double expected = 0.0;
            for (std::size_t k = 0; k < row.taps.size(); ++k)
                expected += row.taps[k] * height(ui + middle - row.offsets[k]);
            EXPECT_NEAR(at(figure.pulses->after, ui), expected, 1e-12) << ui;
            EXPECT_EQ(at(figure.pulses->before, ui), height(ui + middle)) << ui;
        }
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

constexpr double kSigma = 8e-12;  // [s] of the channel's Gaussian impulse response

// Upside down, with an offset, its peak at 3 ns.
std::vector<double> GaussianTable(std::size_t count, double interval)
{
    std::vector<double> table(count);
    for (std::size_t k = 0; k < count; ++k) {
        const double t = (static_cast<double>(k) * interval - 3e-9) / kSigma;
        table[k] = 0.05 - 0.4 * std::exp(-0.5 * t * t);
    }
    return table;
}

double GaussianDb(double frequency)
{
    const double x = 2.0 * std::numbers::pi * kSigma * frequency;
    return -10.0 / std::numbers::ln10 * x * x;
}

// No correction at all: what is left is the channel, whatever the form of its table.
TEST(CorrectedChannel, MeasuresTheTableAtItsOwnInterval)
{
    std::vector<double> identity(4096, 0.0);
    identity.front() = 3.0;
    const TransferFunction correction = Transform(identity, 160e9);
    std::vector<double> sampled = GaussianTable(2500, 4e-12);
    sampled.insert(sampled.begin(), 4e-12);
    // One that begins with its interval, and one that the window of 10 ns gives it.
    for (const std::vector<double>& table : {sampled, GaussianTable(5000, 2e-12)}) {
        SCOPED_TRACE(table.size());
        const auto channel = CorrectChannel({table, 10e-9, 0.16, 10e9}, correction, 10e9);
        ASSERT_TRUE(channel);
        EXPECT_NEAR(channel->frequency.back(), 20e9, 160e9 / 4096);
        double largest = 0.0;
        for (std::size_t k = 0; k < channel->frequency.size(); ++k) {
            const double frequency = channel->frequency[k];
            EXPECT_NEAR(channel->measured[k], GaussianDb(frequency), 1e-9) << frequency;  // rounding of 2500 terms
            EXPECT_NEAR(channel->correction[k], 0.0, 1e-12);
            if (frequency <= 15e9 && std::abs(GaussianDb(frequency) - channel->target[k]) > std::abs(largest))
                largest = GaussianDb(frequency) - channel->target[k];
        }
        EXPECT_NEAR(channel->target[256], 10.0 * std::log10(0.5), 1e-3);  // 10 GHz; the constant has five digits
        EXPECT_NEAR(channel->largestDifference, largest, 1e-9);
        EXPECT_NEAR(channel->comparedTo, 15e9, 160e9 / 4096);
    }
    EXPECT_FALSE(CorrectChannel({{1.0, 1.0}, 10e-9, 0.16, 10e9}, correction, 10e9));
    EXPECT_FALSE(CorrectChannel({{1e-12}, 10e-9, 0.16, 10e9}, correction, 10e9));
}

// What lies above half the table's sample rate is not measured.
TEST(CorrectedChannel, EndsWhereTheTableEnds)
{
    std::vector<double> table = GaussianTable(200, 40e-12);
    table.insert(table.begin(), 40e-12);
    const TransferFunction correction = Transform({1.0, 0.0, 0.0, 0.0}, 40e9);
    const auto channel = CorrectChannel({table, 10e-9, 0.16, 10e9}, correction, 10e9);
    ASSERT_TRUE(channel);
    ASSERT_EQ(channel->frequency, (std::vector<double>{0.0, 10e9, 20e9}));
    EXPECT_TRUE(std::isfinite(channel->measured[1]));
    EXPECT_TRUE(std::isnan(channel->corrected[2]));
    EXPECT_EQ(channel->comparedTo, 10e9);
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

// h = (1, -1/2): |H|^2 = 5/4 - cos(2 pi f/fs), which rises up to half the sample rate. At 8 samples per UI the band ends
// at half of that.
TEST(TransferFunction, IsJudgedInTheSignalsBand)
{
    std::vector<double> impulse(1024, 0.0);
    impulse[0] = 1.0;
    impulse[1] = -0.5;
    const TransferFunction function = Transform(impulse, 8e9);
    const ResponseFigures figures = FiguresOf(function, 1e9);
    EXPECT_EQ(figures.peakFrequency, 2e9);
    EXPECT_NEAR(figures.peakGainDb, 10.0 * std::log10(1.25), 1e-12);
    // Four times the integral of |H|^2 to 2 GHz, by the trapezoidal rule in 256 steps: (pi / 512)^2 / 3 of the cosine's.
    EXPECT_NEAR(*figures.noiseBandwidth, 4.0 * (1.25 * 2e9 - 8e9 / (2.0 * std::numbers::pi)), 8e4);
    EXPECT_EQ(FiguresOf(function, 1e9, 4e9).peakFrequency, 4e9);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
