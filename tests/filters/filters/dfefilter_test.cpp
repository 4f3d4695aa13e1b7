#include "filters/filters/dfefilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "maths/equalisers/decisionfeedback.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/filterrig.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

std::vector<int> RandomLevels(std::size_t count, int levelCount)
{
    std::vector<int> levels;
    for (const double value : RandomValues(count, 7))
        levels.push_back(static_cast<int>((value + 1.0) / 2.0 * levelCount));
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
    double precursor = 0.0;

    int LevelCount() const { return coding == SIGNAL_CODING_NRZ ? 2 : coding == SIGNAL_CODING_PAM3 ? 3 : 4; }
    int Level(long long ui) const
    {
        const auto count = static_cast<long long>(levels.size());
        return levels[static_cast<std::size_t>(((ui % count) + count) % count)];
    }
    double Value(long long ui) const { return 2.0 * Level(ui) / (LevelCount() - 1) - 1.0; }
    std::vector<double> Capture() const
    {
        std::vector<double> values;
        for (long long i = 0; i < static_cast<long long>(levels.size()); ++i) {
            values.push_back(Value(i) + precursor * Value(i + 1));
            for (std::size_t j = 0; j < echoes.size(); ++j)
                values.back() += echoes[j] * Value(i - 1 - static_cast<long long>(j));
        }
        const auto sent = Held(values, samplesPerUi);
        const auto received =
            bandwidthGHz > 0.0 ? ThroughFrontEnd(sent, samplesPerUi * baudRateGBd, bandwidthGHz) : sent;
        return WithNoise(received, noise, 1);
    }
    /// `count` of the capture's samples, each the tenth of the one before: a tenth as many samples per UI.
    std::vector<double> Decimated(std::size_t count) const
    {
        const auto fine = Capture();
        std::vector<double> samples(count);
        for (std::size_t m = 0; m < count; ++m)
            samples[m] = fine[10 * m % fine.size()];
        return samples;
    }
    DeviceConfiguration Configured(int repetitions = 1) const
    {
        DeviceConfiguration config = Configuration(samplesPerUi, static_cast<int>(levels.size()), baudRateGBd);
        config.signalCoding = coding;
        config.patternRepeats = repetitions;
        config.patternSymbols = LevelText(levels);
        return config;
    }
    DeviceConfiguration DecimatedConfigured() const { return FractionallySampled(Configured(), samplesPerUi / 10.0); }
};

struct FeedbackEqualiser : FilterRig<DFEFilter, DFEFilterParameters> {
    FeedbackEqualiser(DeviceConfiguration configuration, int numberOfTaps) : FilterRig(std::move(configuration))
    {
        parameters.numberOfTaps = numberOfTaps;
    }
    FeedbackEqualiser(DeviceConfiguration configuration, std::vector<double> taps, double delayPs)
        : FeedbackEqualiser(std::move(configuration), static_cast<int>(taps.size()))
    {
        parameters.useManualTaps = true;
        parameters.taps = std::move(taps);
        parameters.samplingDelayPs = delayPs;
    }
    int DelayInSamples() const
    {
        return static_cast<int>(parameters.samplingDelayPs * 0.001 * config.baudRateGBd * parameters.samplesPerUi);
    }
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

// The phases at which the smallest eye is at least 80 % as high as at the best one.
int OpenPhases(const std::vector<double>& samples, const Line& line)
{
    std::vector<double> heights;
    for (int k = 0; k < line.samplesPerUi; ++k)
        heights.push_back(EyeOf(samples, line, k).height);
    const double enough = 0.8 * *std::max_element(heights.begin(), heights.end());
    return static_cast<int>(std::count_if(heights.begin(), heights.end(), [&](double h) { return h >= enough; }));
}

// Noise moves the instant by a sample where the eye is flat. A front end of 20 GHz adds up to 0.01 to a tap, noise of 2 % over
// 127 symbols 0.006 (three standard deviations); the eye loses six standard deviations of noise at most, of a spacing of 2
// (NRZ) or 2/3 (PAM4). An instant at the edge of the eye would leave half of the open phases.
TEST(DfePrepare, OpensTheEyesOfKnownLines)
{
    const auto prbs7 = PrbsLevels(7, 6);
    const auto prbs9 = PrbsLevels(9, 5);
    const auto prbs13q = Prbs13qLevels();
    const auto ternary = RandomLevels(500, 3);
    const std::vector<double> three{0.25, 0.12, -0.05};
    const struct {
        const char* label;
        Line line;
        int noiseFreeDelay;
        std::vector<double> taps;
        double height;  // with noise
        int openPhases;
    } cases[] = {
        {"NRZ", {SIGNAL_CODING_NRZ, prbs7, {0.35, 0.15}}, 15, {0.35, 0.15}, 0.89, 9},
        {"NRZ, closed", {SIGNAL_CODING_NRZ, prbs7, {0.6, 0.3}}, 0, {0.6, 0.3}, 0.88, 9},
        {"NRZ, three taps", {SIGNAL_CODING_NRZ, prbs7, three}, 15, three, 0.89, 9},
        {"PAM3", {SIGNAL_CODING_PAM3, ternary, three}, 15, three, 0.82, 7},
        {"PAM4, three taps", {SIGNAL_CODING_PAM4, prbs13q, three}, 15, three, 0.75, 7},
        {"PAM4, closed", {SIGNAL_CODING_PAM4, prbs13q, {0.45, -0.1}}, 15, {0.45, -0.1}, 0.75, 7},
        {"PAM4, 11 GHz", {SIGNAL_CODING_PAM4, prbs13q, {}, 16, 26.5625, 11.0}, 3, {0.141}, 0.82, 3},
        {"NRZ, 10.3125 GBd", {SIGNAL_CODING_NRZ, prbs7, {0.4}, 8, 10.3125}, 5, {0.4}, 0.93, 7},
        {"hard edges", {SIGNAL_CODING_NRZ, prbs7, {0.4}, 16, 26.5625, 0.0}, 8, {0.4}, 0.93, 16},
        {"an ideal line", {SIGNAL_CODING_NRZ, prbs7, {}, 16, 26.5625, 0.0}, 8, {0.0, 0.0, 0.0}, 0.93, 16},
        {"a pre-cursor", {SIGNAL_CODING_NRZ, prbs9, {}, 8, 26.5625, 20.0, 0.0, 0.14}, 7, {0.0, 0.0, 0.0}, 0.81, 4},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        Line line = each.line;
        Line undisturbed = line;
        undisturbed.echoes.clear();
        // At 11 GHz the taps remove the front end's own echo, and noise would close the eye.
        for (const bool isNoisy : {false, line.bandwidthGHz != 11.0}) {
            line.noise = isNoisy ? 0.02 : 0.0;
            const auto capture = line.Capture();
            FeedbackEqualiser equaliser(line.Configured(), static_cast<int>(each.taps.size()));
            const auto result = equaliser.Apply(capture);
            const int delay = equaliser.DelayInSamples();
            const Eye eye = EyeOf(result, line, delay);
            EXPECT_GT(eye.height, each.height - 0.04);
            EXPECT_EQ(eye.errors, 0);
            EXPECT_GE(OpenPhases(result, line), each.openPhases);
            EXPECT_TRUE(AreNear(equaliser.parameters.taps, each.taps, isNoisy ? 0.03 : Maths::kDfeTapError));
            if (!isNoisy) {
                EXPECT_EQ(delay, each.noiseFreeDelay);
                if (!line.echoes.empty()) {
                    // Off the top of the UI the taps take off some of the front end's own echoes too.
                    EXPECT_NEAR(eye.height, EyeOf(undisturbed.Capture(), line, delay).height, 0.025);
                }
            }
            // P and N exchanged: the same instant, the same taps.
            std::vector<double> inverted = capture;
            for (double& sample : inverted)
                sample = -sample;
            FeedbackEqualiser exchanged(line.Configured(), static_cast<int>(each.taps.size()));
            exchanged.Apply(inverted);
            EXPECT_EQ(exchanged.DelayInSamples(), delay);
            EXPECT_TRUE(AreNear(exchanged.parameters.taps, equaliser.parameters.taps, 1e-12));
        }
    }
}

// The same symbols, however they are numbered or handed over, give the same taps.
TEST(DfePrepare, TakesTheSymbolsFromTextBufferOrCapture)
{
    const Line line{SIGNAL_CODING_PAM4, RandomLevels(300, 4), {0.3}};
    const auto capture = line.Capture();
    DeviceConfiguration config = line.Configured();
    config.signalCoding = SIGNAL_CODING_PAM4_PRECODED;
    const std::string grayText = GraySymbols(line.levels);
    std::vector<double> taps;
    const struct {
        const char* label;
        bool withoutGrayCoding, useUserPattern;
        std::string text, buffer;
    } cases[] = {{"detected", false, false, "", ""},
                 {"detected, levels", true, false, "", ""},
                 {"detected in spite of a text", false, false, "0123", ""},
                 {"text", false, true, grayText, ""},
                 {"text of levels", true, true, config.patternSymbols, "0123"},
                 {"buffer", false, true, "", grayText}};
    for (const auto& each : cases) {
        config.withoutGrayCoding = each.withoutGrayCoding;
        config.useUserPattern = each.useUserPattern;
        config.patternSymbols = each.text;
        std::string buffer = each.buffer;
        config.patternSequenceBuffer = buffer.data();
        FeedbackEqualiser equaliser(config, 1);
        equaliser.Apply(capture);
        taps.push_back(equaliser.parameters.taps[0]);
        EXPECT_NEAR(taps.back(), 0.3, 0.01) << each.label;
        EXPECT_NEAR(taps.back(), taps[0], 1e-12) << each.label;
    }
}

// Clean parameters do not follow the configuration.
TEST(DfePrepare, ResizesManualTapsAndLeavesTheDelay)
{
    const struct {
        std::vector<double> taps;
        int count;
        std::vector<double> expected;
    } cases[] = {{{0.1}, 3, {0.1, 0.0, 0.0}}, {{0.1, 0.2, 0.3}, 2, {0.1, 0.2}}, {{0.1}, 0, {}}};
    const Line line{SIGNAL_CODING_NRZ, PrbsLevels(7, 6), {}, 8};
    Record record(line.Capture());
    for (const auto& [taps, count, expected] : cases) {
        FeedbackEqualiser equaliser(line.Configured(), taps, 12.5);
        equaliser.parameters.numberOfTaps = count;
        equaliser.filter->Prepare(&record);
        EXPECT_EQ(equaliser.parameters.taps, expected);
        EXPECT_EQ(equaliser.parameters.samplingDelayPs, 12.5);
        EXPECT_FALSE(equaliser.parameters.IsDirty() || equaliser.filter->notPrepared);
        equaliser.config.samplesPerUi = 4;
        equaliser.config.withoutGrayCoding = true;
        equaliser.filter->Prepare(&record);
        EXPECT_EQ(equaliser.parameters.samplesPerUi, 8);
        EXPECT_FALSE(equaliser.parameters.withoutGrayCoding);
    }
}

// However short its pattern is.
TEST(DfeApply, PassesTheRecordWithoutTaps)
{
    const auto samples = RandomValues(1021, 1);
    for (const DeviceConfiguration& config : {Configuration(8, 127), Configuration(1, 1)})
        EXPECT_TRUE(HaveSameBits(FeedbackEqualiser(config, 0).Apply(samples), samples)) << config.patternLengthUi;
}

// Each repetition as if it were alone, with the taps of the first; what follows the last one continues it.
TEST(DfeApply, KeepsRepetitionsApart)
{
    Line line{SIGNAL_CODING_NRZ, PrbsLevels(7, 6), {0.4, 0.1}};
    line.noise = 0.02;
    const auto one = line.Capture();
    const std::size_t period = one.size();
    FeedbackEqualiser alone(line.Configured(), 2);
    const auto expected = alone.Apply(one);

    auto samples = Tiled(one, 4);
    std::fill_n(samples.begin() + static_cast<std::ptrdiff_t>(period), period, kNan);
    samples.resize(3 * period + 100);
    FeedbackEqualiser equaliser(line.Configured(3), 2);
    const auto result = equaliser.Apply(samples);
    EXPECT_EQ(equaliser.parameters.taps, alone.parameters.taps);
    EXPECT_EQ(equaliser.parameters.samplingDelayPs, alone.parameters.samplingDelayPs);
    EXPECT_TRUE(HaveSameBits(std::span(result).first(period), expected));
    EXPECT_TRUE(HaveSameBits(std::span(result).subspan(2 * period, period), expected));
    EXPECT_TRUE(HaveSameBits(std::span(result).subspan(3 * period), Constant(0.0, 100)));
}

// The delay counts modulo a UI and without its fraction.
TEST(DfeApply, TakesTheDelayModuloAUi)
{
    Line line{SIGNAL_CODING_NRZ, PrbsLevels(7, 6), {0.4}, 8};
    const auto capture = line.Capture();
    const double sample = 1000.0 / (8 * line.baudRateGBd);  // [ps]
    const auto expected = FeedbackEqualiser(line.Configured(), {0.4}, 3.5 * sample).Apply(capture);
    for (const double delay : {3.1, 3.9, 11.5, 803.5, -5.5})
        EXPECT_TRUE(HaveSameBits(FeedbackEqualiser(line.Configured(), {0.4}, delay * sample).Apply(capture), expected))
            << delay;
    EXPECT_FALSE(HaveSameBits(FeedbackEqualiser(line.Configured(), {0.4}, 4.5 * sample).Apply(capture), expected));
}

// 3.3 samples a UI: the decisions lie between samples, and a repetition does not end with one. Over 20 repetitions of
// 412.5 samples the decisions must keep to the UIs; the record may end one sample early.
TEST(DfeApply, TakesFractionalSamples)
{
    const Line line{SIGNAL_CODING_NRZ, RandomLevels(125, 2), {0.4}, 33};
    for (const int count : {412, 413, 8250, 8249}) {
        SCOPED_TRACE(std::to_string(count) + " samples");
        const auto samples = line.Decimated(static_cast<std::size_t>(count));
        FeedbackEqualiser equaliser(line.DecimatedConfigured(), 1);
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
        // The feedback, of 0.4 either way, changes at the first sample of a UI, half a UI before its decision, in every
        // repetition.
        for (std::size_t k = 1; count == 8250 && k < result.size(); ++k) {
            const double change = samples[k] - result[k] - (samples[k - 1] - result[k - 1]);
            const double intoUi = std::fmod(static_cast<double>(k) - equaliser.DelayInSamples() + 1.65, 3.3);
            EXPECT_TRUE(std::abs(change) < 0.1 || intoUi < 1.0 || intoUi > 3.3 - 1e-6) << k;
        }
    }
}

// Ends that are ignored may hold anything, between samples too.
TEST(DfePrepare, LeavesOutTheEnds)
{
    const Line whole{SIGNAL_CODING_NRZ, RandomLevels(250, 2), {0.4, 0.1}};
    const Line fractional{SIGNAL_CODING_NRZ, RandomLevels(250, 2), {0.4, 0.1}, 33};
    const struct {
        DeviceConfiguration config;
        std::vector<double> capture;
    } cases[] = {{whole.Configured(), whole.Capture()}, {fractional.DecimatedConfigured(), fractional.Decimated(825)}};
    for (const auto& [config, capture] : cases) {
        std::vector<double> taps;
        for (const double size : {0.0, 9.0}) {
            std::vector<double> record = capture;
            for (std::size_t k = 0; k < 9 * record.size() / 250; ++k)
                record[k] = record[record.size() - 1 - k] = size * std::sin(static_cast<double>(k * k));
            FeedbackEqualiser equaliser(config, 2);
            equaliser.parameters.ignoredUi = 9;
            equaliser.Apply(record);
            EXPECT_NEAR(equaliser.parameters.taps[0], 0.4, 0.03);
            EXPECT_TRUE(taps.empty() || AreNear(equaliser.parameters.taps, taps, 1e-9));
            taps = equaliser.parameters.taps;
        }
    }
}

// Repetitions that are each half a sample longer than the configuration says begin where they lie in the record.
TEST(DfeApply, CutsTheRecordIntoEqualSharesWhereTheSamplingIsFractional)
{
    const Line line{SIGNAL_CODING_NRZ, RandomLevels(125, 2), {0.4}, 33};
    const auto one = line.Decimated(413);  // of 412.5
    const auto result = FeedbackEqualiser(line.DecimatedConfigured(), {0.4}, 0.0).Apply(Tiled(one, 20));
    EXPECT_TRUE(HaveSameBits(result, Tiled({result.begin(), result.begin() + 413}, 20)));
}

TEST(DfeErrors, NameTheValueAndChangeNothing)
{
    const Line line{SIGNAL_CODING_NRZ, PrbsLevels(7, 6), {0.4}, 8};
    const auto capture = line.Capture();
    const struct {
        std::function<void(DFEFilterParameters&, DeviceConfiguration&)> spoil;
        std::string text;
    } cases[] = {
        {[](auto&, auto& config) { config.baudRateGBd = std::numeric_limits<double>::max(); },
         "baudRateGBd is 1.7976931348623157e+308; expected a symbol rate at which picoseconds can tell a delay of 7 "
         "samples"},
        {[](auto& parameters, auto&) { parameters.numberOfTaps = std::numeric_limits<int>::max(); },
         "numberOfTaps is 2147483647; expected at most 1048576 taps"},
        {[](auto& parameters, auto&) { parameters.numberOfTaps = 126; },
         "numberOfTaps is 126; expected at most patternLengthUi - 2, 125"},
        {[](auto& parameters, auto&) { parameters.ignoredUi = -3; }, "ignoredUi is -3; expected 0 or more UI"},
        {[](auto& parameters, auto&) { parameters.ignoredUi = 59; },
         "ignoredUi is 59; expected at most 58 of 127 UI, which leave twice as many as the fit has unknowns, 3"},
        {[](auto&, auto& config) { config.patternSymbols.assign(127, '1'); },
         "numberOfTaps is 1; expected as many as the pattern's symbols can tell apart"},
        {[](auto& parameters, auto&) {
             parameters.useManualTaps = true;
             parameters.taps = {kNan};
         },
         "taps[0] is nan; expected a finite number"},
    };
    for (const auto& [spoil, text] : cases) {
        SCOPED_TRACE(text);
        FeedbackEqualiser equaliser(line.Configured(), 1);
        equaliser.parameters.taps = {0.25};
        spoil(equaliser.parameters, equaliser.config);
        const auto taps = equaliser.parameters.taps;
        ExpectRefused([&] { equaliser.Apply(capture); }, "DFEFilter: " + text);
        EXPECT_TRUE(equaliser.parameters.IsDirty() && equaliser.filter->notPrepared);
        EXPECT_TRUE(HaveSameBits(equaliser.parameters.taps, taps));
    }
    // Noise, which follows no symbols.
    FeedbackEqualiser equaliser(line.Configured(), 60);
    try {
        equaliser.Apply(RandomValues(capture.size(), 1));
        ADD_FAILURE() << "not refused";
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(std::string(error.what()).rfind("DFEFilter: largest tap over main cursor is ", 0), 0U)
            << error.what();
    }
    EXPECT_TRUE(equaliser.parameters.taps.empty());
}

TEST(DfeErrors, NameWhatIsMissing)
{
    FeedbackEqualiser equaliser(Configuration(8, 127), 1);
    equaliser.config.signalCoding = SIGNAL_CODING_NRZ;
    DFEFilterParameters& parameters = equaliser.parameters;
    parameters.ResetDirty();
    const auto record = RandomValues(1016, 1);
    ExpectRefused([&] { equaliser.Apply(record); },
                  "DFEFilter: number of taps is 0; expected 1, found by Prepare; mark the parameters dirty");
    parameters.useManualTaps = true;
    parameters.taps = {0.1};
    parameters.samplingDelayPs = 1e15;
    ExpectRefused([&] { equaliser.Apply(record); },
                  "DFEFilter: samplingDelayPs * 0.001 * baudRateGBd * samplesPerUi is 2.125e+14; expected a finite "
                  "number of at most 2147483647");
}

}  // namespace
