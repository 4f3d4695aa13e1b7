#include "filters/filters/deembeddingfilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <sstream>
#include <stdexcept>

#include "framework/plumbing/ownedarray.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/files.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Data = std::map<double, Complex>;

constexpr double kTwoPi = 2.0 * std::numbers::pi;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

Data Load(const std::string& path, PortOrderS4P order = PORT_ORDER_12_34)
{
    DeEmbeddingParameters parameters;
    return DeEmbeddingFilter(&parameters).loadSparamFile(path, order);
}

// A fixture of 3 dB at 10 GHz and 300 ps.
Complex FixtureAt(double f)
{
    const double root = 3.0 / 20.0 * std::numbers::ln10 * std::sqrt(f / 10e9);
    return std::polar(std::exp(-root), -root - kTwoPi * f * 300e-12);
}

std::string FixtureFile(double gain = 1.0, double last = 67e9)
{
    std::ostringstream text;
    text.precision(17);
    text << "# Hz S RI R 50\n";
    for (int k = 1; k * 10e6 <= last; ++k) {
        const double f = k * 10e6;
        const Complex value = gain * FixtureAt(f);
        text << f << " 0 0 " << value.real() << ' ' << value.imag() << ' ' << value.real() << ' ' << value.imag()
             << " 0 0\n";
    }
    return text.str();
}

// A configuration, its parameters and the filter on a file in a folder of the test.
struct Deembedder {
    explicit Deembedder(const std::string& content, int samplesPerUi = 16, int patternLengthUi = 127)
        : config(Configuration(samplesPerUi, patternLengthUi)), parameters(&config)
    {
        config.samplesPerPattern = samplesPerUi * patternLengthUi;
        std::fill(std::begin(config.patternLocked), std::end(config.patternLocked), false);
        parameters.sparamFileName = folder.Write("fixture.s2p", content).string();
        parameters.preserveNoise = false;
    }
    DeEmbeddingFilter& Filter() { return filter ? *filter : filter.emplace(&parameters); }
    std::vector<double> Apply(std::vector<double> samples)
    {
        Record record(std::move(samples));
        return Take(Filter().Apply(&record), record.Values().size());
    }

    TestFolder folder;
    DeviceConfiguration config;
    DeEmbeddingParameters parameters;
    std::optional<DeEmbeddingFilter> filter;
};

TEST(DeEmbeddingParameters, IgnoreTheFirstThirdAndTwelfthArgument)
{
    DeviceConfiguration config;
    for (const DeEmbeddingParameters& p : {DeEmbeddingParameters(), DeEmbeddingParameters(&config)}) {
        EXPECT_TRUE(p.preserveNoise && p.conversionFlag && p.sparamData.empty() && p.sparamFileName.empty());
        EXPECT_EQ(p.noiseCornerFrequency, 35e9);
        EXPECT_EQ(p.noiseSecondParameter, 0.0);
        EXPECT_EQ(p.conversionParameterA, 30);
        EXPECT_EQ(p.conversionParameterB, 45);
        EXPECT_EQ(p.portOrder, PORT_ORDER_12_34);
        EXPECT_EQ(p.samplesPerPattern, 0);
        EXPECT_EQ(p.samplesPerUi, 0);
    }
    for (const double ignored : {0.0, -7.5, kNan}) {
        DeEmbeddingParameters given(ignored, 2, ignored > -1.0 ? 3 : -3, false, 5, 6, false, 8.0, "nine",
                                    PORT_ORDER_13_24, 11, ignored);
        given.sparamData[1.0] = 2.0;
        DeEmbeddingParameters p;
        p = DeEmbeddingParameters(given);
        given.sparamData.clear();
        EXPECT_EQ(p.samplesPerPattern, 2);
        EXPECT_FALSE(p.conversionFlag);
        EXPECT_EQ(p.conversionParameterA, 5);
        EXPECT_EQ(p.conversionParameterB, 6);
        EXPECT_FALSE(p.preserveNoise);
        EXPECT_EQ(p.noiseCornerFrequency, 8.0);
        EXPECT_EQ(p.noiseSecondParameter, 0.0);
        EXPECT_EQ(p.sparamFileName, "nine");
        EXPECT_EQ(p.portOrder, PORT_ORDER_13_24);
        EXPECT_EQ(p.samplesPerUi, 11);
        EXPECT_EQ(p.sparamData, (Data{{1.0, 2.0}}));
    }
}

TEST(DeEmbeddingReader, ReadsEveryKindOfFileByItsRules)
{
    const std::string row = "1 0.9 0 0.5 -90 0.5 -90 0.9 0";
    const Complex s21(0.5 * std::cos(-90 * 0.017453292519943295), 0.5 * std::sin(-90 * 0.017453292519943295));
    const double six = std::pow(10.0, -6.0 / 20.0);
    const std::string zeros = "0 0 0 0 0 0 0 0\n";
    const struct {
        const char* label;
        const char* name;
        std::string text;
        PortOrderS4P order;
        Data expected;
    } cases[] = {
        {"S21", "a.s2p", "! c\n# GHz S MA R 50\n" + row, PORT_ORDER_12_34, {{1e9, s21}}},
        {"blank lines, CRLF, tabs",
         "a.s2p",
         "\r\n \t\r\n# GHz S MA R 50\r\n\n1\t0.9 0  0.5 -90 0.5 -90 0.9 0\r\n",
         PORT_ORDER_12_34,
         {{1e9, s21}}},
        {"options", "a.s2p", "#  ghz  s  ma  r  50\n" + row, PORT_ORDER_12_34, {{1e9, s21}}},
        {"DC where the second is twice the first",
         "a.s2p",
         "# GHz S MA R 50\n1 0 0 0.5 0 0 0 0 0\n2 0 0 0.5 0 0 0 0 0\n3 0 0 0.5 0 0 0 0 0",
         PORT_ORDER_12_34,
         {{0.0, 0.5}, {1e9, 0.5}, {2e9, 0.5}, {3e9, 0.5}}},
        {"DC without a sign",
         "a.s1p",
         "# kHz S RI R 50\n4 -3 4\n8 1 1",
         PORT_ORDER_12_34,
         {{0.0, 5.0}, {4e3, {-3, 4}}, {8e3, {1, 1}}}},
        {"no DC a bit off", "a.s1p", "# Hz S RI\n1 2 0\n2.0000001 2 0", PORT_ORDER_12_34, {{1, 2.0}, {2.0000001, 2.0}}},
        {"DC stays", "a.s1p", "# Hz S RI\n0 7 0\n1 2 0\n2 2 0", PORT_ORDER_12_34, {{0, 7.0}, {1, 2.0}, {2, 2.0}}},
        {"ten tokens", "a.s2p", "# GHz S RI\n1 0 0 3 4 0 0 0 0 ", PORT_ORDER_12_34, {{0.0, {3, 4}}}},
        {"no option line",
         "a.s2p",
         "1 0 0 3 4 0 0 0 0\n# GHz S RI\n2 0 0 5 6 0 0 0 0",
         PORT_ORDER_12_34,
         {{-1.0, {3, 4}}, {2e9, {5, 6}}}},
        {"unknown unit and format", "a.s1p", "# THz S XY\n5 3 4", PORT_ORDER_12_34, {{5, {3, 4}}}},
        {"format kept", "a.s1p", "# Hz S MA\n# MHz S XY\n5 3 0", PORT_ORDER_12_34, {{5e6, 3.0}}},
        {"last of two", "a.s1p", "# Hz S RI\n5 3 4\n5 1 2", PORT_ORDER_12_34, {{5, {1, 2}}}},
        {"one port, more tokens",
         "a.s1p",
         "# Hz S RI\n5 3 4 x y\n6 1 2 0 0 0 0 0 0",
         PORT_ORDER_12_34,
         {{5, {3, 4}}, {6, {1, 2}}}},
        {"tokens that are not needed", "a.s2p", "# Hz S RI\n7 a b 3 4 c", PORT_ORDER_12_34, {{0, {3, 4}}}},
        {"upper case is two ports", "a.S1P", "# Hz S RI\n7 1 2 3 4 5 6 7 8", PORT_ORDER_12_34, {{7, {3, 4}}}},
        {"dB",
         "a.s1p",
         "# Hz S dB R 50\n1 -6 180",
         PORT_ORDER_12_34,
         {{1, {six * std::cos(180 * 0.017453292519943295), six * std::sin(180 * 0.017453292519943295)}}}},
        {"table in radians",
         "a.s21",
         "1e9,-6,1.5708\n\n3e9,-6\nlonely\n4e9, 0 , 0 ,rest\n",
         PORT_ORDER_12_34,
         {{1e9, {six * std::cos(1.5708), six * std::sin(1.5708)}}, {3e9, six}, {4e9, 1.0}}},
        {"table with DC",
         "a.s21",
         "1,-6,3\n2,-6,3\n",
         PORT_ORDER_12_34,
         {{0, std::abs(Complex(six * std::cos(3), six * std::sin(3)))},
          {1, {six * std::cos(3), six * std::sin(3)}},
          {2, {six * std::cos(3), six * std::sin(3)}}}},
        {"pairs 1, 2 and 3, 4",
         "a.s4p",
         "# Hz S RI R 50\n5 " + zeros + zeros + "\t1 0 0 0 0 0 0 0\n0 0 1 0 0 0 0 0\n",
         PORT_ORDER_12_34,
         {{5, 1.0}}},
        {"through 1 to 3 and 2 to 4",
         "a.s4p",
         "# Hz S RI R 50\n5 " + zeros + zeros + "1 0 0 0 0 0 0 0\n0 0 1 0 0 0 0 0\n",
         PORT_ORDER_13_24,
         {{5, 0.0}}},
        {"through 1 to 2 and 3 to 4",
         "a.s4p",
         "# Hz S RI R 50\n5 " + zeros + "1 0 0 0 0 0 0 0\n" + zeros + "0 0 0 0 1 0 0 0\n",
         PORT_ORDER_13_24,
         {{5, 1.0}}},
        {"a matrix short",
         "a.s4p",
         "# Hz S RI\n1 " + zeros + zeros + "1 0 0 0 0 0 0 0\n" + zeros + "2 " + zeros + zeros,
         PORT_ORDER_12_34,
         {{1, 0.5}}},
        {"nothing", "a.s4p", "", PORT_ORDER_12_34, {}},
    };
    const TestFolder folder;
    for (const auto& [label, name, text, order, expected] : cases)
        EXPECT_EQ(Load(folder.Write(name, text).string(), order), expected) << label;
    EXPECT_TRUE(Load((folder / "missing.s2p").string()).empty());
    EXPECT_TRUE(Load((folder / "").string()).empty());  // a folder
}

TEST(DeEmbeddingReader, RefusesWhatIsNoNumberAndShortLines)
{
    const TestFolder folder;
    const std::string path = (folder / "").string();
    const auto shortLine = [&](const char* name, int line, int tokens, int needed, const char* kind = "a data line") {
        return "DeEmbeddingFilter: number of tokens in line " + std::to_string(line) + " of " + path + name + " is " +
               std::to_string(tokens) + "; expected at least " + std::to_string(needed) + " in " + kind;
    };
    const struct {
        const char* name;
        const char* text;
        std::string message;
    } cases[] = {
        {"a.s2p", "# GHz S RI\nx 0 0 3 4 0 0 0 0", "invalid stod argument"},
        {"a.s2p", "# GHz S RI\n1 0 0 3 4z5 0 0 0 0\n1 0 0 z 4 0 0 0 0", "invalid stod argument"},
        {"a.s1p", "1 ! 2", "invalid stod argument"},
        {"a.s21", "freq,mag\n1,2", "invalid stod argument"},
        {"a.s21", "1,", "invalid stod argument"},
        {"a.s4p", "# Hz S RI\n1 0 0 0 0 0 0 0 0\n0 0 0 0 0 0 0 0 \n", "invalid stod argument"},
        {"a.s1p", "# Hz S RI\n\n1 2", shortLine("a.s1p", 3, 2, 3)},
        {"a.s2p", "# Hz S RI\n1 2 3 4", shortLine("a.s2p", 2, 4, 5)},
        {"a.s4p", "# Hz S RI\r\n1 2 3 4 5 6 7\r\n", shortLine("a.s4p", 2, 7, 8)},
        {"a.s2p", "! c\n# Hz S", shortLine("a.s2p", 2, 3, 4, "an option line")},
        {"a.s1p", "nan 1 2", "DeEmbeddingFilter: frequency in line 1 of " + path + "a.s1p is nan; expected a number"},
    };
    for (const auto& [name, text, message] : cases) {
        const std::string file = folder.Write(name, text).string();
        ExpectRefused([&, &file = file] { Load(file); }, message);
    }
    // The first token of a pair counts first; what is not a number before what is out of range.
    for (const char* text : {"1e400 1 2", "# Hz S RI\n1 1e-310 x", "# Hz S MA\n1 0 -1e999"}) {
        const std::string file = folder.Write("b.s1p", text).string();
        try {
            Load(file);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "stod argument out of range");
        }
    }
}

// Sdd21 = (S31 - S32 - S41 + S42)/2, of ports renumbered where the pairs are 1, 3 and 2, 4.
TEST(DeEmbeddingMixedMode, IsTheDifferentialTransmission)
{
    const std::vector<double> random = RandomValues(96, 7);
    std::vector<Complex> values;
    for (std::size_t k = 0; k < random.size(); k += 2)
        values.emplace_back(random[k], random[k + 1]);
    values.emplace_back(1.0);  // of a fourth matrix that is cut short
    const TestFolder folder;
    std::ostringstream text;
    text.precision(17);
    text << "# Hz S RI R 50\n";
    for (std::size_t k = 0; k < 48; ++k)
        text << (k % 16 == 0 ? std::to_string(10 + k / 16) + " " : "") << values[k].real() << ' ' << values[k].imag()
             << (k % 4 == 3 ? "\n" : " ");
    const std::string file = folder.Write("a.s4p", text.str()).string();

    DeEmbeddingParameters parameters;
    DeEmbeddingFilter filter(&parameters);
    for (const auto order : {PORT_ORDER_12_34, PORT_ORDER_13_24, static_cast<PortOrderS4P>(-5)}) {
        const int ports[] = {0, order == PORT_ORDER_12_34 ? 1 : 2, order == PORT_ORDER_12_34 ? 2 : 1, 3};
        std::vector<Complex> exchanged = values;
        for (std::size_t row = 0; row + 4 < values.size() && order != PORT_ORDER_12_34; row += 4)
            std::swap(exchanged[row + 1], exchanged[row + 2]);
        Data direct = {{10.0, 99.0}, {5.0, 1.0}};
        filter.convertFromSingleEndedToMixedMode(direct, exchanged, {10.0, 11.0, 12.0, 13.0}, order);
        const Data read = Load(file, order);
        ASSERT_EQ(read.size(), 3U);
        EXPECT_EQ(direct.size(), 4U);
        EXPECT_EQ(direct[5.0], 1.0);
        for (int k = 0; k < 3; ++k) {
            const auto s = [&](int to, int from) { return values[16 * k + 4 * ports[to - 1] + ports[from - 1]]; };
            const Complex expected = 0.5 * (s(3, 1) - s(3, 2) - s(4, 1) + s(4, 2));
            EXPECT_LT(std::abs(read.at(10 + k) - expected), 1e-15) << "order " << order << ", frequency " << k;
            EXPECT_EQ(direct[10 + k], read.at(10 + k));
        }
    }
    Data none;
    ExpectRefused(
        [&] {
            filter.convertFromSingleEndedToMixedMode(none, values, {1.0, kNan}, PORT_ORDER_12_34);
        },
        "DeEmbeddingFilter: frequency is nan; expected a number");
    EXPECT_TRUE(none.empty());
}

TEST(DeEmbeddingNumbers, AreInDegreesAndDecibels)
{
    DeEmbeddingParameters parameters;
    DeEmbeddingFilter filter(&parameters);
    const double angle = 30 * 0.017453292519943295;
    const Complex unit(std::cos(angle), std::sin(angle));
    EXPECT_EQ(filter.ReadMA(2.0, 30.0, false), 2.0 * unit);
    EXPECT_EQ(filter.ReadMA(20.0, 30.0, true), 10.0 * unit);
    EXPECT_EQ(filter.ReadDB(20.0, 30.0), 10.0 * unit);
    EXPECT_EQ(filter.ReadRI(2.0, 30.0), Complex(2.0, 30.0));
    EXPECT_EQ(filter.ReadAmplitude(AMPLITUDE_DB, 20.0, 30.0), 10.0 * unit);
    EXPECT_EQ(filter.ReadAmplitude(AMPLITUDE_MA, 2.0, 30.0), 2.0 * unit);
    for (const int format : {2, 3, -1})
        EXPECT_EQ(filter.ReadAmplitude(static_cast<AmplitudeFormat>(format), 2.0, 30.0), Complex(2.0, 30.0));
}

TEST(DeEmbeddingFilter, TakesItsSizesFromTheConfiguration)
{
    const struct {
        bool fractional;
        double ui, spacing;
        int samplesPerPattern, samplesPerUi;
    } cases[] = {{false, 0, 0, 1000, 16}, {true, 10, 3, 13, 3}, {true, 10, 6, 6, 1}};
    for (const auto& [fractional, ui, spacing, samplesPerPattern, samplesPerUi] : cases) {
        DeviceConfiguration config = Configuration(16, 4);
        config.samplesPerPattern = 1000;  // taken as it is, not multiplied
        config.useFractionalSampling = fractional;
        config.uiDuration = ui;
        config.sampleSpacing = spacing;
        DeEmbeddingParameters parameters(&config);
        const DeEmbeddingFilter filter(&parameters);
        EXPECT_EQ(parameters.samplesPerPattern, samplesPerPattern);
        EXPECT_EQ(parameters.samplesPerUi, samplesPerUi);
        EXPECT_EQ(filter.kernel, nullptr);
        EXPECT_EQ(filter.kernelLength, 0);
    }
}

// A PAM4 capture through a fixture comes back, and one sent through it arrives, as far as the taper lets them.
TEST(DeEmbeddingFilter, RemovesAndAddsAFixture)
{
    constexpr double kSampleRate = 16 * 26.5625e9;
    std::vector<double> symbols;
    for (const int level : Prbs13qLevels())
        symbols.insert(symbols.end(), 16, level / 3.0 - 0.5);
    const auto capture = ThroughFrontEnd(symbols, kSampleRate, 20e9);
    const auto behind = ThroughResponse(capture, kSampleRate, FixtureAt);
    const auto tapered = [&](const std::vector<double>& samples) {
        return ThroughResponse(samples, kSampleRate, [](double f) {
            return 0.5 + 0.5 * std::cos(std::numbers::pi * std::clamp((f / 45e9 - 0.8) / 0.4, 0.0, 1.0));
        });
    };
    Deembedder deembedder(FixtureFile(), 16, 8191);
    const auto twice = Tiled(behind, 2);
    // 1e-4 of half the swing: what interpolation over 10 MHz and the way to 0 Hz leave.
    EXPECT_TRUE(AreNear(deembedder.Apply(twice), Tiled(tapered(capture), 2), 1e-4));
    deembedder.parameters.conversionFlag = false;
    const auto added = deembedder.Apply(capture);
    EXPECT_TRUE(AreNear(added, tapered(behind), 1e-4));
    EXPECT_EQ(deembedder.Filter().kernelLength, 16 * 8191);
}

// Each of three repetitions is a period of its own, whatever stands beside it; the samples behind them are zero.
TEST(DeEmbeddingFilter, ConvolvesEachRepetition)
{
    Deembedder deembedder(FixtureFile());
    const std::size_t period = 2032;  // 127 UI of 16 samples
    const auto record = RandomValues(3 * period + 2, 5);
    const auto result = deembedder.Apply(record);
    const DeEmbeddingFilter& filter = deembedder.Filter();
    ASSERT_EQ(filter.kernelLength, static_cast<int>(period));
    const std::span<const double> taps(filter.kernel, period);
    for (const std::size_t repetition : {0, 1, 2})
        for (const std::size_t k : {std::size_t{0}, std::size_t{777}, period - 1}) {
            const std::span<const double> one(record.data() + repetition * period, period);
            // 1e-12: the transforms of 2032 values of 1 with taps of 2 in all.
            EXPECT_NEAR(result[repetition * period + k], DirectConvolutionAt(one, taps, k), 1e-12);
        }
    EXPECT_EQ(result[3 * period], 0.0);
    EXPECT_EQ(result[3 * period + 1], 0.0);
}

TEST(DeEmbeddingFilter, ReadsTheFileAtEveryApply)
{
    Deembedder deembedder("# Hz S RI R 50\n1e9 0 0 .5 0 0 0 0 0\n90e9 0 0 .5 0 0 0 0 0\n");
    const auto gain = [&] { return deembedder.Apply(Constant(1.0, 2032))[0]; };
    EXPECT_NEAR(gain(), 2.0, 1e-12);
    EXPECT_FALSE(deembedder.parameters.IsDirty());
    // The same name with another content, then another name: without the dirty flag.
    (void)deembedder.folder.Write("fixture.s2p", "# Hz S RI R 50\n1e9 0 0 .25 0 0 0 0 0\n90e9 0 0 .25 0 0 0 0 0\n");
    EXPECT_NEAR(gain(), 4.0, 1e-12);
    deembedder.parameters.sparamFileName =
        deembedder.folder.Write("b.s21", "1e9,0,3.14159265358979\n9e10,0,3.14159265358979\n").string();
    EXPECT_NEAR(gain(), -1.0, 1e-12);
    // Sizes are taken anew only from dirty parameters.
    deembedder.config.samplesPerUi = 8;
    deembedder.config.samplesPerPattern = 8 * 127;
    EXPECT_EQ(deembedder.Apply(Constant(1.0, 2032)).size(), 2032U);
    EXPECT_EQ(deembedder.Filter().kernelLength, 2032);
    deembedder.parameters.SetDirty();
    deembedder.Filter().Prepare();
    EXPECT_TRUE(deembedder.parameters.IsDirty());
    EXPECT_EQ(deembedder.Filter().kernelLength, 1016);
    // The inherited Prepare does nothing.
    deembedder.parameters.sparamFileName = "nowhere.s2p";
    deembedder.Filter().Prepare(nullptr);
}

TEST(DeEmbeddingFilter, PreservesTheNoiseOrSwitchesThatOff)
{
    const auto rms = [](const DeEmbeddingFilter& filter) {
        return std::sqrt(std::inner_product(filter.kernel, filter.kernel + filter.kernelLength, filter.kernel, 0.0));
    };
    Deembedder deembedder(FixtureFile());
    deembedder.Filter().Prepare();
    const double plain = rms(deembedder.Filter());
    deembedder.parameters.preserveNoise = true;
    deembedder.Filter().Prepare();
    EXPECT_GT(rms(deembedder.Filter()), 2.0 * plain);
    EXPECT_TRUE(deembedder.parameters.preserveNoise && deembedder.parameters.preserveNoiseApplied);
    EXPECT_EQ(deembedder.parameters.frequencyGrid, nullptr);
    // Nothing lies above the corner.
    deembedder.parameters.noiseCornerFrequency = 400e9;
    deembedder.Filter().Prepare();
    EXPECT_EQ(rms(deembedder.Filter()), plain);
    EXPECT_FALSE(deembedder.parameters.preserveNoise || deembedder.parameters.preserveNoiseApplied);
    EXPECT_EQ(deembedder.parameters.frequencyGrid, nullptr);
}

TEST(DeEmbeddingFilter, SharesItsKernelWithCopies)
{
    Deembedder deembedder(FixtureFile());
    deembedder.Filter().Prepare();
    std::optional<DeEmbeddingFilter> copy(deembedder.Filter());
    DeEmbeddingFilter assigned(static_cast<DeviceConfiguration*>(nullptr));
    assigned = *copy;
    EXPECT_EQ(assigned.kernel, deembedder.Filter().kernel);
    EXPECT_EQ(assigned.kernelLength, 2032);
    EXPECT_EQ(assigned.parameters, &deembedder.parameters);
    copy.reset();
    deembedder.filter.reset();
    EXPECT_TRUE(std::isfinite(assigned.kernel[2031]));
}

TEST(DeEmbeddingErrors, NameWhatIsWrongAndChangeNothing)
{
    Deembedder deembedder(FixtureFile());
    DeEmbeddingFilter& filter = deembedder.Filter();
    filter.Prepare();
    const double* const kernel = filter.kernel;
    Record record(Constant(1.0, 2032));
    const auto apply = [&] { ::operator delete(filter.Apply(&record)); };

    deembedder.parameters.sparamFileName = "nowhere.s2p";
    deembedder.parameters.preserveNoise = true;
    deembedder.config.samplesPerUi = 4;
    record.sampleCount = 507;
    ExpectRefused(apply, "DeEmbeddingFilter: sampleCount is 507; expected at least one repetition of 508 samples");
    record.sampleCount = 2032;
    ExpectRefused(
        apply,
        "SParameter::ConvertSparamFilterDataToImpulseResponse: data is empty; expected two frequencies or more "
        "(file missing or unreadable?)");
    EXPECT_TRUE(deembedder.parameters.IsDirty() && deembedder.parameters.preserveNoise);
    EXPECT_EQ(deembedder.parameters.samplesPerUi, 16);
    EXPECT_EQ(deembedder.parameters.frequencyGrid, nullptr);
    EXPECT_EQ(filter.kernel, kernel);

    deembedder.config.patternLengthUi = 0;
    ExpectRefused(apply, "DeEmbeddingFilter: samplesPerUi * patternLengthUi is 0; expected at least 1 sample");
    deembedder.config.patternLengthUi = 1 << 30;
    ExpectRefused(apply,
                  "DeEmbeddingFilter: samplesPerUi * patternLengthUi is 4294967296; expected at most 2147483647");
    ExpectRefused([&] { filter.Apply(nullptr); }, "DeEmbeddingFilter: signal is null; expected a captured waveform");
    ExpectRefused([] { DeEmbeddingFilter none(static_cast<DeEmbeddingParameters*>(nullptr)); },
                  "DeEmbeddingFilter: parameters is null; expected a parameters object");
    DeEmbeddingFilter bare(&deembedder.config);
    ExpectRefused([&] { bare.Prepare(); }, "DeEmbeddingFilter: parameters is null; expected a parameters object");
    DeEmbeddingParameters alone;
    DeEmbeddingFilter lonely(&alone);
    const std::string noConfiguration =
        "DeEmbeddingFilter: configuration is null; expected the device configuration, which holds the symbol rate";
    ExpectRefused([&] { lonely.Prepare(); }, noConfiguration);
    ExpectRefused([&] { lonely.Apply(&record); }, noConfiguration);
}

}  // namespace
