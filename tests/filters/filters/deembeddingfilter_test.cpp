#include "filters/filters/deembeddingfilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <stdexcept>

#include "support/expectations.h"
#include "support/failures.h"
#include "support/files.h"
#include "support/filterrig.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Data = std::map<double, Complex>;

Data Load(const std::string& path, PortOrderS4P order = PORT_ORDER_12_34)
{
    DeEmbeddingParameters parameters;
    return DeEmbeddingFilter(&parameters).loadSparamFile(path, order);
}

// A fixture that has the same gain at every frequency.
std::string FlatFile(const std::string& gain)
{
    const std::string values = " 0 0 " + gain + " 0 0 0 0 0\n";
    return "# Hz S RI R 50\n1e9" + values + "90e9" + values;
}

// On 127 UI and a file in a folder of the test.
struct Deembedder : FilterRig<DeEmbeddingFilter, DeEmbeddingParameters> {
    Deembedder() : FilterRig(Configuration(16, 127), Later())
    {
        config.samplesPerPattern = 16 * 127;
        std::fill(std::begin(config.patternLocked), std::end(config.patternLocked), false);
        parameters.sparamFileName = folder.Write("fixture.s2p", FlatFile("0.5")).string();
        parameters.preserveNoise = false;
    }

    TestFolder folder;
};

TEST(DeEmbeddingParameters, IgnoreTheFirstThirdAndTwelfthArgument)
{
    const DeEmbeddingParameters given(kNan, 2, -3, false, 5, 6, false, 8.0, "nine", PORT_ORDER_13_24, 11, kNan);
    EXPECT_FALSE(given.conversionFlag || given.preserveNoise);
    EXPECT_EQ(given.samplesPerPattern, 2);
    EXPECT_EQ(given.conversionParameterA, 5);
    EXPECT_EQ(given.conversionParameterB, 6);
    EXPECT_EQ(given.noiseCornerFrequency, 8.0);
    EXPECT_EQ(given.noiseSecondParameter, 0.0);
    EXPECT_EQ(given.sparamFileName, "nine");
    EXPECT_EQ(given.portOrder, PORT_ORDER_13_24);
    EXPECT_EQ(given.samplesPerUi, 11);
    const DeEmbeddingParameters defaults;
    EXPECT_TRUE(defaults.preserveNoise);
    EXPECT_EQ(defaults.conversionParameterA, 30);
}

TEST(DeEmbeddingReader, ReadsEveryKindOfFileByItsRules)
{
    const double six = std::pow(10.0, -6.0 / 20.0);
    // Volatile, so that the C library that the filter calls works out these too: the compiler's cosine is exact, and not
    // every library's is where it is almost zero.
    const volatile double right = -90 * 0.017453292519943295;
    const volatile double radians = 1.5708;
    const Complex s21(0.5 * std::cos(right), 0.5 * std::sin(right));
    const std::string zeros = "0 0 0 0 0 0 0 0\n";
    const struct {
        const char* label;
        const char* name;
        std::string text;
        Data expected;
    } cases[] = {
        {"S21", "a.s2p", "! c\n# GHz S MA R 50\n1 0.9 0 0.5 -90 0.5 -90 0.9 0", {{1e9, s21}}},
        {"blank lines, CRLF, blanks, tabs, lower case",
         "a.s2p",
         "\r\n \t\r\n#  ghz  s  ma  r  50\r\n\n1\t0.9 0  0.5 -90 0.5 -90 0.9 0\r\n",
         {{1e9, s21}}},
        {"DC without a sign", "a.s1p", "# kHz S RI\n4 -3 4\n8 1 1", {{0.0, 5.0}, {4e3, {-3, 4}}, {8e3, {1, 1}}}},
        {"no DC a bit off", "a.s1p", "# Hz S RI\n1 2 0\n2.0000001 2 0", {{1, 2.0}, {2.0000001, 2.0}}},
        {"DC stays", "a.s1p", "# Hz S RI\n0 7 0\n1 2 0\n2 2 0", {{0, 7.0}, {1, 2.0}, {2, 2.0}}},
        {"ten tokens", "a.s2p", "# GHz S RI\n1 0 0 3 4 0 0 0 0 ", {{0.0, {3, 4}}}},
        {"tokens that are not needed", "a.s2p", "# Hz S RI\n7 a b 3 4 c", {{0, {3, 4}}}},
        {"no option line",
         "a.s2p",
         "1 0 0 3 4 0 0 0 0\n# GHz S RI\n2 0 0 5 6 0 0 0 0",
         {{-1.0, {3, 4}}, {2e9, {5, 6}}}},
        {"unknown unit is Hz, unknown format is the one before",
         "a.s1p",
         "# THz S dB\n5 20 0\n# MHz S XY\n5 20 0",
         {{5, 10.0}, {5e6, 10.0}}},
        {"last of two, more tokens than one port needs", "a.s1p", "1 1 2 0 0 0 0 0 0\n1 3 4 x y", {{-1, {3, 4}}}},
        {"table in radians",
         "a.s21",
         "1e9,-6,1.5708\n\n3e9,-6\nlonely\n4e9, 0 , 0 ,rest\n",
         {{1e9, {six * std::cos(radians), six * std::sin(radians)}}, {3e9, six}, {4e9, 1.0}}},
        {"a matrix short",
         "a.s4p",
         "# Hz S RI\n1 " + zeros + zeros + "\t1 0 0 0 0 0 0 0\n" + zeros + "2 " + zeros + zeros,
         {{1, 0.5}}},
    };
    const TestFolder folder;
    for (const auto& [label, name, text, expected] : cases)
        EXPECT_EQ(Load(folder.Write(name, text).string()), expected) << label;
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
        {"a.s2p", "# GHz S RI\n1 0 0 3 4z5 0 0 0 0\n1 0 0 z 4 0 0 0 0", "invalid stod argument"},
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
    // The first token of a pair is checked first, and whether it is a number before its range.
    for (const char* text : {"1e400 1 2", "# Hz S RI\n1 1e-310 x", "# Hz S MA\n1 0 -1e999"}) {
        const std::string file = folder.Write("b.s1p", text).string();
        EXPECT_EQ(FailureOf<std::out_of_range>([&] { Load(file); }), "stod argument out of range");
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
    for (const auto order : {PORT_ORDER_12_34, PORT_ORDER_13_24}) {
        const int ports[] = {0, order == PORT_ORDER_12_34 ? 1 : 2, order == PORT_ORDER_12_34 ? 2 : 1, 3};
        std::vector<Complex> exchanged = values;
        for (std::size_t row = 0; row + 4 < values.size() && order != PORT_ORDER_12_34; row += 4)
            std::swap(exchanged[row + 1], exchanged[row + 2]);
        Data direct = {{10.0, 99.0}};
        filter.convertFromSingleEndedToMixedMode(direct, exchanged, {10.0, 11.0, 12.0, 13.0}, order);
        const Data read = Load(file, order);
        ASSERT_EQ(read.size(), 3U);
        EXPECT_EQ(direct, read);
        for (int k = 0; k < 3; ++k) {
            const auto s = [&](int to, int from) { return values[16 * k + 4 * ports[to - 1] + ports[from - 1]]; };
            const Complex expected = 0.5 * (s(3, 1) - s(3, 2) - s(4, 1) + s(4, 2));
            EXPECT_LT(std::abs(read.at(10 + k) - expected), 1e-15) << "order " << order << ", frequency " << k;
        }
    }
    Data none;
    const auto convertAtNan = [&] {
        filter.convertFromSingleEndedToMixedMode(none, values, {1.0, kNan}, PORT_ORDER_12_34);
    };
    ExpectRefused(convertAtNan, "DeEmbeddingFilter: frequency is nan; expected a number");
    EXPECT_TRUE(none.empty());
}

TEST(DeEmbeddingNumbers, AreInDegreesAndDecibels)
{
    DeEmbeddingParameters parameters;
    DeEmbeddingFilter filter(&parameters);
    const double angle = 30 * 0.017453292519943295;
    const Complex unit(std::cos(angle), std::sin(angle));
    EXPECT_EQ(filter.ReadMA(20.0, 30.0, true), 10.0 * unit);
    EXPECT_EQ(filter.ReadAmplitude(AMPLITUDE_DB, 20.0, 30.0), 10.0 * unit);
    EXPECT_EQ(filter.ReadAmplitude(AMPLITUDE_MA, 2.0, 30.0), 2.0 * unit);
    for (const int format : {2, 3, -1})
        EXPECT_EQ(filter.ReadAmplitude(static_cast<AmplitudeFormat>(format), 2.0, 30.0), Complex(2.0, 30.0));
}

TEST(DeEmbeddingFilter, TakesItsSizesFromTheConfiguration)
{
    DeviceConfiguration config = Configuration(16, 4);
    config.samplesPerPattern = 1000;  // taken as it is, not multiplied
    config.uiDuration = 10.0;
    config.sampleSpacing = 3.0;
    DeEmbeddingParameters parameters(&config);
    const DeEmbeddingFilter whole(&parameters);
    EXPECT_EQ(parameters.samplesPerPattern, 1000);
    EXPECT_EQ(parameters.samplesPerUi, 16);
    config.useFractionalSampling = true;
    const DeEmbeddingFilter fractional(&parameters);
    EXPECT_EQ(parameters.samplesPerPattern, 13);
    EXPECT_EQ(parameters.samplesPerUi, 3);
}

TEST(DeEmbeddingFilter, ReadsTheFileAtEveryApply)
{
    Deembedder deembedder;
    // The sample past the last repetition is zero.
    const auto expected = [](double value) {
        std::vector<double> samples = Constant(value, 4064);  // two of 2032
        samples.push_back(0.0);
        return samples;
    };
    EXPECT_TRUE(AreNear(deembedder.Apply(Constant(1.0, 4065)), expected(2.0), 1e-12));
    EXPECT_FALSE(deembedder.parameters.IsDirty());
    (void)deembedder.folder.Write("fixture.s2p", FlatFile("-0.25"));  // without the dirty flag
    deembedder.parameters.conversionFlag = false;
    EXPECT_TRUE(AreNear(deembedder.Apply(Constant(1.0, 4065)), expected(-0.25), 1e-12));
    // Sizes are taken again only from dirty parameters.
    deembedder.config.samplesPerUi = 8;
    deembedder.config.samplesPerPattern = 8 * 127;
    deembedder.Filter().Prepare();
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
    Deembedder deembedder;
    const auto rms = [&filter = deembedder.Filter()] {
        filter.Prepare();
        return std::sqrt(std::inner_product(filter.kernel, filter.kernel + filter.kernelLength, filter.kernel, 0.0));
    };
    const double plain = rms();
    deembedder.parameters.preserveNoise = true;
    double hosts = 1.0;
    deembedder.parameters.frequencyGrid = &hosts;  // not released, but not left behind either
    EXPECT_GT(rms(), 2.0 * plain);
    EXPECT_EQ(deembedder.parameters.frequencyGrid, nullptr);
    EXPECT_TRUE(deembedder.parameters.preserveNoise && deembedder.parameters.preserveNoiseApplied);
    // Nothing lies above the corner.
    deembedder.parameters.noiseCornerFrequency = 400e9;
    EXPECT_EQ(rms(), plain);
    EXPECT_FALSE(deembedder.parameters.preserveNoise || deembedder.parameters.preserveNoiseApplied);
}

TEST(DeEmbeddingErrors, NameWhatIsWrongAndChangeNothing)
{
    Deembedder deembedder;
    deembedder.parameters.sparamFileName = "nowhere.s2p";
    deembedder.parameters.preserveNoise = true;
    deembedder.Filter();
    deembedder.config.samplesPerUi = 4;  // not taken over without a kernel
    ExpectRefused([&] { deembedder.Apply(Constant(1.0, 2032)); },
                  "DeEmbeddingFilter: data is empty; expected two frequencies or more (file missing or unreadable?)");
    EXPECT_TRUE(deembedder.parameters.IsDirty() && deembedder.parameters.preserveNoise);
    EXPECT_EQ(deembedder.parameters.samplesPerUi, 16);

    const std::string noParameters = "DeEmbeddingFilter: parameters is null; expected a parameters object";
    ExpectRefused([] { DeEmbeddingFilter none(static_cast<DeEmbeddingParameters*>(nullptr)); }, noParameters);
    DeEmbeddingFilter bare(&deembedder.config);
    ExpectRefused([&] { bare.Prepare(); }, noParameters);
}

}  // namespace
