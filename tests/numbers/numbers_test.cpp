// The library against tests/numbers/reference.py: one small capture through every filter, whatever the compiler, its
// optimisation and the FFT library.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <numbers>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "faults/everyfilter.h"
#include "filters/filters.h"
#include "support/files.h"
#include "support/signals.h"

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;

namespace Tarnwick::Testing {
namespace {

constexpr int kUiSamples = 8;
constexpr int kUi = 31;
constexpr int kPeriod = kUiSamples * kUi;
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
    const auto held = [&](int n) { return bits[static_cast<std::size_t>((n + kPeriod) % kPeriod / kUiSamples)] - '0'; };
    std::vector<double> samples;
    for (int n = 0; n < kRepetitions * kPeriod; ++n)
        samples.push_back(0.5 * (held(n) + held(n - 1)) + 0.3 * held(n - kUiSamples) + 0.01 * std::sin(0.7 * n * n));
    return samples;
}

DeviceConfiguration Device()
{
    DeviceConfiguration config = Configuration(kUiSamples, kUi);
    config.samplesPerPattern = kPeriod;
    config.patternRepeats = kRepetitions;
    config.multiplePatternRecord = true;
    config.signalCoding = SIGNAL_CODING_NRZ;
    config.patternSymbols = Symbols();
    return config;
}

using Set = std::function<void(Rig& rig)>;

template <typename Parameters>
Set With(std::function<void(Parameters&)> set)
{
    return [set = std::move(set)](Rig& rig) { set(dynamic_cast<Parameters&>(rig.Parameters())); };
}

Set Gain(double gain)
{
    return With<CTLEFilterParameters>([gain](CTLEFilterParameters& p) { p.gain = gain; });
}

Set FiveTaps(int cursor)
{
    return With<FFEFilterParameters>([cursor](FFEFilterParameters& p) {
        p.numberOfTaps = 5;
        p.mainCursorPosition = cursor;
    });
}

std::string FixtureText()
{
    std::ostringstream text;
    text.precision(17);
    text << "# GHz S DB R 50\n";
    for (int f = 2; f <= 60; ++f)
        text << f << " 0 0 " << -0.1 * f << ' ' << -18.0 * f << " 0 0 0 0\n";
    return text.str();
}

std::vector<double> TwoPoles(double rate)
{
    std::vector<double> table(kTableLength, 0.0);
    constexpr std::size_t kMiddle = kTableLength / 2;
    for (std::size_t k = kMiddle; k < kTableLength; ++k) {
        const double x = kTwoPi * rate * static_cast<double>(k - kMiddle) * 10e-9 / kTableLength;
        table[k] = x * std::exp(-x);
    }
    return table;
}

void SetTables(Rig& rig)
{
    rig.config.electricalResponseTable.assign(4, TwoPoles(30e9));
    rig.config.referenceTable.assign(4, TwoPoles(35e9));
    rig.config.channelBandwidths.assign(4, 39.8e9);
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

TEST(Numbers, StayWhatTheFormulasSay)
{
    // 2e-13: roundings of values of about 1 in sums of 496. The five-decimal walks for cutoff and gain and what is made
    // of them: 1e-5. Least squares: the rounding times the condition of the columns.
    const double kRounding = 2e-13;
    const double kWalk = 5e-6;
    const double kLeastSquares = 1e-12;
    const TestFolder folder;
    const std::string fixture = folder.Write("fixture.s2p", FixtureText()).string();
    const auto throughFixture = [&](bool remove) {
        return With<DeEmbeddingParameters>([=](DeEmbeddingParameters& p) {
            p.sparamFileName = fixture;
            p.conversionFlag = remove;
        });
    };
    const struct {
        std::string name;
        std::string kind;  // among EveryFilter
        double tolerance;
        Set set;
    } cases[] = {
        {"copy", "Copy", 1e-14, {}},
        {"moving-average", "MovingAverage", kRounding,  // without a configuration, centred
         [](Rig& rig) { rig.Parameters() = SystemFramework::BaseFilterParameters(); }},
        {"bessel-thomson", "BesselThomson", kWalk, {}},
        {"bessel-thomson-noise", "BesselThomsonNoise", kWalk, {}},
        {"ctle-peaking", "CtlePeaking", kWalk, Gain(4.0)},
        {"ctle-hdmi", "CtleHdmi", kRounding, Gain(3.0)},
        {"ctle-hdmi2", "CtleHdmi20", kRounding, Gain(4.0)},
        {"ctle-ieee", "CtleIeee", kRounding, Gain(4.5)},
        {"ctle-oif", "CtleOif", kRounding, With<CTLEFilterParameters>([](CTLEFilterParameters& p) {
             p.gain = -6.0;
             p.gain2 = -1.0;
             p.outputScale = 1.0;
             p.pole1 = 40.0;
             p.pole2 = 53.0;
             p.zero1 = 20.0;
             p.zero2 = 1.2;
         })},
        {"ffe-manual", "FfeManual", kRounding, With<FFEFilterParameters>([](FFEFilterParameters& p) {
             p.numberOfTaps = 3;
             p.tapsPerUi = 1;
             p.taps = {-0.1, 1.2, -0.2};
         })},
        {"ffe-searched", "FfeAutomatic", kLeastSquares, FiveTaps(0)},
        {"ffe-cursor-2", "FfeAutomatic", kLeastSquares, FiveTaps(2)},
        {"ffe-phase", "FfePhase", kLeastSquares, {}},
        {"dfe", "DfeAutomatic", kLeastSquares, {}},
        {"deembedding-removed", "DeEmbedding", kRounding, throughFixture(true)},
        {"deembedding-added", "DeEmbedding", kRounding, throughFixture(false)},
        {"sirc", "Sirc", kLeastSquares, SetTables},
    };
    const auto table = ReadTable();
    EXPECT_EQ(table.size(), std::size(cases));
    std::set<std::string> missing;
    for (const FilterKind& kind : EveryFilter())
        missing.insert(kind.filter);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(table.contains(row.name));
        const FilterKind& kind = *std::ranges::find(EveryFilter(), row.kind, &FilterKind::name);
        missing.erase(kind.filter);
        const std::unique_ptr<Rig> rig = kind.make(kUiSamples);
        rig->config = Device();
        if (row.set)
            row.set(*rig);
        rig->Parameters().SetDirty();
        const std::vector<double>& expected = table.at(row.name);
        const std::vector<double> actual = rig->Apply(Capture());
        ASSERT_EQ(expected.size(), (actual.size() + kStep - 1) / kStep);
        double largest = 0.0;
        for (std::size_t k = 0; k < expected.size(); ++k)
            largest = std::max(largest, std::abs(actual[k * kStep] - expected[k]));
        EXPECT_LT(largest, row.tolerance);
    }
    EXPECT_TRUE(missing.empty()) << *missing.begin() << " has no row";
}

}  // namespace
}  // namespace Tarnwick::Testing
