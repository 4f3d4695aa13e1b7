#include "filters/filters/ffefilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <optional>

#include "filters/filters/patternlockfailed.h"
#include "framework/gaussianfilter.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Set = std::function<void(FFEFilterParameters&)>;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// A configuration, its parameters and the filter, which hold on to each other.
struct Equaliser {
    explicit Equaliser(DeviceConfiguration configuration, const Set& set = {})
        : config(std::move(configuration)), parameters(&config)
    {
        parameters.tapsPerUi = 1;
        if (set)
            set(parameters);
        filter.emplace(&parameters);
    }
    void Prepare(const std::vector<double>& samples)
    {
        Record record(samples);
        filter->Prepare(&record);
    }
    std::vector<double> Apply(const std::vector<double>& samples)
    {
        Record record(samples);
        return Take(filter->Apply(&record), samples.size());
    }
    std::vector<double> Kernel(std::size_t count) const { return {filter->kernel, filter->kernel + count}; }

    DeviceConfiguration config;
    FFEFilterParameters parameters;
    std::optional<FFEFilter> filter;
};

Set Manual(const std::vector<double>& taps, int tapsPerUi = 1)
{
    return [=](FFEFilterParameters& p) {
        p.useManualTaps = true;
        p.taps = taps;
        p.numberOfTaps = static_cast<int>(taps.size());
        p.tapsPerUi = tapsPerUi;
    };
}

Set Automatic(int numberOfTaps, int mainCursorPosition = 0)
{
    return [=](FFEFilterParameters& p) {
        p.numberOfTaps = numberOfTaps;
        p.mainCursorPosition = mainCursorPosition;
    };
}

Set Tdecq(int numberOfTaps)
{
    return [=](FFEFilterParameters& p) {
        p.numberOfTaps = numberOfTaps;
        p.useTdecqEqualizer = true;
    };
}

std::vector<double> Held(const std::vector<double>& values, double samplesPerUi)
{
    std::vector<double> samples(static_cast<std::size_t>(static_cast<double>(values.size()) * samplesPerUi));
    for (std::size_t m = 0; m < samples.size(); ++m)
        samples[m] = values[static_cast<std::size_t>(static_cast<double>(m) / samplesPerUi)];
    return samples;
}

// Evenly from -0.2 to 0.2.
std::vector<double> Voltages(const std::vector<int>& levels)
{
    const int highest = *std::max_element(levels.begin(), levels.end());
    std::vector<double> values;
    for (const int level : levels)
        values.push_back(0.4 * level / highest - 0.2);
    return values;
}

// PRBS13Q at 26.5625 GBd behind a front end of 11 GHz with noise of 1 % of its rms.
std::vector<double> Pam4Capture(double samplesPerUi, double bandwidthGHz = 11.0, double noise = 0.0015)
{
    return WithNoise(
        ThroughFrontEnd(Held(Voltages(Prbs13qLevels()), samplesPerUi), 26.5625 * samplesPerUi, bandwidthGHz), noise, 3);
}

DeviceConfiguration Pam4(int samplesPerUi, int repetitions = 1)
{
    DeviceConfiguration config = Configuration(samplesPerUi, 8191);
    config.signalCoding = SIGNAL_CODING_PAM4;
    config.patternRepeats = repetitions;
    config.multiplePatternRecord = repetitions > 1;
    config.patternSymbols = GraySymbols(Prbs13qLevels());
    return config;
}

DeviceConfiguration Nrz(const std::string& symbols, int samplesPerUi)
{
    DeviceConfiguration config = Configuration(samplesPerUi, static_cast<int>(symbols.size()));
    config.signalCoding = SIGNAL_CODING_NRZ;
    config.patternSymbols = symbols;
    return config;
}

const std::string kBits = "0000001000011000101001111010001110010010110111011001101010111111";

std::vector<int> LevelsOf(const std::string& symbols)
{
    std::vector<int> levels;
    for (const char symbol : symbols)
        levels.push_back(symbol - '0');
    return levels;
}

// The lowest eye at its best phase: smallest sample above level 0 minus the largest at it. Negative: closed.
double Opening(const std::vector<double>& samples, const std::vector<int>& levels, double samplesPerUi)
{
    double best = -kInfinity;
    for (std::size_t shift = 0; shift < samples.size(); ++shift) {
        double low = -kInfinity;
        double high = kInfinity;
        for (std::size_t k = 0; k < levels.size(); ++k) {
            const auto place = static_cast<std::size_t>(static_cast<double>(k) * samplesPerUi);
            const double sample = samples[(shift + place) % samples.size()];
            if (levels[k] == 0)
                low = std::max(low, sample);
            else
                high = std::min(high, sample);
        }
        best = std::max(best, high - low);
    }
    return best;
}

TEST(FFEFilterParameters, TakeWhatTheirConstructorsSay)
{
    DeviceConfiguration config;
    config.withoutGrayCoding = true;
    const FFEFilterParameters given(8, {0.1, 0.2}, 2, 4, SIGNAL_CODING_PAM3, true, true, true);
    EXPECT_EQ(given.samplesPerUi, 8);
    EXPECT_EQ(given.taps, (std::vector<double>{0.1, 0.2}));
    EXPECT_EQ(given.numberOfTaps, 2);
    EXPECT_EQ(given.tapsPerUi, 4);
    EXPECT_EQ(given.mainCursorPosition, 4);
    EXPECT_EQ(given.signalCoding, SIGNAL_CODING_PAM3);
    EXPECT_TRUE(given.useManualTaps && given.withoutGrayCoding && given.useTdecqEqualizer);
    for (const FFEFilterParameters& p : {FFEFilterParameters(), FFEFilterParameters(&config), given}) {
        EXPECT_EQ(p.tapResolution, 1);
        EXPECT_FALSE(p.spareFlag || p.quantizeTaps || p.useUserPattern || p.prepared);
        EXPECT_EQ(p.gaussianFilter, nullptr);
        EXPECT_EQ(p.gaussianFilterLength, 0);
        EXPECT_TRUE(p.appliedTaps.empty() && p.patternSymbols.empty());
    }
    EXPECT_TRUE(FFEFilterParameters(&config).withoutGrayCoding);
    EXPECT_EQ(FFEFilterParameters().signalCoding, SIGNAL_CODING_UNKNOWN);
}

TEST(FFEFilterConstructor, RefreshesFromTheConfiguration)
{
    DeviceConfiguration config = Nrz("0123", 7);
    config.useUserPattern = true;
    config.withoutGrayCoding = true;
    std::vector<double> lowPass = {1.0, 2.0};
    config.gaussianFilter = lowPass.data();
    config.gaussianFilterLength = 2;
    const struct {
        bool fractional;
        int samplesPerUi;
    } cases[] = {{false, 7}, {true, 3}};
    for (const auto& [fractional, samplesPerUi] : cases) {
        config.useFractionalSampling = fractional;
        config.uiDuration = 10.0;
        config.sampleSpacing = 3.0;
        const Equaliser equaliser(config);
        const FFEFilterParameters& p = equaliser.parameters;
        EXPECT_EQ(p.samplesPerUi, samplesPerUi);
        EXPECT_EQ(p.signalCoding, SIGNAL_CODING_NRZ);
        EXPECT_EQ(p.patternSymbols, "0123");
        EXPECT_TRUE(p.useUserPattern && p.withoutGrayCoding);
        EXPECT_EQ(p.gaussianFilter, lowPass.data());
        EXPECT_EQ(p.gaussianFilterLength, 2);
        EXPECT_TRUE(equaliser.filter->notPrepared && equaliser.filter->flag2);
        EXPECT_EQ(equaliser.filter->kernel, nullptr);
    }
    const FFEFilter unbound(&config);
    EXPECT_TRUE(unbound.notPrepared && unbound.flag2);
    EXPECT_EQ(unbound.parameters, nullptr);
    config.patternLocked[0] = false;
    FFEFilterParameters unlocked(&config);
    EXPECT_THROW(FFEFilter{&unlocked}, PatternLockFailed);
}

TEST(FFEFilterManualTaps, StandAtTheirSpacing)
{
    const struct {
        const char* label;
        std::vector<double> taps;
        int numberOfTaps, tapsPerUi;
        std::vector<std::pair<std::size_t, double>> kernel;  // all else is zero
        std::size_t length;
    } cases[] = {{"one a UI", {1, 2, 3}, 3, 1, {{0, 1}, {8, 2}, {16, 3}}, 24},
                 {"two a UI", {1, 2, 3}, 3, 2, {{0, 1}, {4, 2}, {8, 3}}, 12},
                 {"three a UI", {1, 2, 3}, 3, 3, {{0, 1}, {2, 2}, {4, 3}}, 6},
                 {"padded", {1}, 3, 1, {{0, 1}}, 24},
                 {"cut", {1, 2, 3}, 2, 1, {{0, 1}, {8, 2}}, 16}};
    const auto record = RandomValues(3 * 512 + 2, 9);
    for (const auto& [label, taps, numberOfTaps, tapsPerUi, places, length] : cases) {
        SCOPED_TRACE(label);
        Equaliser equaliser(Nrz(kBits, 8), Manual(taps, tapsPerUi));
        equaliser.parameters.numberOfTaps = numberOfTaps;
        const auto output = equaliser.Apply(record);
        std::vector<double> kernel(length, 0.0);
        for (const auto& [place, value] : places)
            kernel[place] = value;
        EXPECT_EQ(equaliser.Kernel(length), kernel);
        EXPECT_EQ(equaliser.parameters.taps.size(), static_cast<std::size_t>(numberOfTaps));
        EXPECT_EQ(equaliser.parameters.appliedTaps, equaliser.parameters.taps);
        EXPECT_TRUE(equaliser.parameters.prepared);
        EXPECT_FALSE(equaliser.filter->notPrepared || equaliser.parameters.IsDirty());
        for (std::size_t s = 0; s < 3; ++s) {
            const std::span<const double> piece(record.data() + s * 512, 512);
            for (const std::size_t k : {0U, 7U, 300U})
                EXPECT_NEAR(output[s * 512 + k], DirectConvolutionAt(piece, kernel, k), 1e-14);
        }
        EXPECT_EQ(output[1536], 0.0);
        EXPECT_EQ(output[1537], 0.0);
    }
}

TEST(FFEFilterQuantisedTaps, AreReportedButNeverApplied)
{
    const std::vector<double> exact = {-0.1, 0.8, -0.1};
    const std::vector<double> steps = {-6.0, 51.0, -6.0};
    Equaliser equaliser(Nrz(kBits, 8), Manual(exact));
    FFEFilterParameters& p = equaliser.parameters;
    p.quantizeTaps = true;
    p.tapResolution = 64;
    const auto record = RandomValues(512, 1);
    for (int again = 0; again < 3; ++again) {
        equaliser.Prepare(record);
        EXPECT_EQ(p.taps, steps) << again;
        EXPECT_EQ(p.appliedTaps, exact) << again;
        EXPECT_EQ(equaliser.filter->kernel[8], 0.8) << again;
    }
    // Another size resizes what is applied; without quantising the exact taps come back.
    p.numberOfTaps = 4;
    equaliser.Prepare(record);
    EXPECT_EQ(p.appliedTaps, (std::vector<double>{-0.1, 0.8, -0.1, 0.0}));
    EXPECT_EQ(p.taps, (std::vector<double>{-6.0, 51.0, -6.0, 0.0}));
    p.quantizeTaps = false;
    equaliser.Prepare(record);
    EXPECT_EQ(p.taps, (std::vector<double>{-0.1, 0.8, -0.1, 0.0}));
    // What a user enters in their place counts again.
    p.quantizeTaps = true;
    p.taps = {0.0, 2.0, -2.0, 0.0};
    equaliser.Prepare(record);
    EXPECT_EQ(p.taps, (std::vector<double>{0.0, 32.0, -32.0, 0.0}));
    EXPECT_EQ(p.appliedTaps, (std::vector<double>{0.0, 2.0, -2.0, 0.0}));

    FFEFilterParameters plain(8, {0.5, -1.5}, 2, 1, SIGNAL_CODING_NRZ, true, false, false);
    EXPECT_EQ(Take(equaliser.filter->GetOptimizedTaps(&plain), 2), (std::vector<double>{0.25, -0.75}));
    plain.taps.clear();
    EXPECT_EQ(equaliser.filter->GetOptimizedTaps(&plain), nullptr);
}

// PAM4 behind 11 GHz, 5 taps: what the search and each fixed main cursor leave of the reference.
TEST(FFEFilterAutomaticTaps, LeaveTheLeastError)
{
    const struct {
        int samplesPerUi;
        double residual[6];  // search, then main cursor 1 to 5
    } cases[] = {{8, {0.2716, 0.2567, 0.2502, 0.2502, 0.2540, 0.2906}},
                 {16, {0.2648, 0.2574, 0.2371, 0.2356, 0.2378, 0.2602}}};
    for (const auto& [samplesPerUi, residuals] : cases) {
        const auto capture = Pam4Capture(samplesPerUi);
        for (int cursor = 0; cursor <= 5; ++cursor) {
            SCOPED_TRACE(std::to_string(samplesPerUi) + " samples per UI, main cursor " + std::to_string(cursor));
            Equaliser equaliser(Pam4(samplesPerUi), Automatic(5, cursor));
            equaliser.Prepare(capture);
            // Five times the last digit of the figures: another noise.
            EXPECT_NEAR(equaliser.filter->residualError, residuals[cursor], 5e-4);
            const auto& taps = equaliser.parameters.taps;
            ASSERT_EQ(taps.size(), 5U);
            EXPECT_EQ(equaliser.parameters.appliedTaps, taps);
            if (cursor > 0) {
                const auto largest = std::max_element(taps.begin(), taps.end(),
                                                      [](double a, double b) { return std::abs(a) < std::abs(b); });
                EXPECT_EQ(largest - taps.begin(), cursor - 1);
            }
        }
    }
}

TEST(FFEFilterAutomaticTaps, AreTheSameForSeveralRepetitionsAndAnInvertedCapture)
{
    const auto capture = Pam4Capture(8);
    Equaliser one(Pam4(8), Automatic(5));
    const auto expected = one.Apply(capture);
    DeviceConfiguration tiled = Pam4(8, 3);
    tiled.multiplePatternRecord = false;  // the whole record is searched, against a reference tiled three times
    DeviceConfiguration detected = Pam4(8);
    detected.patternSymbols.clear();
    DeviceConfiguration given = Pam4(8);
    given.useUserPattern = true;
    const struct {
        const char* label;
        DeviceConfiguration config;
        int repetitions;
        double sign;
    } cases[] = {{"three, cut to one", Pam4(8, 3), 3, 1.0},
                 {"three at once", tiled, 3, 1.0},
                 {"no text", detected, 1, 1.0},
                 {"text given", given, 1, 1.0},
                 {"inverted, text given", given, 1, -1.0}};
    for (const auto& [label, config, repetitions, sign] : cases) {
        SCOPED_TRACE(label);
        std::vector<double> record = Tiled(capture, static_cast<std::size_t>(repetitions));
        for (double& sample : record)
            sample *= sign;
        Equaliser equaliser(config, Automatic(5));
        const auto output = equaliser.Apply(record);
        EXPECT_TRUE(AreNear(equaliser.parameters.taps, one.parameters.taps, 1e-12));
        for (std::size_t k = 0; k < output.size(); k += 997)
            EXPECT_NEAR(output[k], sign * expected[k % expected.size()], 1e-12);
    }
}

// Two and three levels from their text, whole and fractional sampling: an eye closed by echoes opens.
TEST(FFEFilterAutomaticTaps, OpenTheEyeOfEveryCoding)
{
    std::string ternary;
    for (std::size_t k = 0; k < 121; ++k)
        ternary += static_cast<char>('0' + (k * k / 3 + k / 5 + 2 * (k % 7)) % 3);
    DeviceConfiguration pam3 = Nrz(ternary, 16);
    pam3.signalCoding = SIGNAL_CODING_PAM3;
    DeviceConfiguration fractional = Nrz(kBits, 3);
    fractional.useFractionalSampling = true;
    fractional.uiDuration = 10.0;
    fractional.sampleSpacing = 3.0;
    const struct {
        const char* label;
        DeviceConfiguration config;
        double samplesPerUi;
    } cases[] = {{"NRZ", Nrz(kBits, 16), 16.0}, {"PAM3", pam3, 16.0}, {"NRZ, fractional", fractional, 10.0 / 3.0}};
    for (const auto& [label, config, samplesPerUi] : cases) {
        SCOPED_TRACE(label);
        const auto levels = LevelsOf(config.patternSymbols);
        const std::vector<double> sent = Voltages(levels);
        std::vector<double> received(sent.size());
        for (std::size_t k = 0; k < sent.size(); ++k)
            received[k] = sent[k] + 0.6 * sent[(k + sent.size() - 1) % sent.size()] -
                          0.5 * sent[(k + sent.size() - 2) % sent.size()];
        const auto capture = ThroughFrontEnd(Held(received, samplesPerUi), 26.5625 * samplesPerUi, 20.0);
        Equaliser equaliser(config, Automatic(11));
        const auto output = equaliser.Apply(capture);
        EXPECT_LT(Opening(capture, levels, samplesPerUi), 0.0);
        EXPECT_GT(Opening(output, levels, samplesPerUi), 0.1);
    }
}

TEST(FFEFilterTdecq, PublishesItsSymbolSpacedTaps)
{
    const auto capture = Pam4Capture(8, 13.28125, 0.0);
    Equaliser equaliser(Pam4(8), Tdecq(5));
    equaliser.parameters.tapsPerUi = 2;
    auto* hosts = static_cast<double*>(::operator new(sizeof(double)));
    equaliser.config.tdecqEqualizer = hosts;  // released when replaced
    equaliser.Prepare(capture);
    const std::vector<double> taps = equaliser.parameters.appliedTaps;
    ASSERT_EQ(taps.size(), 5U);
    EXPECT_NEAR(std::accumulate(taps.begin(), taps.end(), 0.0), 1.0, 1e-12);
    ASSERT_EQ(equaliser.config.tdecqEqualizerLength, 40);
    const double sum = std::accumulate(taps.begin(), taps.end(), 0.0);
    for (std::size_t k = 0; k < 40; ++k)
        EXPECT_EQ(equaliser.config.tdecqEqualizer[k], k % 8 == 0 ? taps[k / 8] / sum : 0.0) << k;
    EXPECT_EQ(equaliser.Kernel(40),
              std::vector<double>(equaliser.config.tdecqEqualizer, equaliser.config.tdecqEqualizer + 40));
    EXPECT_EQ(equaliser.filter->kernel[capture.size() - 1], 0.0);

    // A copy of the configuration shares the array beyond the next build; manual taps go the same way, with gain 1.
    const DeviceConfiguration copy = equaliser.config;
    Manual({0.0, 2.0, 0.0})(equaliser.parameters);
    equaliser.parameters.SetDirty();
    const auto output = equaliser.Apply(capture);
    EXPECT_EQ(copy.tdecqEqualizerLength, 40);
    EXPECT_EQ(copy.tdecqEqualizer[0], taps[0] / sum);
    EXPECT_EQ(equaliser.config.tdecqEqualizerLength, 24);
    EXPECT_EQ(equaliser.config.tdecqEqualizer[8], 1.0);
    EXPECT_NEAR(output[8], capture[0], 1e-15);
}

TEST(FFEFilterTdecq, FindsTheSameTapsWithAndWithoutGrayCodingAndText)
{
    const auto capture = Pam4Capture(8, 10.0, 0.0);
    Equaliser gray(Pam4(8), Tdecq(5));
    gray.config.useUserPattern = true;
    gray.Prepare(capture);
    Equaliser levels(Pam4(8), Tdecq(5));
    levels.config.useUserPattern = true;
    levels.config.withoutGrayCoding = true;
    levels.config.patternSymbols.clear();
    for (const int level : Prbs13qLevels())
        levels.config.patternSymbols += static_cast<char>('0' + level);
    levels.Prepare(capture);
    EXPECT_TRUE(AreNear(levels.parameters.taps, gray.parameters.taps, 1e-9));
    Equaliser detected(Pam4(8), Tdecq(5));
    detected.Prepare(capture);
    EXPECT_TRUE(AreNear(detected.parameters.taps, gray.parameters.taps, 1e-9));
}

TEST(FFEFilterLifecycle, OwnsTheLowPassItMade)
{
    Equaliser equaliser(Nrz(kBits, 8), Manual({1.0}));
    std::vector<double> hosts = {1.0};
    equaliser.config.gaussianFilter = hosts.data();
    equaliser.config.gaussianFilterLength = 1;
    const auto record = RandomValues(512, 2);
    std::optional<FFEFilterParameters> copy;
    for (int again = 0; again < 3; ++again) {
        equaliser.parameters.SetDirty();
        equaliser.Prepare(record);
        EXPECT_EQ(equaliser.parameters.gaussianFilterLength, 512);
        EXPECT_NE(equaliser.parameters.gaussianFilter, hosts.data());
        if (!copy)
            copy = equaliser.parameters;
    }
    int length = 0;
    const auto expected = Take(
        SystemFramework::GaussianFilter::GetGaussianFilter_A(length, 26.5625, 80.0, 8, 512, false, 0.2, 50.0), 512);
    EXPECT_TRUE(HaveSameBits({copy->gaussianFilter, 512}, expected));
    FFEFilterParameters moved(std::move(*copy));
    copy.reset();
    EXPECT_EQ(moved.gaussianFilter[0], expected[0]);
}

TEST(FFEFilterLifecycle, AppliesTheKernelThatItsCopiesShare)
{
    Equaliser equaliser(Nrz(kBits, 8), Manual({0.5}));
    const auto record = RandomValues(512, 2);
    equaliser.Prepare(record);
    EXPECT_EQ(equaliser.Apply(record)[3], 0.5 * record[3]);
    FFEFilter copy(*equaliser.filter);
    EXPECT_EQ(copy.kernel, equaliser.filter->kernel);
    // A change that is not marked has no effect, one that is has; the copy keeps its kernel.
    equaliser.parameters.taps = {2.0};
    EXPECT_EQ(equaliser.Apply(record)[3], 0.5 * record[3]);
    equaliser.parameters.SetDirty();
    EXPECT_EQ(equaliser.Apply(record)[3], 2.0 * record[3]);
    Record again(record);
    EXPECT_EQ(Take(copy.Apply(&again), 512)[3], 0.5 * record[3]);
}

TEST(FFEFilterErrors, NameWhatIsWrongAndChangeNothing)
{
    const auto capture = ThroughFrontEnd(Held(Voltages(LevelsOf(kBits)), 8.0), 26.5625 * 8, 15.0);
    using Spoil = std::function<void(Equaliser&, std::vector<double>&)>;
    const struct {
        const char* text;
        Spoil spoil;
    } cases[] = {
        {"FFEFilter: tapsPerUi is 0; expected 1 to samplesPerUi, 8",
         [](Equaliser& e, auto&) { e.parameters.tapsPerUi = 0; }},
        {"FFEFilter: tapsPerUi is 9; expected 1 to samplesPerUi, 8",
         [](Equaliser& e, auto&) { e.parameters.tapsPerUi = 9; }},
        {"FFEFilter: samplesPerUi is 0; expected at least 1", [](Equaliser& e, auto&) { e.config.samplesPerUi = 0; }},
        {"FFEFilter: numberOfTaps is -1; expected 0 or more taps",
         [](Equaliser& e, auto&) { e.parameters.numberOfTaps = -1; }},
        {"FFEFilter: numberOfTaps is 67108864; expected at most 1048576 taps",
         [](Equaliser& e, auto&) {
             Manual({1.0})(e.parameters);
             e.parameters.numberOfTaps = 1 << 26;
         }},
        {"FFEFilter: numberOfTaps is 0; expected 1 to 64, the places in one repetition",
         [](Equaliser& e, auto&) { e.parameters.numberOfTaps = 0; }},
        {"FFEFilter: numberOfTaps is 65; expected 1 to 64, the places in one repetition",
         [](Equaliser& e, auto&) { e.parameters.numberOfTaps = 65; }},
        {"FFEFilter: mainCursorPosition is 4; expected at most numberOfTaps, 3",
         [](Equaliser& e, auto&) { e.parameters.mainCursorPosition = 4; }},
        {"FFEFilter: tapResolution is 0; expected at least 1 step",
         [](Equaliser& e, auto&) {
             e.parameters.quantizeTaps = true;
             e.parameters.tapResolution = 0;
         }},
        {"FFEFilter: taps[1] is nan; expected a finite number",
         [](Equaliser& e, auto&) {
             Manual({1.0, kNan, 0.0})(e.parameters);
         }},
        {"FFEFilter: sum of the taps' magnitudes is 0; expected a finite positive number",
         [](Equaliser& e, auto&) {
             Manual({0.0, 0.0})(e.parameters);
             e.parameters.quantizeTaps = true;
         }},
        {"FFEFilter: patternSymbols is empty; expected the pattern's symbols",
         [](Equaliser& e, auto&) { e.config.patternSymbols.clear(); }},
        {"FFEFilter: patternSymbols is empty; expected the pattern's symbols, of which a record of several repetitions "
         "is counted",
         [](Equaliser& e, auto&) {
             e.config.patternSymbols.clear();
             e.config.multiplePatternRecord = true;
         }},
        {"FFEFilter: length of patternSymbols is 8; expected patternLengthUi, 64",
         [](Equaliser& e, auto&) {
             Manual({1.0})(e.parameters);
             e.config.patternSymbols.resize(8);
             e.config.multiplePatternRecord = true;
         }},
        {"PRBS::GetIdealSignalFromPrbsSymbolsD: symbols[63] is '7'; expected '0' to '1'",
         [](Equaliser& e, auto&) { e.config.patternSymbols.back() = '7'; }},
        {"FFEFilter: sampleCount is 511; expected at least one repetition of 512 samples",
         [](Equaliser&, auto& samples) { samples.pop_back(); }},
        {"FFEFilter: sampleCount is 513; expected a whole number of repetitions of 512 samples",
         [](Equaliser&, auto& samples) { samples.push_back(0.0); }},
        {"FFEFilter: numberOfTaps is 3; expected as many taps as the capture can tell apart: it is constant, not "
         "finite, "
         "or its pattern too simple",
         [](Equaliser&, auto& samples) { std::fill(samples.begin(), samples.end(), 0.5); }},
        {"FFEFilter: baudRateGBd is nan; expected a finite positive symbol rate",
         [](Equaliser& e, auto&) { e.config.baudRateGBd = kNan; }},
        {"FFEFilter: patternLengthUi is 0; expected at least 1 UI",
         [](Equaliser& e, auto&) { e.config.patternLengthUi = 0; }},
        {"FFEFilter: numberOfTaps * samplesPerUi is 520; expected at most the record's 512 samples",
         [](Equaliser& e, auto&) {
             Manual(std::vector<double>(65, 1.0))(e.parameters);
             e.parameters.useTdecqEqualizer = true;
         }},
        {"FFEFilter: uiDuration / sampleSpacing is 7.5; expected a whole number for the TDECQ equaliser",
         [](Equaliser& e, auto&) {
             e.config.useFractionalSampling = true;
             e.config.uiDuration = 7.5;
             e.config.sampleSpacing = 1.0;
             Manual({1.0})(e.parameters);
             e.parameters.useTdecqEqualizer = true;
         }},
    };
    for (const auto& [text, spoil] : cases) {
        SCOPED_TRACE(text);
        Equaliser equaliser(Nrz(kBits, 8), Automatic(3));
        const auto before = equaliser.Apply(capture);
        const double* kernel = equaliser.filter->kernel;
        const FFEFilterParameters held = equaliser.parameters;
        std::vector<double> samples = capture;
        spoil(equaliser, samples);
        equaliser.parameters.SetDirty();
        ExpectRefused([&] { equaliser.Apply(samples); }, text);
        EXPECT_EQ(equaliser.filter->kernel, kernel);
        EXPECT_EQ(equaliser.parameters.appliedTaps, held.appliedTaps);
        EXPECT_EQ(equaliser.parameters.patternSymbols, held.patternSymbols);
        EXPECT_TRUE(equaliser.parameters.IsDirty());
        equaliser.config = Nrz(kBits, 8);
        equaliser.parameters = held;
        EXPECT_TRUE(HaveSameBits(equaliser.Apply(capture), before));
    }
}

TEST(FFEFilterErrors, RefuseWhatIsMissing)
{
    Equaliser equaliser(Nrz(kBits, 8), Manual({1.0}));
    const std::string noSignal = "Cannot Prepare FFE Filter Without a signal";
    ExpectRefused([&] { equaliser.filter->Prepare(nullptr); }, noSignal);
    ExpectRefused([&] { (void)equaliser.filter->Apply(nullptr); }, noSignal);
    equaliser.parameters.ResetDirty();
    ExpectRefused([&] { (void)equaliser.filter->Apply(nullptr); },
                  "FFEFilter: signal is null; expected a captured waveform");
    ExpectRefused([&] { equaliser.Apply(Constant(0.0, 512)); },
                  "FFEFilter: kernel is null; expected a kernel made by Prepare or assigned by the host");
    FFEFilterParameters unconfigured;
    FFEFilter filter(&unconfigured);
    Record record(Constant(1.0, 16));
    ExpectRefused([&] { filter.Prepare(&record); },
                  "FFEFilter: configuration is null; expected the device configuration, which holds the symbol rate");
    ExpectRefused([] { FFEFilter none(static_cast<FFEFilterParameters*>(nullptr)); },
                  "FFEFilter: parameters is null; expected a parameters object");
}

}  // namespace
