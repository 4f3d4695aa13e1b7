#include "framework/sparameter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>

#include "framework/fftifft.h"
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
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
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
    double rateGBd = kRateGBd;
    int samples = kSamples;
    int symbols = kSymbols;
    bool applied = false;
};

std::vector<double> Taps(const Data& data, Settings& settings)
{
    int length = -1;
    double* const raw = SParameter::ConvertSparamFilterDataToImpulseResponse(
        length, settings.rateGBd, settings.samples, settings.symbols, data, settings.remove, settings.boostDb,
        settings.bandwidthGHz, settings.preserveNoise, settings.corner, settings.upper, nullptr, settings.applied);
    EXPECT_EQ(length, settings.samples);
    return Take(raw, static_cast<std::size_t>(length));
}

std::vector<double> TapsOf(const Data& data, Settings settings = {})
{
    return Taps(data, settings);
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

// PRBS13Q with edges of an ideal transmitter.
std::vector<double> Capture()
{
    std::vector<double> samples;
    for (const int level : Prbs13qLevels())
        samples.insert(samples.end(), 16, level / 3.0 - 0.5);
    return ThroughFrontEnd(samples, kSampleRate, 40e9);
}

double Rms(const std::vector<double>& values)
{
    return std::sqrt(std::inner_product(values.begin(), values.end(), values.begin(), 0.0) /
                     static_cast<double>(values.size()));
}

double RelativeError(const std::vector<double>& actual, const std::vector<double>& expected)
{
    std::vector<double> error(actual.size());
    std::transform(actual.begin(), actual.end(), expected.begin(), error.begin(), std::minus<>());
    return Rms(error) / Rms(expected);
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
    const std::vector<double> capture = Capture();
    const struct {
        const char* label;
        Response line;
        double first, last, step;  // [Hz]
        double remove, add;        // [%]
        double bandwidth;          // [Hz]
    } cases[] = {{"dense", Line(3, 300e-12), 10e6, 67e9, 10e6, 0.0075, 0.0095, 45e9},
                 {"coarse", Line(3, 300e-12), 100e6, 67e9, 100e6, 0.065, 0.075, 45e9},
                 {"from 1 GHz", Line(3, 300e-12), 1e9, 67e9, 10e6, 0.65, 0.75, 45e9},
                 {"long", Line(8, 2e-9), 10e6, 67e9, 10e6, 0.025, 0.035, 45e9},
                 {"to 40 GHz", Line(3, 300e-12), 10e6, 40e9, 10e6, 0.0075, 0.0095, 40e9 / 1.2}};
    for (const auto& [label, line, first, last, step, remove, add, bandwidth] : cases) {
        SCOPED_TRACE(label);
        const Data data = Measured(line, first, last, step);
        const auto tapered = [&, end = bandwidth](const Response& response) {
            return ThroughResponse(capture, kSampleRate, [&](double f) { return TaperAt(f, end) * response(f); });
        };
        Settings settings;
        const auto behind = ThroughResponse(capture, kSampleRate, line);
        const double removed = RelativeError(Through(behind, TapsOf(data)), tapered([](double) { return 1.0; }));
        settings.remove = false;
        const double added = RelativeError(Through(capture, TapsOf(data, settings)), tapered(line));
        EXPECT_LT(100.0 * removed, remove);
        EXPECT_LT(100.0 * added, add);
    }
}

TEST(SParameterConversion, AddsWhatItRemoves)
{
    const Data data = Measured(Line(3, 300e-12), 10e6, 67e9, 10e6);
    Settings add;
    add.remove = false;
    const auto removing = SpectrumOf(TapsOf(data));
    const auto adding = SpectrumOf(TapsOf(data, add));
    // To 0.8 times 45 GHz, where the taper begins; the bound is what the transforms leave of taps of up to 3.
    for (std::size_t k = 0; FrequencyOf(k) < 36e9; ++k)
        ASSERT_LT(std::abs(removing[k] * adding[k] - 1.0), 1e-12) << "bin " << k;
}

TEST(SParameterConversion, MeetsTheGainAtDcOfSimpleFixtures)
{
    const auto flat = [](double gain) { return Data{{1e9, gain}, {2e9, gain}, {60e9, gain}}; };
    const auto dcGain = [](const std::vector<double>& taps) { return std::accumulate(taps.begin(), taps.end(), 0.0); };
    // 1e-11: the rounding of 131056 taps.
    EXPECT_NEAR(dcGain(TapsOf(flat(0.1))), 10.0, 1e-11);
    EXPECT_NEAR(dcGain(TapsOf(flat(-0.1))), -10.0, 1e-11);
    Settings add;
    add.remove = false;
    EXPECT_NEAR(dcGain(TapsOf(flat(0.1), add)), 0.1, 1e-13);
    // A line that inverts: to the dB that the way to 0 Hz may add at 10 MHz, and its sign. A DC point says so itself.
    const Response line = Line(3, 300e-12);
    const auto inverted = [&](double f) { return -line(f); };
    EXPECT_NEAR(dcGain(TapsOf(Measured(inverted, 10e6, 67e9, 10e6), add)), -1.0, 5e-5);
    Data withDc = Measured(inverted, 10e6, 67e9, 10e6);
    withDc[0.0] = {-0.9, 0.1};
    EXPECT_NEAR(dcGain(TapsOf(withDc, add)), -std::abs(withDc[0.0]), 1e-12);
    // Nothing but delay, which the taps have: 100 ps are 42.5 samples.
    Data delay;
    for (int k = 2; k < 120; ++k)
        delay[k * 0.5e9] = std::polar(1.0, -kTwoPi * k * 0.5e9 * 100e-12);
    const auto taps = TapsOf(delay, add);
    EXPECT_NEAR(taps[42], taps[43], 1e-12);
    EXPECT_GT(taps[42], 0.99 * *std::max_element(taps.begin(), taps.end()));
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
    } cases[] = {{30, 45, 45e9}, {6, 45, 45e9}, {0, 20, 20e9}, {30, 0, 67e9 / 1.2}, {30, 2000000, 67e9 / 1.2}};
    for (const auto& [boostDb, bandwidthGHz, taper] : cases) {
        SCOPED_TRACE(std::to_string(boostDb) + " dB, " + std::to_string(bandwidthGHz) + " GHz");
        Settings settings;
        settings.boostDb = boostDb;
        settings.bandwidthGHz = bandwidthGHz;
        const auto bins = SpectrumOf(TapsOf(notch, settings));
        double largest = 0.0;
        for (std::size_t k = 0; k <= bins.size() / 2; ++k) {
            largest = std::max(largest, std::abs(bins[k]));
            if (FrequencyOf(k) > 1.2 * taper) {
                ASSERT_LT(std::abs(bins[k]), 1e-10) << "bin " << k;
            }
        }
        EXPECT_NEAR(20.0 * std::log10(largest * strongest), boostDb, 1e-9);
    }
    // The taper is half at the bandwidth.
    Settings add;
    add.remove = false;
    add.bandwidthGHz = 20;
    add.rateGBd = 20.0;
    add.samples = 16 * 1024;
    add.symbols = 1024;
    const auto bins = SpectrumOf(TapsOf({{1e9, 1.0}, {60e9, 1.0}}, add));
    EXPECT_NEAR(std::abs(bins[1024]), 0.5, 1e-12);
    EXPECT_NEAR(std::abs(bins[819]), 1.0, 1e-12);
}

TEST(SParameterConversion, PreservesTheNoiseOrSaysThatItDidNot)
{
    const Data data = Measured(Line(3, 300e-12), 10e6, 67e9, 10e6);
    const auto plain = SpectrumOf(TapsOf(data));
    EXPECT_NEAR(NoiseRms(plain), 0.744, 0.002 * 0.744);
    for (const double upper : {0.0, 10e9, 2e11}) {
        Settings settings;
        settings.preserveNoise = true;
        settings.upper = upper;
        const auto bins = SpectrumOf(Taps(data, settings));
        EXPECT_TRUE(settings.applied);
        EXPECT_NEAR(NoiseRms(bins), 1.576, 0.002 * 1.576);
        const auto corner = static_cast<std::size_t>(35e9 / kSampleRate * kSamples);
        EXPECT_NEAR(NoiseRms(bins), NoiseRms(std::span(plain).first(corner)), 1e-4);
        for (std::size_t k = 0; k < corner; ++k)
            ASSERT_LT(std::abs(bins[k] - plain[k]), 1e-11) << "bin " << k;
    }
    Settings beyond;
    beyond.preserveNoise = true;
    beyond.applied = true;
    beyond.corner = 300e9;
    const auto taps = Taps(data, beyond);
    EXPECT_FALSE(beyond.applied);
    EXPECT_TRUE(HaveSameBits(taps, TapsOf(data)));
    Settings off;
    off.applied = true;
    (void)Taps(data, off);
    EXPECT_FALSE(off.applied);
}

// 10/3 samples per UI: 27303 samples of 8191 UI, not 24573. An odd length too.
TEST(SParameterConversion, TakesTheSampleRateFromTheWholePattern)
{
    Settings settings;
    settings.remove = false;
    settings.samples = 27303;
    const auto taps = TapsOf(Measured(Line(0, 500e-12), 10e6, 67e9, 10e6), settings);
    // 500 ps are 44.27 samples of 11.3 ps.
    EXPECT_EQ(std::max_element(taps.begin(), taps.end()) - taps.begin(), 44);
}

TEST(SParameterErrors, NameWhatIsWrongAndChangeNothing)
{
    const std::string where = "SParameter::ConvertSparamFilterDataToImpulseResponse: ";
    const Data two = {{1e9, 0.5}, {2e9, 0.25}};
    const auto with = [](const std::function<void(Settings&)>& set) {
        Settings settings;
        set(settings);
        return settings;
    };
    const struct {
        Data data;
        Settings settings;
        std::string text;
    } cases[] = {
        {{}, {}, "data is empty; expected two frequencies or more (file missing or unreadable?)"},
        {{{1e9, 0.5}}, {}, "number of frequencies is 1; expected 2 or more"},
        {{{1e9, 0.5}, {kInfinity, 1.0}},
         {},
         "frequency is inf Hz; expected a finite frequency of 0 Hz or more (data before the option line are negative)"},
        {{{-1.5, 0.5}, {2e9, 0.25}},
         {},
         "frequency is -1.5 Hz; expected a finite frequency of 0 Hz or more (data before the option line are "
         "negative)"},
        {{{1e9, 0.5}, {2e9, {0.5, kNan}}}, {}, "value at 2e+09 Hz is 0.5 + nani; expected a finite number"},
        {{{1e9, 0.0}, {2e9, 0.0}}, {}, "largest magnitude is 0; expected a fixture that lets something through"},
        {two, with([](Settings& s) { s.boostDb = -1; }), "conversionParameterA is -1; expected 0 dB of boost or more"},
        {two, with([](Settings& s) { s.bandwidthGHz = -45; }),
         "conversionParameterB is -45; expected a bandwidth of 0 GHz or more"},
        {two, with([](Settings& s) { s.rateGBd = kNan; }),
         "baudRateGBd is nan; expected a finite positive symbol rate in GBd"},
        {two, with([](Settings& s) { s.samples = 0; }), "samplesPerPattern is 0; expected at least 1 sample"},
        {two, with([](Settings& s) { s.symbols = -1; }), "patternLengthUi is -1; expected at least 1 UI"},
        {two, with([](Settings& s) {
             s.preserveNoise = true;
             s.corner = kInfinity;
         }),
         "noiseCornerFrequency is inf; expected a finite frequency in hertz"},
    };
    for (const auto& [data, settings, text] : cases) {
        int length = -1;
        bool applied = true;
        const auto call = [&, &data = data, &s = settings] {
            SParameter::ConvertSparamFilterDataToImpulseResponse(length, s.rateGBd, s.samples, s.symbols, data,
                                                                 s.remove, s.boostDb, s.bandwidthGHz, s.preserveNoise,
                                                                 s.corner, s.upper, nullptr, applied);
        };
        ExpectRefused(call, where + text);
        EXPECT_EQ(length, -1);
        EXPECT_TRUE(applied);
    }
    // Zeros can be added; so can a corner that is not read be anything.
    Settings zeros;
    zeros.remove = false;
    zeros.samples = 16;
    zeros.corner = kNan;
    EXPECT_EQ(TapsOf({{1e9, 0.0}, {2e9, 0.0}}, zeros), Constant(0.0, 16));
}

}  // namespace
