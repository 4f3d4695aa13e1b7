#include "filters/filters/dfefilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>

#include "filters/filters/patternlockfailed.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

std::vector<int> Prbs7Levels()
{
    std::vector<int> bits(7, 1);
    while (bits.size() < 127)
        bits.push_back(bits[bits.size() - 7] ^ bits[bits.size() - 6]);
    return bits;
}

std::vector<int> RandomLevels(std::size_t count, int levelCount)
{
    std::vector<int> levels(count);
    const auto values = RandomValues(count, 7);
    std::transform(values.begin(), values.end(), levels.begin(),
                   [levelCount](double value) { return static_cast<int>((value + 1.0) / 2.0 * levelCount); });
    return levels;
}

// A pattern and the line that it has come through: levels from -1 to 1, the echoes, a front end, noise.
struct Line {
    E_SIGNAL_CODING coding = SIGNAL_CODING_NRZ;
    std::vector<int> levels;
    std::vector<double> echoes;
    int samplesPerUi = 16;
    double baudRateGBd = 26.5625;
    double bandwidthGHz = 20.0;
    double noise = 0.0;

    int LevelCount() const { return coding == SIGNAL_CODING_NRZ ? 2 : coding == SIGNAL_CODING_PAM3 ? 3 : 4; }
    double Value(long long ui) const
    {
        const auto count = static_cast<long long>(levels.size());
        return 2.0 * levels[static_cast<std::size_t>(((ui % count) + count) % count)] / (LevelCount() - 1) - 1.0;
    }
    std::vector<double> Capture() const
    {
        std::vector<double> samples;
        for (long long i = 0; i < static_cast<long long>(levels.size()); ++i) {
            double value = Value(i);
            for (std::size_t j = 0; j < echoes.size(); ++j)
                value += echoes[j] * Value(i - 1 - static_cast<long long>(j));
            samples.insert(samples.end(), static_cast<std::size_t>(samplesPerUi), value);
        }
        return WithNoise(ThroughFrontEnd(samples, samplesPerUi * baudRateGBd, bandwidthGHz), noise, 1);
    }
    DeviceConfiguration Configured(int repetitions = 1) const
    {
        DeviceConfiguration config = Configuration(samplesPerUi, static_cast<int>(levels.size()), baudRateGBd);
        config.signalCoding = coding;
        config.patternRepeats = repetitions;
        if (coding == SIGNAL_CODING_PAM4)
            return config;  // detected
        for (const int level : levels)
            config.patternSymbols += static_cast<char>('0' + level);
        return config;
    }
};

struct Equaliser {
    Equaliser(DeviceConfiguration configuration, int numberOfTaps)
        : config(std::move(configuration)), parameters(&config)
    {
        parameters.numberOfTaps = numberOfTaps;
        filter.emplace(&parameters);
    }
    Equaliser(DeviceConfiguration configuration, std::vector<double> taps, double delayPs = 0.0)
        : Equaliser(std::move(configuration), static_cast<int>(taps.size()))
    {
        parameters.useManualTaps = true;
        parameters.taps = std::move(taps);
        parameters.samplingDelayPs = delayPs;
    }
    std::vector<double> Apply(std::vector<double> samples)
    {
        Record record(std::move(samples));
        return Take(filter->Apply(&record), record.Values().size());
    }
    int DelayInSamples() const
    {
        return static_cast<int>(parameters.samplingDelayPs * 0.001 * config.baudRateGBd * parameters.samplesPerUi);
    }

    DeviceConfiguration config;
    DFEFilterParameters parameters;
    std::optional<DFEFilter> filter;
};

struct Eye {
    double height;  // the worst one, over that of the line without interference
    int errors;     // samples nearer to another level than to their own
};

// The samples at the decisions against the symbols that were sent, at the shift by which they follow them best.
Eye EyeOf(const std::vector<double>& samples, const Line& line, int delay)
{
    const auto count = static_cast<long long>(line.levels.size());
    const auto at = [&](long long i) { return samples[static_cast<std::size_t>(delay + i * line.samplesPerUi)]; };
    long long shift = 0;
    double most = -1e300;
    for (long long q = -3; q <= 3; ++q) {
        double sum = 0.0;
        for (long long i = 0; i < count; ++i)
            sum += at(i) * line.Value(i + q);
        if (sum > most) {
            most = sum;
            shift = q;
        }
    }
    const double spacing = 2.0 / (line.LevelCount() - 1);
    std::vector<double> least(4, 1e300), highest(4, -1e300);
    Eye eye{1e300, 0};
    for (long long i = 0; i < count; ++i) {
        const auto level = static_cast<std::size_t>(std::lround((line.Value(i + shift) + 1.0) / spacing));
        least[level] = std::min(least[level], at(i));
        highest[level] = std::max(highest[level], at(i));
        const double decided =
            std::clamp(std::round((at(i) + 1.0) / spacing), 0.0, static_cast<double>(line.LevelCount() - 1));
        eye.errors += decided != static_cast<double>(level) ? 1 : 0;
    }
    for (std::size_t level = 1; level < static_cast<std::size_t>(line.LevelCount()); ++level)
        eye.height = std::min(eye.height, (least[level] - highest[level - 1]) / spacing);
    return eye;
}

// A flat stretch of a UI serves a decision equally well, and noise picks the instant: with noise only taps and eyes are
// looked at. The front end of 20 GHz adds up to 0.01 to a tap, noise of 2 % over 127 symbols 0.006 (three standard
// deviations); the eye loses six standard deviations of noise at most, of a spacing of 2 (NRZ) or 2/3 (PAM4).
TEST(DfePrepare, OpensTheEyesOfKnownLines)
{
    const auto prbs7 = Prbs7Levels();
    const auto prbs13q = Prbs13qLevels();
    const auto ternary = RandomLevels(500, 3);
    const struct {
        const char* label;
        Line line;
        int noiseFreeDelay;
        std::vector<double> taps;
        double before, after, noise;
    } cases[] = {
        {"NRZ", {SIGNAL_CODING_NRZ, prbs7, {0.35, 0.15}}, 14, {0.348, 0.149}, 0.46, 0.90, 0.02},
        {"NRZ, closed", {SIGNAL_CODING_NRZ, prbs7, {0.6, 0.3}}, 14, {0.598, 0.299}, 0.04, 0.89, 0.02},
        {"NRZ, three taps",
         {SIGNAL_CODING_NRZ, prbs7, {0.25, 0.12, -0.05}},
         14,
         {0.249, 0.119, -0.05},
         0.55,
         0.90,
         0.02},
        {"PAM3", {SIGNAL_CODING_PAM3, ternary, {0.25, 0.12, -0.05}}, 14, {0.249, 0.119, -0.05}, 0.1, 0.82, 0.02},
        {"PAM4, three taps",
         {SIGNAL_CODING_PAM4, prbs13q, {0.25, 0.12, -0.05}},
         14,
         {0.248, 0.119, -0.051},
         -0.3,
         0.74,
         0.02},
        {"PAM4, closed", {SIGNAL_CODING_PAM4, prbs13q, {0.45, -0.1}}, 14, {0.448, -0.101}, -0.86, 0.74, 0.02},
        {"PAM4, 11 GHz", {SIGNAL_CODING_PAM4, prbs13q, {}, 16, 26.5625, 11.0}, 2, {0.193}, 0.26, 0.83, 0.0},
        {"NRZ, 10.3125 GBd", {SIGNAL_CODING_NRZ, prbs7, {0.4}, 8, 10.3125}, 2, {0.400}, 0.55, 0.90, 0.02},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        Line line = each.line;
        Equaliser noiseFree(line.Configured(), static_cast<int>(each.taps.size()));
        const auto clear = noiseFree.Apply(line.Capture());
        EXPECT_EQ(noiseFree.DelayInSamples(), each.noiseFreeDelay);
        EXPECT_TRUE(AreNear(noiseFree.parameters.taps, each.taps, 0.0015));  // three decimals of the reference
        Line undisturbed = line;
        undisturbed.echoes.clear();
        if (line.bandwidthGHz == 20.0) {  // else the front end's own echoes are those that are taken away
            EXPECT_NEAR(EyeOf(clear, line, noiseFree.DelayInSamples()).height,
                        EyeOf(undisturbed.Capture(), line, noiseFree.DelayInSamples()).height, 0.02);
        }

        line.noise = each.noise;
        const auto capture = line.Capture();
        Equaliser equaliser(line.Configured(), static_cast<int>(each.taps.size()));
        const auto result = equaliser.Apply(capture);
        const int delay = equaliser.DelayInSamples();
        EXPECT_TRUE(AreNear(equaliser.parameters.taps, each.taps, 0.03));
        EXPECT_NEAR(EyeOf(capture, line, delay).height, each.before, 0.15);
        const Eye eye = EyeOf(result, line, delay);
        EXPECT_GT(eye.height, each.after - 0.04);
        EXPECT_EQ(eye.errors, 0);
    }
}

// The same text is found whichever way it is numbered or handed over.
TEST(DfePrepare, TakesTheSymbolsFromTextBufferOrCapture)
{
    Line line{SIGNAL_CODING_PAM4, RandomLevels(300, 4), {0.3}};
    const auto capture = line.Capture();
    std::string levelText;
    for (const int level : line.levels)
        levelText += static_cast<char>('0' + level);
    std::string grayText = GraySymbols(line.levels);
    std::optional<double> tap;
    const struct {
        const char* label;
        E_SIGNAL_CODING coding;
        bool withoutGrayCoding, useUserPattern;
        std::string text, buffer;
    } cases[] = {{"detected", SIGNAL_CODING_PAM4, false, false, "", ""},
                 {"detected, levels", SIGNAL_CODING_PAM4, true, false, "", ""},
                 {"detected in spite of a text", SIGNAL_CODING_PAM4_PRECODED, false, false, "0123", ""},
                 {"text", SIGNAL_CODING_PAM4, false, true, grayText, ""},
                 {"text of levels", SIGNAL_CODING_PAM4, true, true, levelText, "0123"},
                 {"buffer", SIGNAL_CODING_PAM4, false, true, "", grayText}};
    for (const auto& each : cases) {
        DeviceConfiguration config = line.Configured();
        config.signalCoding = each.coding;
        config.withoutGrayCoding = each.withoutGrayCoding;
        config.useUserPattern = each.useUserPattern;
        config.patternSymbols = each.text;
        std::string buffer = each.buffer;
        config.patternSequenceBuffer = buffer.data();
        Equaliser equaliser(config, 1);
        equaliser.Apply(capture);
        EXPECT_NEAR(equaliser.parameters.taps[0], 0.3, 0.01) << each.label;
        EXPECT_NEAR(equaliser.parameters.taps[0], tap.value_or(equaliser.parameters.taps[0]), 1e-12) << each.label;
        tap = equaliser.parameters.taps[0];
        EXPECT_EQ(equaliser.parameters.withoutGrayCoding, each.withoutGrayCoding) << each.label;
    }
}

TEST(DfePrepare, ResizesManualTapsAndLeavesTheDelay)
{
    const struct {
        std::vector<double> taps;
        int count;
        std::vector<double> expected;
    } cases[] = {{{0.1}, 3, {0.1, 0.0, 0.0}}, {{0.1, 0.2, 0.3}, 2, {0.1, 0.2}}, {{0.1}, 0, {}}, {{}, 1, {0.0}}};
    Record record(RandomValues(1016, 1));
    for (const auto& [taps, count, expected] : cases) {
        DeviceConfiguration config = Configuration(8, 127);
        config.signalCoding = SIGNAL_CODING_NRZ;
        Equaliser equaliser(config, taps, 12.5);
        equaliser.parameters.numberOfTaps = count;
        equaliser.filter->Prepare(&record);
        EXPECT_EQ(equaliser.parameters.taps, expected);
        EXPECT_EQ(equaliser.parameters.samplingDelayPs, 12.5);
        EXPECT_FALSE(equaliser.parameters.IsDirty());
        EXPECT_FALSE(equaliser.filter->notPrepared);
    }
}

TEST(DfePrepare, FollowsTheConfigurationWhileDirty)
{
    Equaliser equaliser(Configuration(8, 127), 0);
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 8);
    Record record(RandomValues(2032, 1));
    equaliser.parameters.samplesPerUi = 5;
    equaliser.config.samplesPerUi = 16;
    equaliser.config.withoutGrayCoding = true;
    equaliser.filter->Prepare(&record);
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 16);
    EXPECT_TRUE(equaliser.parameters.withoutGrayCoding);
    equaliser.config.samplesPerUi = 4;
    equaliser.config.withoutGrayCoding = false;
    equaliser.filter->Prepare(&record);  // clean since
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 16);
    EXPECT_TRUE(equaliser.parameters.withoutGrayCoding);
    equaliser.config.useFractionalSampling = true;
    equaliser.config.uiDuration = 10.0;
    equaliser.config.sampleSpacing = 3.0;
    equaliser.parameters.SetDirty();
    equaliser.filter->Prepare(&record);
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 3);
}

TEST(DfeApply, PassesTheRecordWithoutTaps)
{
    const auto samples = RandomValues(1021, 1);
    EXPECT_TRUE(HaveSameBits(Equaliser(Configuration(8, 127), 0).Apply(samples), samples));
}

// Each repetition as if it were alone, with the taps of the first; what follows the last one continues it.
TEST(DfeApply, KeepsRepetitionsApart)
{
    Line line{SIGNAL_CODING_NRZ, Prbs7Levels(), {0.4, 0.1}};
    line.noise = 0.02;
    const auto one = line.Capture();
    const std::size_t period = one.size();
    Equaliser alone(line.Configured(), 2);
    const auto expected = alone.Apply(one);

    auto samples = one;
    samples.resize(2 * period, kNan);
    samples.insert(samples.end(), one.begin(), one.end());
    samples.insert(samples.end(), one.begin(), one.begin() + 100);
    Equaliser equaliser(line.Configured(3), 2);
    const auto result = equaliser.Apply(samples);
    EXPECT_EQ(equaliser.parameters.taps, alone.parameters.taps);
    EXPECT_EQ(equaliser.parameters.samplingDelayPs, alone.parameters.samplingDelayPs);
    EXPECT_TRUE(HaveSameBits(std::span(result).first(period), expected));
    EXPECT_TRUE(HaveSameBits(std::span(result).subspan(2 * period, period), expected));
    EXPECT_TRUE(HaveSameBits(std::span(result).subspan(3 * period), Constant(0.0, 100)));
    EXPECT_TRUE(std::isnan(result[period]) && std::isnan(result[2 * period - 1]));
}

// The delay counts modulo a UI and without its fraction.
TEST(DfeApply, TakesTheDelayModuloAUi)
{
    Line line{SIGNAL_CODING_NRZ, Prbs7Levels(), {0.4}, 8};
    const auto capture = line.Capture();
    const double sample = 1000.0 / (8 * line.baudRateGBd);  // [ps]
    const auto expected = Equaliser(line.Configured(), {0.4}, 3.5 * sample).Apply(capture);
    for (const double delay : {3.1, 3.9, 11.5, 803.5, -5.5})
        EXPECT_TRUE(HaveSameBits(Equaliser(line.Configured(), {0.4}, delay * sample).Apply(capture), expected))
            << delay;
    EXPECT_FALSE(HaveSameBits(Equaliser(line.Configured(), {0.4}, 4.5 * sample).Apply(capture), expected));
}

// 3.3 samples a UI: the decisions lie between samples, and a repetition does not end with one. Over 20 repetitions of
// 412.5 samples the decisions must keep to the UIs; the record may end one sample early.
TEST(DfeApply, TakesFractionalSamples)
{
    const Line line{SIGNAL_CODING_NRZ, RandomLevels(125, 2), {0.4}, 33};
    const auto fine = line.Capture();  // ten times as many samples, 4125 a repetition
    for (const int count : {412, 413, 8250, 8249}) {
        SCOPED_TRACE(std::to_string(count) + " samples");
        std::vector<double> samples(static_cast<std::size_t>(count));
        for (std::size_t m = 0; m < samples.size(); ++m)
            samples[m] = fine[10 * m % fine.size()];
        DeviceConfiguration config = line.Configured();
        config.useFractionalSampling = true;
        config.uiDuration = 3.3;
        config.sampleSpacing = 1.0;
        Equaliser equaliser(config, 1);
        const auto result = equaliser.Apply(samples);
        EXPECT_NEAR(equaliser.parameters.taps[0], 0.4, 0.03);
        EXPECT_LT(equaliser.DelayInSamples(), 3);
        // At the decisions the two values of every symbol are told apart again: the eye is 0.2 wide before and nearly
        // 2 after, but for samples on an edge.
        int open = 0;
        const int symbols = static_cast<int>(count / 3.3);
        for (int i = 0; i < symbols; ++i) {
            const double position = equaliser.DelayInSamples() + i * 3.3;
            const auto here = static_cast<std::size_t>(std::lround(position)) % samples.size();
            open += std::abs(std::abs(result[here]) - 1.0) < 0.2 ? 1 : 0;
        }
        EXPECT_GT(open, 0.9 * symbols);
    }
}

TEST(DfeLifecycle, StoresWhatItIsGivenAndCopies)
{
    const DFEFilterParameters given(16, 12.5, {0.1, 0.2}, 2, true, true);
    DFEFilterParameters assigned;
    EXPECT_TRUE(assigned.samplesPerUi == 0 && assigned.samplingDelayPs == 0.0 && assigned.taps.empty() &&
                assigned.numberOfTaps == 0 && !assigned.withoutGrayCoding && !assigned.useManualTaps);
    assigned = DFEFilterParameters(given);
    EXPECT_EQ(assigned.samplesPerUi, 16);
    EXPECT_EQ(assigned.samplingDelayPs, 12.5);
    EXPECT_EQ(assigned.taps, given.taps);
    EXPECT_EQ(assigned.numberOfTaps, 2);
    EXPECT_TRUE(assigned.withoutGrayCoding && assigned.useManualTaps);
    DeviceConfiguration config = Configuration(8, 127);
    EXPECT_EQ(DFEFilterParameters(&config).samplesPerUi, 0);
    EXPECT_EQ(DFEFilterParameters(&config).GetConfig(), &config);

    const Line line{SIGNAL_CODING_NRZ, Prbs7Levels(), {0.4}};
    const auto capture = line.Capture();
    Equaliser equaliser(line.Configured(), 1);
    const auto expected = equaliser.Apply(capture);
    DFEFilter copy(*equaliser.filter);
    equaliser.filter.reset();
    Record record(capture);
    EXPECT_TRUE(HaveSameBits(Take(copy.Apply(&record), capture.size()), expected));
    EXPECT_EQ(record.Values(), capture);
}

TEST(DfeErrors, NameTheValueAndChangeNothing)
{
    const Line line{SIGNAL_CODING_NRZ, Prbs7Levels(), {0.4}, 8};
    const auto good = line.Capture();
    auto inverted = good;
    for (double& sample : inverted)
        sample = -sample;
    const struct {
        std::function<void(DFEFilterParameters&, DeviceConfiguration&)> spoil;
        std::vector<double> samples;
        std::string text;
    } cases[] = {
        {[](auto&, auto& config) { config.signalCoding = SIGNAL_CODING_UNKNOWN; }, good,
         "DFEFilter: signalCoding is 0; expected NRZ, PAM3, PAM4 or precoded PAM4"},
        {[](auto&, auto& config) { config.samplesPerUi = 0; }, good,
         "DFEFilter: samplesPerUi is 0; expected at least 1"},
        {[](auto&, auto& config) { config.patternLengthUi = 0; }, good,
         "DFEFilter: patternLengthUi is 0; expected at least 1 UI"},
        {[](auto&, auto& config) { config.baudRateGBd = 0.0; }, good,
         "DFEFilter: baudRateGBd is 0; expected a finite positive symbol rate"},
        {[](auto&, auto& config) { config.baudRateGBd = std::numeric_limits<double>::max(); }, good,
         "DFEFilter: baudRateGBd is 1.7976931348623157e+308; expected a symbol rate at which picoseconds can tell a "
         "delay of 7 samples"},
        {[](auto&, auto& config) { config.patternSymbols.pop_back(); }, good,
         "DFEFilter: length of patternSymbols is 126; expected patternLengthUi, 127"},
        {[](auto&, auto& config) { config.patternSymbols[3] = '2'; }, good,
         "PRBS::GetIdealSignalFromPrbsSymbolsD: symbols[3] is '2'; expected '0' to '1'"},
        {[](auto& parameters, auto&) { parameters.numberOfTaps = -1; }, good,
         "DFEFilter: numberOfTaps is -1; expected 0 or more taps"},
        {[](auto& parameters, auto&) {
             parameters.useManualTaps = true;
             parameters.numberOfTaps = std::numeric_limits<int>::max();
         },
         good, "DFEFilter: numberOfTaps is 2147483647; expected at most 1048576 taps"},
        {[](auto& parameters, auto&) { parameters.numberOfTaps = 126; }, good,
         "DFEFilter: numberOfTaps is 126; expected at most patternLengthUi - 2, 125"},
        {[](auto&, auto& config) { config.patternSymbols.assign(127, '1'); }, good,
         "DFEFilter: numberOfTaps is 1; expected as many as the pattern's symbols can tell apart"},
        {[](auto& parameters, auto&) { parameters.samplingDelayPs = kNan; }, good,
         "DFEFilter: samplingDelayPs is nan; expected a finite time in picoseconds"},
        {[](auto& parameters, auto&) {
             parameters.useManualTaps = true;
             parameters.taps = {kNan};
         },
         good, "DFEFilter: taps[0] is nan; expected a finite number"},
        {[](auto&, auto&) {}, std::vector<double>(good.begin(), good.end() - 1),
         "DFEFilter: sampleCount is 1015; expected at least one repetition of 1016 samples"},
        {[](auto&, auto&) {}, Constant(0.7, good.size()),
         "DFEFilter: main cursor is not positive at any sampling delay; expected a record that follows the pattern's "
         "symbols"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        Equaliser equaliser(line.Configured(), 1);
        equaliser.parameters.taps = {0.25};
        equaliser.parameters.samplingDelayPs = 3.0;
        each.spoil(equaliser.parameters, equaliser.config);
        const auto taps = equaliser.parameters.taps;
        ExpectRefused([&] { equaliser.Apply(each.samples); }, each.text);
        EXPECT_TRUE(equaliser.parameters.IsDirty() && equaliser.filter->notPrepared);
        EXPECT_EQ(equaliser.parameters.samplesPerUi, 8);
        EXPECT_TRUE(HaveSameBits(equaliser.parameters.taps, taps));
    }
    // Noise and a record upside down fit the symbols somewhere by chance.
    for (const auto& samples : {inverted, RandomValues(good.size(), 4)}) {
        Equaliser equaliser(line.Configured(), 1);
        EXPECT_THROW(equaliser.Apply(samples), std::invalid_argument);
        EXPECT_TRUE(equaliser.parameters.taps.empty());
    }
}

TEST(DfeErrors, NameWhatIsMissing)
{
    DeviceConfiguration config = Configuration(8, 127);
    config.signalCoding = SIGNAL_CODING_NRZ;
    ExpectRefused([] { const DFEFilter filter(nullptr); },
                  "DFEFilter: parameters is null; expected a parameters object");
    config.patternLocked[2] = false;
    DFEFilterParameters parameters(&config);
    parameters.channel = 2;
    EXPECT_THROW(DFEFilter{&parameters}, PatternLockFailed);
    config.patternLocked[2] = true;
    parameters.numberOfTaps = 1;
    DFEFilter filter(&parameters);
    const std::string noSignal = "Cannot Prepare DFE Filter Without a signal";
    ExpectRefused([&] { filter.Prepare(nullptr); }, noSignal);
    ExpectRefused([&] { filter.Apply(nullptr); }, noSignal);
    parameters.ResetDirty();
    ExpectRefused([&] { filter.Apply(nullptr); }, "DFEFilter: signal is null; expected a captured waveform");
    Record record(RandomValues(1016, 1));
    ExpectRefused([&] { filter.Apply(&record); },
                  "DFEFilter: number of taps is 0; expected 1, found by Prepare; mark the parameters dirty");
    parameters.useManualTaps = true;
    parameters.taps = {0.1};
    parameters.samplingDelayPs = 1e15;
    ExpectRefused([&] { filter.Apply(&record); },
                  "DFEFilter: samplingDelayPs * 0.001 * baudRateGBd * samplesPerUi is 2.125e+14; expected a finite "
                  "number of at most 2147483647");

    DFEFilterParameters unconfigured;
    DFEFilter without(&unconfigured);
    const std::string text =
        "DFEFilter: configuration is null; expected the device configuration, which holds the symbol rate";
    ExpectRefused([&] { without.Apply(&record); }, text);
    ExpectRefused([&] { filter.ApplyDfe(&unconfigured, &record); }, text);
    ExpectRefused([&] { filter.ApplyDfe(nullptr, &record); },
                  "DFEFilter: parameters is null; expected a parameters object");
}

}  // namespace
