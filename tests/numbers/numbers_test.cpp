// The library against tests/numbers/reference.py: one small capture through every filter, whatever the compiler, its
// optimisation and the FFT library.
#include <cmath>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filters/filters.h"
#include "support/files.h"
#include "support/signals.h"

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;

namespace Tarnwick::Testing {
namespace {

constexpr int kSamplesPerUi = 8;
constexpr int kUi = 31;
constexpr int kPeriod = kSamplesPerUi * kUi;
constexpr int kRepetitions = 2;
constexpr std::size_t kStep = 9;  // every ninth sample is in the table
constexpr std::size_t kTableLength = 8128;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

std::string Symbols()
{
    std::string bits(5, '1');
    while (bits.size() < kUi)
        bits += bits[bits.size() - 5] == bits[bits.size() - 3] ? '0' : '1';
    return bits;
}

std::vector<double> Capture()
{
    const std::string bits = Symbols();
    const auto held = [&](int n) {
        return bits[static_cast<std::size_t>((n + kPeriod) % kPeriod / kSamplesPerUi)] - '0';
    };
    std::vector<double> samples;
    for (int n = 0; n < kRepetitions * kPeriod; ++n)
        samples.push_back(0.5 * (held(n) + held(n - 1)) + 0.3 * held(n - kSamplesPerUi) + 0.01 * std::sin(0.7 * n * n));
    return samples;
}

DeviceConfiguration Device()
{
    DeviceConfiguration config = Configuration(kSamplesPerUi, kUi);
    config.baudRateGBd = 26.5625;
    config.samplesPerPattern = kPeriod;
    config.patternRepeats = kRepetitions;
    config.multiplePatternRecord = true;
    config.signalCoding = SIGNAL_CODING_NRZ;
    config.patternSymbols = Symbols();
    return config;
}

std::vector<double> Filtered(SystemFramework::BaseFilter& filter)
{
    std::vector<double> samples = Capture();
    SystemFramework::SignalData record;
    record.samples = samples.data();
    record.sampleCount = static_cast<int>(samples.size());
    filter.Prepare(&record);
    const std::unique_ptr<double[], void (*)(void*)> result(filter.Apply(&record), ::operator delete);
    return {result.get(), result.get() + samples.size()};
}

template <typename Filter, typename Parameters>
std::vector<double> Answer(const std::function<void(Parameters&)>& set)
{
    DeviceConfiguration config = Device();
    Parameters parameters(&config);
    set(parameters);
    Filter filter(&parameters);
    return Filtered(filter);
}

std::vector<double> Ctle(CTLE_Type type, double gain, const std::function<void(CTLEFilterParameters&)>& set = {})
{
    return Answer<CTLEFilter, CTLEFilterParameters>([&](CTLEFilterParameters& p) {
        p.type = type;
        p.gain = gain;
        if (set)
            set(p);
    });
}

std::vector<double> Ffe(int cursor)
{
    return Answer<FFEFilter, FFEFilterParameters>([&](FFEFilterParameters& p) {
        p.numberOfTaps = 5;
        p.tapsPerUi = 1;
        p.mainCursorPosition = cursor;
    });
}

std::vector<double> DeEmbedded(bool remove)
{
    const TestFolder folder;
    std::ostringstream text;
    text.precision(17);
    text << "# GHz S DB R 50\n";
    for (int f = 2; f <= 60; ++f)
        text << f << " 0 0 " << -0.1 * f << ' ' << -18.0 * f << " 0 0 0 0\n";
    const auto path = folder.Write("fixture.s2p", text.str());
    return Answer<DeEmbeddingFilter, DeEmbeddingParameters>([&](DeEmbeddingParameters& p) {
        p.sparamFileName = path.string();
        p.conversionFlag = remove;
        p.preserveNoise = false;
    });
}

std::vector<double> Sirc()
{
    const auto twoPoles = [](double rate) {
        std::vector<double> table(kTableLength, 0.0);
        constexpr std::size_t kMiddle = kTableLength / 2;
        for (std::size_t k = kMiddle; k < kTableLength; ++k) {
            const double x = kTwoPi * rate * static_cast<double>(k - kMiddle) * 10e-9 / kTableLength;
            table[k] = x * std::exp(-x);
        }
        return table;
    };
    DeviceConfiguration config = Device();
    config.electricalResponseTable.assign(4, twoPoles(30e9));
    config.referenceTable.assign(4, twoPoles(35e9));
    config.channelBandwidths.assign(4, 39.8e9);
    SircFilterParameters parameters(&config);
    parameters.referenceCutoffPercent = 75.0;
    SircFilter filter(&parameters);
    return Filtered(filter);
}

std::vector<double> BesselThomsonAnswer(bool preserveNoise)
{
    return Answer<BesselThomson, BesselThomsonParameters>([&](BesselThomsonParameters& p) {
        p.preserveNoise = preserveNoise;
        p.noiseCornerFrequency = 35e9;
    });
}

std::vector<double> MovingAverageAnswer()
{
    MovingAverageWindowSmoothingParameters parameters(5);
    MovingAverageSmoothingFilter filter(&parameters);
    return Filtered(filter);
}

std::map<std::string, std::vector<double>> ReadTable()
{
    std::map<std::string, std::vector<double>> table;
    std::ifstream file(TARNWICK_NUMBERS);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        for (double value = 0.0; words >> value;)
            table[name].push_back(value);
    }
    return table;
}

struct Case {
    std::string name;
    double tolerance;
    std::function<std::vector<double>()> answer;
};

TEST(Numbers, StayWhatTheFormulasSay)
{
    // 2e-13: roundings of values of about 1 in sums of 496. The five-decimal walks for cutoff and gain and what is made
    // of them: 1e-5. Least squares: the rounding times the condition of the columns.
    const double kRounding = 2e-13;
    const double kWalk = 5e-6;
    const double kLeastSquares = 1e-12;
    const std::vector<Case> cases = {
        {"copy", 1e-14, [] { return Answer<Copy, CopyParameters>([](CopyParameters&) {}); }},
        {"moving-average", kRounding, MovingAverageAnswer},
        {"bessel-thomson", kWalk, [] { return BesselThomsonAnswer(false); }},
        {"bessel-thomson-noise", kWalk, [] { return BesselThomsonAnswer(true); }},
        {"ctle-peaking", kWalk, [] { return Ctle(CTLE_PEAKING, 4.0); }},
        {"ctle-hdmi", kRounding, [] { return Ctle(CTLE_HDMI, 3.0); }},
        {"ctle-hdmi2", kRounding, [] { return Ctle(CTLE_HDMI_2_0, 4.0); }},
        {"ctle-ieee", kRounding, [] { return Ctle(CTLE_IEEE802_3bs, 4.5); }},
        {"ctle-oif", kRounding,
         [] {
             return Ctle(CTLE_OIF_CEI_112G_LINEAR_PAM4, -6.0, [](CTLEFilterParameters& p) {
                 p.gain2 = -1.0;
                 p.pole1 = 40.0;
                 p.pole2 = 53.0;
                 p.zero1 = 20.0;
                 p.zero2 = 1.2;
             });
         }},
        {"ffe-manual", kRounding,
         [] {
             return Answer<FFEFilter, FFEFilterParameters>([](FFEFilterParameters& p) {
                 p.numberOfTaps = 3;
                 p.tapsPerUi = 1;
                 p.useManualTaps = true;
                 p.taps = {-0.1, 1.2, -0.2};
             });
         }},
        {"ffe-searched", kLeastSquares, [] { return Ffe(0); }},
        {"ffe-cursor-2", kLeastSquares, [] { return Ffe(2); }},
        {"dfe", kLeastSquares,
         [] { return Answer<DFEFilter, DFEFilterParameters>([](DFEFilterParameters& p) { p.numberOfTaps = 2; }); }},
        {"deembedding-removed", kRounding, [] { return DeEmbedded(true); }},
        {"deembedding-added", kRounding, [] { return DeEmbedded(false); }},
        {"sirc", kLeastSquares, Sirc},
    };
    const auto table = ReadTable();
    EXPECT_EQ(table.size(), cases.size());
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(table.contains(row.name));
        const std::vector<double>& expected = table.at(row.name);
        const std::vector<double> actual = row.answer();
        ASSERT_EQ(expected.size(), (actual.size() + kStep - 1) / kStep);
        double largest = 0.0;
        for (std::size_t k = 0; k < expected.size(); ++k)
            largest = std::max(largest, std::abs(actual[k * kStep] - expected[k]));
        EXPECT_LT(largest, row.tolerance);
    }
}

}  // namespace
}  // namespace Tarnwick::Testing
