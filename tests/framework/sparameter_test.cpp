#include "framework/sparameter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>

#include "framework/fftifft.h"
#include "maths/responses/fixtureresponse.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;
using Data = std::map<double, Complex>;
using Response = std::function<Complex(double f)>;  // f in Hz

constexpr double kTwoPi = 2.0 * std::numbers::pi;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kRateGBd = 26.5625;
constexpr int kSymbols = 8191;
constexpr int kSamples = 16 * kSymbols;
constexpr double kSampleRate = 16e9 * kRateGBd;

double FrequencyOf(std::size_t bin)
{
    return static_cast<double>(bin) * kSampleRate / kSamples;
}

struct Settings {
    bool remove = true;
    int boostDb = 30;
    int bandwidthGHz = 45;
    bool preserveNoise = false;
    double corner = 35e9;
    double upper = 0.0;
    int samples = kSamples;
    bool applied = false;  // that this is what comes of preserveNoise
};

const Settings kAdd{.remove = false};

std::vector<double> Taps(const Data& data, const Settings& settings = {})
{
    int length = -1;
    bool applied = !settings.applied;
    double* const raw = SParameter::ConvertSparamFilterDataToImpulseResponse(
        length, kRateGBd, settings.samples, kSymbols, data, settings.remove, settings.boostDb, settings.bandwidthGHz,
        settings.preserveNoise, settings.corner, settings.upper, nullptr, applied);
    EXPECT_EQ(length, settings.samples);
    EXPECT_EQ(applied, settings.applied);
    return Take(raw, static_cast<std::size_t>(length));
}

std::vector<Complex> SpectrumOf(const std::vector<double>& taps)
{
    std::vector<Complex> bins(taps.begin(), taps.end());
    FFTIFFT_Factory::GetInstance().FFT(bins.data(), static_cast<int>(bins.size()));
    return bins;
}

// A causal line: skin effect with its phase, delay, and echoes between ends that reflect 3 %.
Response Line(double lossDbAt10GHz, double delay)
{
    return [=](double f) {
        const double root = lossDbAt10GHz / 20.0 * std::numbers::ln10 * std::sqrt(f / 10e9);
        const Complex once = std::polar(std::exp(-root), -root - kTwoPi * f * delay);
        return 0.9991 * once / (1.0 - 0.0009 * once * once);
    };
}

// Measured from `first` to `last` in steps that vary by a third around `step`.
Data Measured(const Response& response, double first, double last, double step)
{
    Data data;
    const std::vector<double> jitter = RandomValues(static_cast<std::size_t>((last - first) / step * 2) + 2, 3);
    std::size_t k = 0;
    double f = first;
    while (f < last) {
        data[f] = response(f);
        f += step * (1.0 + jitter[k++] / 3.0);
    }
    data[last] = response(last);
    return data;
}

double TaperAt(double f, double bandwidth)
{
    return 0.5 + 0.5 * std::cos(std::numbers::pi * std::clamp((f / bandwidth - 0.8) / 0.4, 0.0, 1.0));
}

double RelativeError(const std::vector<double>& actual, const std::vector<double>& expected)
{
    double error = 0.0;
    double whole = 0.0;
    for (std::size_t k = 0; k < expected.size(); ++k) {
        error += std::pow(actual[k] - expected[k], 2);
        whole += std::pow(expected[k], 2);
    }
    return std::sqrt(error / whole);
}

std::vector<double> Through(const std::vector<double>& samples, const std::vector<double>& taps)
{
    const std::vector<Complex> spectrum = SpectrumOf(taps);
    return ThroughResponse(samples, kSampleRate, [&](double f) {
        return spectrum[static_cast<std::size_t>(std::lround(f * kSamples / kSampleRate))];
    });
}

// Taps against the line itself: a capture behind the line comes back, one before it arrives, as far as the taper lets
// them. Bounds: what interpolation and the way to 0 Hz leave, in per cent of the rms, to the digit given.
TEST(SParameterConversion, RemovesAndAddsAMeasuredLine)
{
    std::vector<double> symbols;
    for (const int level : Prbs13qLevels())
        symbols.insert(symbols.end(), 16, level / 3.0 - 0.5);
    const std::vector<double> capture = ThroughFrontEnd(symbols, kSampleRate, 40e9);
    const double kRemoved = 100.0 * Tarnwick::DSO::Maths::kFixtureRemovedError;
    const double kAdded = 100.0 * Tarnwick::DSO::Maths::kFixtureAddedError;
    const struct {
        const char* label;
        Response line;
        double first, last, step;  // [Hz]
        double remove, add;        // [%]
        double bandwidth;          // [Hz]
    } cases[] = {{"dense", Line(3, 300e-12), 10e6, 67e9, 10e6, kRemoved, kAdded, 45e9},
                 {"coarse", Line(3, 300e-12), 100e6, 67e9, 100e6, 0.065, 0.075, 45e9},
                 {"from 1 GHz", Line(3, 300e-12), 1e9, 67e9, 10e6, 0.65, 0.75, 45e9},
                 {"long", Line(8, 2e-9), 10e6, 67e9, 10e6, 0.025, 0.035, 45e9},
                 {"to 40 GHz", Line(3, 300e-12), 10e6, 40e9, 10e6, kRemoved, kAdded, 40e9 / 1.2}};
    for (const auto& [label, line, first, last, step, remove, add, bandwidth] : cases) {
        SCOPED_TRACE(label);
        const Data data = Measured(line, first, last, step);
        const auto tapered = [&, end = bandwidth](const Response& response) {
            return ThroughResponse(capture, kSampleRate, [&](double f) { return TaperAt(f, end) * response(f); });
        };
        const auto behind = ThroughResponse(capture, kSampleRate, line);
        EXPECT_LT(100.0 * RelativeError(Through(behind, Taps(data)), tapered([](double) { return 1.0; })), remove);
        EXPECT_LT(100.0 * RelativeError(Through(capture, Taps(data, kAdd)), tapered(line)), add);
    }
}

TEST(SParameterConversion, AddsWhatItRemoves)
{
    const Data data = Measured(Line(3, 300e-12), 10e6, 67e9, 10e6);
    const auto removing = SpectrumOf(Taps(data));
    const auto adding = SpectrumOf(Taps(data, kAdd));
    // To 0.8 times 45 GHz, where the taper begins; the bound is what the transforms leave of taps of up to 3.
    for (std::size_t k = 0; FrequencyOf(k) < 36e9; ++k)
        ASSERT_LT(std::abs(removing[k] * adding[k] - 1.0), 1e-12) << "bin " << k;
}

TEST(SParameterConversion, MeetsTheGainAtDcOfSimpleFixtures)
{
    const auto dcGain = [](const std::vector<double>& taps) { return std::accumulate(taps.begin(), taps.end(), 0.0); };
    // 1e-11: the rounding of 131056 taps.
    EXPECT_NEAR(dcGain(Taps({{1e9, -0.1}, {2e9, -0.1}, {60e9, -0.1}})), -10.0, 1e-11);
    // A line that inverts: to the dB that the way to 0 Hz may add at 10 MHz, and its sign. A DC point says so itself.
    Data inverted = Measured([line = Line(3, 300e-12)](double f) { return -line(f); }, 10e6, 67e9, 10e6);
    EXPECT_NEAR(dcGain(Taps(inverted, kAdd)), -1.0, 5e-5);
    inverted[0.0] = {-0.9, 0.1};
    EXPECT_NEAR(dcGain(Taps(inverted, kAdd)), -std::abs(inverted[0.0]), 1e-12);
}

TEST(SParameterConversion, LimitsTheBoostAndTheBand)
{
    Data notch = Measured(Line(3, 300e-12), 10e6, 67e9, 10e6);
    double strongest = 0.0;
    for (auto& [f, value] : notch) {
        if (std::abs(f - 12e9) < 0.2e9)
            value *= 5e-4;  // 66 dB
        strongest = std::max(strongest, std::abs(value));
    }
    notch[12.0000001e9] = 0.0;
    const struct {
        int boostDb;
        int bandwidthGHz;
        double taper;  // [Hz]
    } cases[] = {{30, 45, 45e9}, {0, 20, 20e9}, {30, 0, 67e9 / 1.2}, {6, 2000000, 67e9 / 1.2}};
    for (const auto& [boostDb, bandwidthGHz, taper] : cases) {
        SCOPED_TRACE(std::to_string(boostDb) + " dB, " + std::to_string(bandwidthGHz) + " GHz");
        const auto bins = SpectrumOf(Taps(notch, {.boostDb = boostDb, .bandwidthGHz = bandwidthGHz}));
        double largest = 0.0;
        for (std::size_t k = 0; k <= bins.size() / 2; ++k) {
            largest = std::max(largest, std::abs(bins[k]));
            if (FrequencyOf(k) > 1.2 * taper) {
                ASSERT_LT(std::abs(bins[k]), 1e-10) << "bin " << k;
            }
        }
        EXPECT_NEAR(20.0 * std::log10(largest * strongest), boostDb, 1e-9);
    }
    // Measured beyond half the sample rate, where the band then ends.
    const auto flat = SpectrumOf(Taps({{1e9, 0.5}, {300e9, 0.5}}, {.bandwidthGHz = 0}));
    for (std::size_t k = 0; k <= flat.size() / 2; ++k)
        ASSERT_NEAR(std::abs(flat[k]), 2.0 * TaperAt(FrequencyOf(k), kSampleRate / 2.0 / 1.2), 1e-10) << "bin " << k;
}

TEST(SParameterConversion, PreservesTheNoiseOrSaysThatItDidNot)
{
    const Data data = Measured(Line(3, 300e-12), 10e6, 67e9, 10e6);
    const std::vector<double> plainTaps = Taps(data);
    const auto plain = SpectrumOf(plainTaps);
    EXPECT_NEAR(NoiseRms(plain), 0.744, 0.002 * 0.744);
    const auto corner = static_cast<std::size_t>(35e9 / kSampleRate * kSamples);
    for (const double upper : {10e9, 2e11}) {  // one that does not lie above the corner is 200 GHz
        const auto bins = SpectrumOf(Taps(data, {.preserveNoise = true, .upper = upper, .applied = true}));
        EXPECT_NEAR(NoiseRms(bins), 1.576, 0.002 * 1.576);
        EXPECT_NEAR(NoiseRms(bins), NoiseRms(std::span(plain).first(corner)), 1e-4);
        for (std::size_t k = 0; k < corner; ++k)
            ASSERT_LT(std::abs(bins[k] - plain[k]), 1e-11) << "bin " << k;
    }
    // With nothing above the corner, and switched off; what the corner is does not matter then.
    EXPECT_TRUE(HaveSameBits(Taps(data, {.preserveNoise = true, .corner = 300e9}), plainTaps));
    EXPECT_TRUE(HaveSameBits(Taps(data, {.corner = kNan}), plainTaps));
}

// 10/3 samples per UI: 27303 samples of 8191 UI, not 24573. An odd length too.
TEST(SParameterConversion, TakesTheSampleRateFromTheWholePattern)
{
    const Data data = Measured(Line(0, 500e-12), 10e6, 67e9, 10e6);
    const auto taps = Taps(data, {.remove = false, .samples = 27303});
    // 500 ps are 44.27 samples of 11.3 ps.
    EXPECT_EQ(std::max_element(taps.begin(), taps.end()) - taps.begin(), 44);
}

TEST(SParameterErrors, NameWhatIsWrongAndChangeNothing)
{
    const Data two = {{1e9, 0.5}, {2e9, 0.25}};
    const std::string badFrequency =
        "; expected a finite frequency of 0 Hz or more (data before the option line are negative)";
    const struct {
        Data data;
        std::string text;
        int symbols = kSymbols;
    } cases[] = {
        {{{1e9, 0.5}}, "number of frequencies is 1; expected 2 or more"},
        {{{1e9, 0.5}, {kInfinity, 1.0}}, "frequency is inf Hz" + badFrequency},
        {{{-1.5, 0.5}, {2e9, 0.25}}, "frequency is -1.5 Hz" + badFrequency},
        {{{1e9, 0.5}, {2e9, {0.5, kNan}}}, "value at 2e+09 Hz is 0.5 + nani; expected a finite number"},
        {{{1e9, 0.0}, {2e9, 0.0}}, "largest magnitude is 0; expected a fixture that lets something through"},
        {two, "patternLengthUi is -1; expected at least 1 UI", -1},
    };
    for (const auto& [data, text, symbols] : cases) {
        int length = -1;
        bool applied = true;
        const auto call = [&, &data = data, symbols = symbols] {
            SParameter::ConvertSparamFilterDataToImpulseResponse(length, kRateGBd, kSamples, symbols, data, true, 30,
                                                                 45, true, 35e9, 0.0, nullptr, applied);
        };
        ExpectRefused(call, "SParameter::ConvertSparamFilterDataToImpulseResponse: " + text);
        EXPECT_EQ(length, -1);
        EXPECT_TRUE(applied);
    }
    // Zeros can be added.
    EXPECT_EQ(Taps({{1e9, 0.0}, {2e9, 0.0}}, {.remove = false, .samples = 16}), Constant(0.0, 16));
}

}  // namespace
