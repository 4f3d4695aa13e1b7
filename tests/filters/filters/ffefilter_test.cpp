#include "filters/filters/ffefilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

#include "filters/filters/dfefilter.h"
#include "framework/dsp_helpers.h"
#include "framework/gaussianfilter.h"
#include "maths/responses/gaussian.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/filterrig.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using SystemFramework::DSP_Helpers;
using SystemFramework::GaussianFilter;
using Set = std::function<void(FFEFilterParameters&)>;

using ForwardEqualiser = FilterRig<FFEFilter, FFEFilterParameters>;

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
        p.tapsPerUi = 1;
        p.mainCursorPosition = mainCursorPosition;
    };
}

// Evenly from -0.2 to 0.2.
std::vector<double> Voltages(const std::string& levels)
{
    const int highest = *std::max_element(levels.begin(), levels.end()) - '0';
    std::vector<double> values;
    for (const char level : levels)
        values.push_back(0.4 * (level - '0') / highest - 0.2);
    return values;
}

// PRBS13Q at 26.5625 GBd behind a front end, with noise of 1 % of its rms or none.
std::vector<double> Pam4Capture(double bandwidthGHz, double noise, int samplesPerUi = 8)
{
    const auto sent = Held(Voltages(LevelText(Prbs13qLevels())), samplesPerUi);
    return WithNoise(ThroughFrontEnd(sent, 26.5625 * samplesPerUi, bandwidthGHz), noise, 3);
}

DeviceConfiguration Pam4(int repetitions = 1, int samplesPerUi = 8)
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

TEST(FFEFilter, RefreshesFromTheConfigurationAndMakesALowPassOfItsOwn)
{
    std::vector<double> hosts = {1.0};
    DeviceConfiguration config = Nrz(kBits, 8);
    config.useUserPattern = config.withoutGrayCoding = true;
    EXPECT_TRUE(FFEFilterParameters(&config).withoutGrayCoding);
    config.gaussianFilter = hosts.data();
    config.gaussianFilterLength = 1;
    ForwardEqualiser equaliser(config, Manual({1.0}));
    const FFEFilterParameters& p = equaliser.parameters;
    EXPECT_EQ(p.samplesPerUi, 8);
    EXPECT_EQ(p.patternSymbols, kBits);
    EXPECT_TRUE(p.useUserPattern && p.withoutGrayCoding);
    EXPECT_EQ(p.gaussianFilter, hosts.data());
    EXPECT_EQ(p.gaussianFilterLength, 1);
    EXPECT_TRUE(equaliser.filter->notPrepared && equaliser.filter->flag2);
    const FFEFilter unbound(&config);
    EXPECT_TRUE(unbound.notPrepared && unbound.flag2);
    EXPECT_EQ(unbound.parameters, nullptr);

    equaliser.Prepare(RandomValues(512, 2));
    int length = 0;
    const auto expected =
        Take(GaussianFilter::GetGaussianFilter_A(length, 26.5625, 80.0, 8, 512, false, 0.2, 50.0), 512);
    ASSERT_EQ(p.gaussianFilterLength, 512);
    EXPECT_TRUE(HaveSameBits({p.gaussianFilter, 512}, expected));
}

TEST(FFEFilterManualTaps, StandAtTheirSpacing)
{
    const struct {
        std::vector<double> taps;
        std::size_t numberOfTaps;
        int tapsPerUi;
        std::size_t spacing;
    } cases[] = {{{1, 2, 3}, 3, 1, 8}, {{1, 2, 3}, 3, 3, 2}, {{1}, 3, 1, 8}, {{1, 2, 3}, 2, 1, 8}, {{0, 0}, 2, 1, 8}};
    const auto record = RandomValues(3 * 512 + 2, 9);
    for (const auto& [taps, numberOfTaps, tapsPerUi, spacing] : cases) {
        SCOPED_TRACE(testing::PrintToString(taps) + ", " + std::to_string(tapsPerUi) + " a UI");
        std::vector<double> used = taps;
        used.resize(numberOfTaps);
        std::vector<double> kernel(numberOfTaps * spacing);
        for (std::size_t j = 0; j < numberOfTaps; ++j)
            kernel[j * spacing] = used[j];
        ForwardEqualiser equaliser(Nrz(kBits, 8), Manual(taps, tapsPerUi));
        FFEFilterParameters& p = equaliser.parameters;
        p.numberOfTaps = static_cast<int>(numberOfTaps);
        const auto output = equaliser.Apply(record);
        EXPECT_EQ(equaliser.Kernel(kernel.size()), kernel);
        EXPECT_EQ(p.taps, used);
        EXPECT_EQ(p.appliedTaps, used);
        EXPECT_TRUE(p.prepared);
        EXPECT_FALSE(equaliser.filter->notPrepared || p.IsDirty());
        for (std::size_t s = 0; s < 3; ++s) {
            const auto expected = DirectConvolution(std::span(record).subspan(s * 512, 512), kernel);
            EXPECT_TRUE(AreNear(std::span(output).subspan(s * 512, 512), expected, 1e-14));
        }
        EXPECT_EQ(output[1536], 0.0);
        EXPECT_EQ(output[1537], 0.0);
        p.taps = {5.0};  // not marked: without effect
        EXPECT_EQ(equaliser.Apply(record), output);
    }
}

// Behind the last whole repetition, however much of one that is.
TEST(FFEFilterManualTaps, GoWithPartOfARepetition)
{
    for (const int count : {14, 15, 16, 19, 26}) {
        SCOPED_TRACE(count);
        ForwardEqualiser equaliser(Nrz(kBits.substr(0, 10), 1), Manual({2.0}));
        const auto record = RandomValues(static_cast<std::size_t>(count), 9);
        const auto output = equaliser.Apply(record);
        const int whole = count / 10 * (count / (count / 10));  // equal shares of the record
        for (std::size_t k = 0; k < record.size(); ++k)
            EXPECT_EQ(output[k], k < static_cast<std::size_t>(whole) ? 2.0 * record[k] : 0.0) << k;
        ExpectRefused([&] { ForwardEqualiser(Nrz(kBits.substr(0, 10), 1), Automatic(1)).Apply(record); },
                      "FFEFilter: sampleCount is " + std::to_string(count) +
                          "; expected a whole number of repetitions of 10 samples");
    }
}

TEST(FFEFilterQuantisedTaps, AreReportedButNeverApplied)
{
    const std::vector<double> exact = {-0.1, 0.8, -0.1};
    const std::vector<double> steps = {-6.0, 51.0, -6.0};
    ForwardEqualiser equaliser(Nrz(kBits, 8), Manual(exact));
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
    // Another number of taps resizes the applied ones; without quantising the exact taps come back.
    p.numberOfTaps = 4;
    equaliser.Prepare(record);
    EXPECT_EQ(p.appliedTaps, (std::vector<double>{-0.1, 0.8, -0.1, 0.0}));
    EXPECT_EQ(p.taps, (std::vector<double>{-6.0, 51.0, -6.0, 0.0}));
    p.quantizeTaps = false;
    equaliser.Prepare(record);
    EXPECT_EQ(p.taps, (std::vector<double>{-0.1, 0.8, -0.1, 0.0}));
    // Taps that a user enters in place of the steps count again.
    p.quantizeTaps = true;
    p.taps = {0.0, 2.0, -2.0, 0.0};
    equaliser.Prepare(record);
    EXPECT_EQ(p.taps, (std::vector<double>{0.0, 32.0, -32.0, 0.0}));
    EXPECT_EQ(p.appliedTaps, (std::vector<double>{0.0, 2.0, -2.0, 0.0}));

    // The public generator takes them as they are, and reports numberOfTaps of them.
    const struct {
        std::vector<double> taps;
        int tapResolution;
        std::vector<double> reported;
    } reports[] = {{{1.0, -1.0, 2.0, 4.0}, 8, {1.0, -1.0}},
                   {{2.0}, 8, {8.0, 0.0}},
                   {{1.0, -3.0}, 0, {0.0, 0.0}},
                   {{1.0, -3.0}, -4, {-1.0, 3.0}}};
    for (const auto& [taps, tapResolution, reported] : reports) {
        p.numberOfTaps = 2;
        p.tapResolution = tapResolution;
        p.taps = taps;
        Take(equaliser.filter->GetFFEAutomaticCoefficients(&p, nullptr), 16);
        EXPECT_EQ(p.taps, reported);
        EXPECT_EQ(p.appliedTaps, taps);
    }

    FFEFilterParameters plain(8, {0.5, -1.5}, 2, 4, SIGNAL_CODING_NRZ, true, false, false);
    EXPECT_EQ(plain.mainCursorPosition, 4);  // the taps per UI
    EXPECT_EQ(Take(equaliser.filter->GetOptimizedTaps(&plain), 2), (std::vector<double>{0.25, -0.75}));
    plain.taps.clear();
    EXPECT_EQ(equaliser.filter->GetOptimizedTaps(&plain), nullptr);
}

// PAM4 behind 11 GHz, 5 taps: what the search and each fixed main cursor leave of the reference.
TEST(FFEFilterAutomaticTaps, LeaveTheLeastError)
{
    const struct {
        int samplesPerUi;
        double residuals[6];  // search, then main cursor 1 to 5
    } cases[] = {{8, {0.2716, 0.2567, 0.2502, 0.2502, 0.2540, 0.2906}},
                 {16, {0.2648, 0.2574, 0.2371, 0.2356, 0.2378, 0.2602}}};
    for (const auto& [samplesPerUi, residuals] : cases) {
        const auto capture = Pam4Capture(11.0, 0.0015, samplesPerUi);
        for (int cursor = 0; cursor <= 5; ++cursor) {
            SCOPED_TRACE(std::to_string(samplesPerUi) + " samples per UI, main cursor " + std::to_string(cursor));
            ForwardEqualiser equaliser(Pam4(1, samplesPerUi), Automatic(5, cursor));
            equaliser.Prepare(capture);
            // Five times the last digit of the figures: another noise.
            EXPECT_NEAR(equaliser.filter->residualError, residuals[cursor], 5e-4);
            const auto& taps = equaliser.parameters.taps;
            ASSERT_EQ(taps.size(), 5U);
            EXPECT_EQ(equaliser.parameters.appliedTaps, taps);
            const auto largest = std::max_element(taps.begin(), taps.end(),
                                                  [](double a, double b) { return std::abs(a) < std::abs(b); });
            EXPECT_TRUE(cursor == 0 || largest - taps.begin() == cursor - 1);
        }
    }
}

TEST(FFEFilterAutomaticTaps, AreTheSameForSeveralRepetitionsAndAnInvertedCapture)
{
    const auto capture = Pam4Capture(11.0, 0.0015);
    ForwardEqualiser one(Pam4(), Automatic(5));
    one.Prepare(capture);
    DeviceConfiguration tiled = Pam4(3);
    tiled.multiplePatternRecord = false;  // the whole record is searched, against a reference tiled three times
    DeviceConfiguration detected = Pam4();
    detected.patternSymbols.clear();
    DeviceConfiguration given = Pam4();
    given.useUserPattern = true;
    const struct {
        const char* label;
        DeviceConfiguration config;
        std::size_t repetitions;
        double sign;
    } cases[] = {{"three, cut to one", Pam4(3), 3, 1.0},
                 {"three at once", tiled, 3, 1.0},
                 {"no text", detected, 1, 1.0},
                 {"inverted, text given", given, 1, -1.0}};
    for (const auto& [label, config, repetitions, sign] : cases) {
        std::vector<double> record = Tiled(capture, repetitions);
        for (double& sample : record)
            sample *= sign;
        ForwardEqualiser equaliser(config, Automatic(5));
        equaliser.Prepare(record);
        EXPECT_TRUE(AreNear(equaliser.parameters.taps, one.parameters.taps, 1e-12)) << label;
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
    const DeviceConfiguration fractional = FractionallySampled(Nrz(kBits, 3), 10.0, 3.0);
    const struct {
        const char* label;
        DeviceConfiguration config;
        double samplesPerUi;
    } cases[] = {{"NRZ", Nrz(kBits, 16), 16.0}, {"PAM3", pam3, 16.0}, {"NRZ, fractional", fractional, 10.0 / 3.0}};
    for (const auto& [label, config, samplesPerUi] : cases) {
        SCOPED_TRACE(label);
        const std::vector<double> sent = Voltages(config.patternSymbols);
        std::vector<double> received(sent.size());
        for (std::size_t k = 0; k < sent.size(); ++k)
            received[k] = sent[k] + 0.6 * sent[(k + sent.size() - 1) % sent.size()] -
                          0.5 * sent[(k + sent.size() - 2) % sent.size()];
        const auto capture = ThroughFrontEnd(Held(received, samplesPerUi), 26.5625 * samplesPerUi, 20.0);
        ForwardEqualiser equaliser(config, Automatic(11));
        const auto output = equaliser.Apply(capture);
        EXPECT_LT(Opening(capture, config.patternSymbols, samplesPerUi), 0.0);
        EXPECT_GT(Opening(output, config.patternSymbols, samplesPerUi), 0.1);
    }
}

Set AtPhase(int numberOfTaps, int tapsPerUi = 1, int dfeTaps = 0)
{
    return [=](FFEFilterParameters& p) {
        Automatic(numberOfTaps)(p);
        p.tapsPerUi = tapsPerUi;
        p.fitAtSamplingPhase = true;
        p.dfeTaps = dfeTaps;
    };
}

// A line of echoes before and behind, 8 samples per UI: the symbols' digits, from -0.2 to 0.2.
std::vector<double> ThroughLine(const std::string& symbols, double pre, double post)
{
    const std::vector<double> sent = Voltages(symbols);
    std::vector<double> received(sent.size());
    for (std::size_t k = 0, n = sent.size(); k < n; ++k)
        received[k] = sent[k] + pre * sent[(k + 1) % n] + post * sent[(k + n - 1) % n] - 0.2 * sent[(k + n - 2) % n];
    return ThroughFrontEnd(Held(received, 8), 26.5625 * 8, 15.0);
}

std::string RandomSymbols(std::size_t count, int levelCount)
{
    std::string symbols;
    for (const double value : RandomValues(count, 4))
        symbols += static_cast<char>('0' + static_cast<int>((value + 1.0) / 2.0 * levelCount));
    return symbols;
}

// Least squares of the whole waveform spend taps on the transitions; those at the phase open the eye where it is sampled, and
// the more so the more taps there are. With feedback they leave to it what they say.
TEST(FFEFilterAtSamplingPhase, OpensTheEyeFurtherThanTheWholeWaveform)
{
    const struct {
        const char* label;
        E_SIGNAL_CODING coding;
        int levels;
        double pre, post;
    } cases[] = {{"NRZ", SIGNAL_CODING_NRZ, 2, 0.35, 0.6},
                 {"PAM3", SIGNAL_CODING_PAM3, 3, 0.2, 0.4},
                 {"PAM4", SIGNAL_CODING_PAM4, 4, 0.15, 0.3},
                 {"precoded PAM4", SIGNAL_CODING_PAM4_PRECODED, 4, 0.15, 0.3}};
    for (const auto& [label, coding, levels, pre, post] : cases) {
        SCOPED_TRACE(label);
        const std::string symbols = RandomSymbols(600, levels);
        DeviceConfiguration config = Nrz(symbols, 8);
        config.signalCoding = coding;
        config.withoutGrayCoding = config.useUserPattern = true;
        const auto capture = ThroughLine(symbols, pre, post);
        const double ideal = 0.4 / (levels - 1);
        const auto openingOf = [&](const Set& set) {
            return Opening(ForwardEqualiser(config, set).Apply(capture), symbols, 8.0) / ideal;
        };
        EXPECT_LT(Opening(capture, symbols, 8.0), 0.0);
        double before = openingOf(Automatic(5));
        for (const int taps : {5, 7, 9, 13}) {
            const double opening = openingOf(AtPhase(taps));
            EXPECT_GT(opening, before - 0.005) << taps;
            before = opening;
        }
        EXPECT_GT(before, 0.9);

        FilterRig<DFEFilter, DFEFilterParameters> feedback(config, [](auto& p) { p.numberOfTaps = 3; });
        const auto behind = feedback.Apply(ForwardEqualiser(config, AtPhase(5, 1, 3)).Apply(capture));
        EXPECT_GT(Opening(behind, symbols, 8.0) / ideal, openingOf(AtPhase(5)));

        ForwardEqualiser joint(config, AtPhase(5, 1, 3));
        const FFEFilter& filter = *joint.filter;
        joint.Apply(capture);
        ASSERT_EQ(filter.feedbackTaps.size(), 3U);
        EXPECT_GT(filter.conditionNumber, 1.0);
        EXPECT_TRUE(std::isfinite(filter.fitConstant) && filter.samplingPhaseUi < 1.0);
        const double jointError = filter.residualError;
        joint.parameters.dfeTaps = 0;
        joint.parameters.SetDirty();
        joint.Apply(capture);
        EXPECT_LT(jointError, filter.residualError);
        EXPECT_TRUE(filter.feedbackTaps.empty());
        if (levels == 4) {
            const auto given = joint.parameters.appliedTaps;
            joint.config.useUserPattern = false;  // detected
            joint.parameters.SetDirty();
            joint.Apply(capture);
            // The symbols begin elsewhere in the pattern, and so do the sums.
            EXPECT_TRUE(AreNear(joint.parameters.appliedTaps, given, 1e-9));
        }
        joint.parameters.fitAtSamplingPhase = false;
        joint.parameters.SetDirty();
        joint.Apply(capture);
        EXPECT_TRUE(std::isnan(filter.conditionNumber) && std::isnan(filter.samplingPhaseUi));
    }
}

// A tap a third of a UI stands where Apply puts it, 2 samples on and not 8/3; the fit of an ideal eye leaves it alone.
TEST(FFEFilterAtSamplingPhase, KeepsCursorPolarityAndRepetitions)
{
    const auto capture = ThroughLine(kBits, 0.2, 0.4);
    const auto tapsOf = [](const DeviceConfiguration& config, const std::vector<double>& record, const Set& set) {
        ForwardEqualiser equaliser(config, set);
        equaliser.Prepare(record);
        return equaliser.parameters.appliedTaps;
    };
    const auto taps = tapsOf(Nrz(kBits, 8), capture, AtPhase(5));
    std::vector<double> inverted = capture;
    for (double& sample : inverted)
        sample = -sample;
    DeviceConfiguration tiled = Nrz(kBits, 8);
    tiled.patternRepeats = 3;
    EXPECT_TRUE(AreNear(tapsOf(tiled, Tiled(capture, 3), AtPhase(5)), taps, 1e-12));
    EXPECT_TRUE(AreNear(tapsOf(Nrz(kBits, 8), inverted, AtPhase(5)), taps, 1e-12));
    for (int cursor = 1; cursor <= 3; ++cursor) {
        const auto fixed = tapsOf(Nrz(kBits, 8), capture, [cursor](auto& p) {
            AtPhase(3)(p);
            p.mainCursorPosition = cursor;
        });
        const auto largest =
            std::max_element(fixed.begin(), fixed.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
        EXPECT_EQ(largest - fixed.begin(), cursor - 1);
    }
    ForwardEqualiser ideal(Nrz(kBits, 8), AtPhase(7));
    const auto output = ideal.Apply(Held(Voltages(kBits), 8));
    EXPECT_GT(Opening(output, kBits, 8.0), 0.99 * 0.4);
    EXPECT_LT(ideal.filter->residualError, 1e-12);

    ForwardEqualiser thirds(Nrz(kBits, 8), AtPhase(6, 3));
    const auto filtered = thirds.Apply(capture);
    const auto instant = static_cast<std::size_t>(std::lround(8.0 * thirds.filter->samplingPhaseUi));
    double error = 1.0;
    for (std::size_t shift = 0; shift < 64; ++shift) {
        double sum = 0.0;
        for (std::size_t i = 0; i < 64; ++i) {
            const double level = (kBits[(i + shift) % 64] - '0' - 0.5) * 2.0;
            const double reached = filtered[8 * i + instant] + thirds.filter->fitConstant;
            const auto [low, high] = std::minmax_element(capture.begin(), capture.end());
            sum += std::pow(reached / (0.5 * (*high - *low)) - level, 2);
        }
        error = std::min(error, std::sqrt(sum / 64.0));
    }
    // 33 of the 64 bits are set: the levels' rms about their mean is theirs but for 5e-4 of it.
    EXPECT_NEAR(error, thirds.filter->residualError, 1e-3 * error);
}

// Whatever the ignored ends hold, no tap moves.
TEST(FFEFilterIgnoredEnds, DecideNothing)
{
    const std::string symbols = RandomSymbols(400, 4);
    DeviceConfiguration config = Nrz(symbols, 8);
    config.signalCoding = SIGNAL_CODING_PAM4;
    config.withoutGrayCoding = config.useUserPattern = true;
    const auto capture = ThroughLine(symbols, 0.1, 0.2);
    const struct {
        const char* label;
        Set set;
        double samplesPerUi = 8.0;
    } cases[] = {{"whole waveform", Automatic(5)},
                 {"whole waveform, fixed cursor", Automatic(5, 2)},
                 {"part of a sample", Automatic(5), 8.0025},
                 {"at the phase", AtPhase(7, 2)},
                 {"with feedback", AtPhase(4, 1, 3)},
                 {"TDECQ", [](auto& p) {
                      Automatic(5)(p);
                      p.useTdecqEqualizer = true;
                  }}};
    for (const auto& [label, set, samplesPerUi] : cases) {
        SCOPED_TRACE(label);
        config.useFractionalSampling = samplesPerUi != 8.0;
        config.uiDuration = samplesPerUi;
        config.sampleSpacing = 1.0;
        std::vector<std::vector<double>> taps;
        for (const double size : {0.0, 5.0}) {
            std::vector<double> record = capture;
            record.resize(static_cast<std::size_t>(400.0 * samplesPerUi));
            for (std::size_t k = 0; k < static_cast<std::size_t>(std::ceil(8.0 * samplesPerUi)); ++k)
                record[k] = record[record.size() - 1 - k] = size * std::sin(static_cast<double>(k * k));
            ForwardEqualiser equaliser(config, set);
            equaliser.parameters.ignoredUi = 8;
            equaliser.Prepare(record);
            taps.push_back(equaliser.parameters.appliedTaps);
        }
        EXPECT_TRUE(AreNear(taps[1], taps[0], 1e-9));
    }

    config.useFractionalSampling = false;

    // Behind the low-pass too, which may as well have been there before.
    const auto taken = static_cast<int>(capture.size());
    const double sampleRate = 8.0 * config.baudRateGBd;
    const auto behind = Maths::GaussianLowPass(capture, sampleRate, 15.0);
    auto lowPass = Maths::GaussianTaps(capture.size(), sampleRate, 15.0);
    std::vector<double> identity(capture.size());
    identity.front() = 1.0;
    ForwardEqualiser tdecq(config);
    tdecq.parameters.ignoredUi = 8;
    const auto tapsBehind = [&](std::vector<double> record, std::vector<double>& filter) {
        return Take(
            tdecq.filter->GenerateTDECQAutomaticCoefficients(record.data(), taken, filter.data(), taken, symbols, 400,
                                                             8, 5, true, true, SIGNAL_CODING_PAM4, 1),
            5);
    };
    EXPECT_TRUE(AreNear(tapsBehind(capture, lowPass), tapsBehind(behind, identity), 1e-3));
    EXPECT_FALSE(AreNear(tapsBehind(capture, identity), tapsBehind(behind, identity), 1e-3));
}

// The first 511 symbols of PRBS13Q: the taps are those of least TDECQ for the capture behind 80 GHz, and the largest is at
// the main cursor.
TEST(FFEFilterTdecq, FindsItsTapsBehindTheLowPassAtTheMainCursor)
{
    std::vector<int> levels = Prbs13qLevels();
    levels.resize(511);
    const auto sent = Held(Voltages(LevelText(levels)), 8);
    const auto capture = ThroughFrontEnd(sent, 26.5625 * 8, 14.0);
    const auto taken = static_cast<int>(capture.size());
    auto behind = Take(GaussianFilter::ApplyGaussianFilter(capture.data(), taken, 26.5625, 80.0, 8), capture.size());
    auto reference = sent;
    DeviceConfiguration config = Configuration(8, 511);
    config.signalCoding = SIGNAL_CODING_PAM4;
    config.patternSymbols = GraySymbols(levels);
    config.useUserPattern = true;
    for (const int position : {1, 2, 3}) {
        SCOPED_TRACE("main cursor " + std::to_string(position));
        ForwardEqualiser equaliser(config, Automatic(4, position));
        equaliser.parameters.useTdecqEqualizer = true;
        equaliser.Prepare(capture);
        const auto& taps = equaliser.parameters.appliedTaps;
        ASSERT_EQ(taps.size(), 4U);
        const auto largest =
            std::max_element(taps.begin(), taps.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
        EXPECT_EQ(largest - taps.begin(), position - 1);
        std::vector<double> expected(4);
        DSP_Helpers::GenerateTdecqEqualizerCoefficients(behind.data(), taken, reference.data(), taken, 4, 8,
                                                        position - 1, expected.data(), 4);
        // The same search on captures that differ by the rounding of two ways to filter. Without the low-pass the taps
        // differ by more than that.
        EXPECT_TRUE(AreNear(taps, expected, 1e-6));
        EXPECT_TRUE(std::isnan(equaliser.filter->residualError));
    }
}

// The same with and without Gray coding and text, and where the coding is not told.
TEST(FFEFilterTdecq, PublishesItsSymbolSpacedTaps)
{
    const auto capture = Pam4Capture(10.0, 0.0);
    const DeviceConfiguration detected = Pam4();
    DeviceConfiguration gray = detected;
    DeviceConfiguration levels = detected;
    gray.useUserPattern = levels.useUserPattern = levels.withoutGrayCoding = true;
    levels.patternSymbols = LevelText(Prbs13qLevels());
    std::vector<double> first;
    DeviceConfiguration unknown = gray;
    unknown.signalCoding = SIGNAL_CODING_UNKNOWN;
    int tapsPerUi = 0;
    for (const DeviceConfiguration& config : {gray, detected, levels, unknown}) {
        ForwardEqualiser equaliser(config, Automatic(5));
        equaliser.parameters.useTdecqEqualizer = true;
        equaliser.parameters.tapsPerUi = tapsPerUi;  // whatever it says
        tapsPerUi += 4;
        equaliser.Prepare(capture);
        const auto& taps = equaliser.parameters.appliedTaps;
        if (first.empty())
            first = taps;
        EXPECT_TRUE(AreNear(taps, first, 1e-9));
        const double sum = std::accumulate(taps.begin(), taps.end(), 0.0);
        EXPECT_NEAR(sum, 1.0, 1e-12);
        std::vector<double> expected(40);
        for (std::size_t k = 0; k < 5; ++k)
            expected[8 * k] = taps[k] / sum;
        const double* const published = equaliser.config.tdecqEqualizer;
        EXPECT_EQ(std::vector<double>(published, published + equaliser.config.tdecqEqualizerLength), expected);
        expected.resize(capture.size());
        EXPECT_EQ(equaliser.Kernel(capture.size()), expected);
    }
}

TEST(FFEFilterTdecq, TakesManualTapsWithGainOne)
{
    ForwardEqualiser equaliser(Nrz(kBits, 8), Manual({0.0, 2.0, 0.0}, 0));
    equaliser.parameters.useTdecqEqualizer = true;
    const auto record = RandomValues(512, 2);
    EXPECT_NEAR(equaliser.Apply(record)[8], record[0], 1e-15);
    EXPECT_EQ(equaliser.parameters.taps[1], 2.0);
    EXPECT_EQ(equaliser.config.tdecqEqualizerLength, 24);
    EXPECT_EQ(equaliser.config.tdecqEqualizer[8], 1.0);
}

TEST(FFEFilterErrors, NameWhatIsWrongAndChangeNothing)
{
    const struct {
        std::string text;
        Set spoil;
    } cases[] = {
        {"tapsPerUi is 0; expected 1 to samplesPerUi, 8", [](auto& p) { p.tapsPerUi = 0; }},
        {"tapsPerUi is 9; expected 1 to samplesPerUi, 8", [](auto& p) { p.tapsPerUi = 9; }},
        {"numberOfTaps is -1; expected 0 or more taps", [](auto& p) { p.numberOfTaps = -1; }},
        {"numberOfTaps is 65; expected 1 to 64, the places in one repetition", [](auto& p) { p.numberOfTaps = 65; }},
        {"mainCursorPosition is 4; expected at most numberOfTaps, 3", [](auto& p) { p.mainCursorPosition = 4; }},
        {"taps[1] is nan; expected a finite number", Manual({1.0, kNan, 0.0})},
        {"sum of the taps' magnitudes is 0; expected a finite positive number", Manual({0.0, 0.0})},
        {"patternSymbols is empty; expected the pattern's symbols",
         [](auto& p) { p.GetConfig()->patternSymbols.clear(); }},
        {"length of patternSymbols is 8; expected patternLengthUi, 64",
         [](auto& p) {
             p.GetConfig()->patternSymbols.resize(8);
             p.GetConfig()->multiplePatternRecord = true;
         }},
        {"numberOfTaps * samplesPerUi is 520; expected at most the record's 512 samples",
         [](auto& p) {
             Manual(std::vector<double>(65, 1.0))(p);
             p.useTdecqEqualizer = true;
         }},
        {"ignoredUi is -1; expected 0 or more UI", [](auto& p) { p.ignoredUi = -1; }},
        {"ignoredUi is 25; expected at most 24 of 64 UI, which leave twice as many as the fit has unknowns, 3",
         [](auto& p) { p.ignoredUi = 25; }},
        {"ignoredUi is 22; expected at most 21 of 64 UI, which leave twice as many as the fit has unknowns, 6",
         [](auto& p) {
             AtPhase(4, 2, 1)(p);
             p.ignoredUi = 22;
         }},
        {"useTdecqEqualizer is true; expected false with fitAtSamplingPhase",
         [](auto& p) { p.fitAtSamplingPhase = p.useTdecqEqualizer = true; }},
        {"dfeTaps is 2; expected 0 without fitAtSamplingPhase", [](auto& p) { p.dfeTaps = 2; }},
        {"dfeTaps is -1; expected 0 or more taps", AtPhase(3, 1, -1)},
        {"dfeTaps is 63; expected at most patternLengthUi - 2, 62", AtPhase(3, 1, 63)},
        {"ridge is nan; expected a finite number of at least 0", [](auto& p) { p.ridge = kNan; }},
        {"ridge is 0.1; expected 0 without fitAtSamplingPhase", [](auto& p) { p.ridge = 0.1; }},
        {"uiDuration / sampleSpacing is 7.5; expected a whole number for a fit at the sampling phase",
         [](auto& p) {
             *p.GetConfig() = FractionallySampled(*p.GetConfig(), 7.5);
             p.fitAtSamplingPhase = true;
         }},
        {"uiDuration / sampleSpacing is 7.5; expected a whole number for the TDECQ equaliser",
         [](auto& p) {
             *p.GetConfig() = FractionallySampled(*p.GetConfig(), 7.5);
             Manual({1.0})(p);
             p.useTdecqEqualizer = true;
         }},
    };
    const auto record = RandomValues(512, 1);
    for (const auto& [text, spoil] : cases) {
        SCOPED_TRACE(text);
        ForwardEqualiser equaliser(Nrz(kBits, 8), Automatic(3));
        equaliser.parameters.quantizeTaps = true;
        equaliser.Prepare(record);
        const double* kernel = equaliser.filter->kernel;
        const auto taps = equaliser.parameters.appliedTaps;
        spoil(equaliser.parameters);
        equaliser.parameters.SetDirty();
        ExpectRefused([&] { equaliser.Apply(record); }, "FFEFilter: " + text);
        EXPECT_EQ(equaliser.filter->kernel, kernel);
        EXPECT_EQ(equaliser.parameters.appliedTaps, taps);
        EXPECT_TRUE(equaliser.parameters.IsDirty());
    }
    ExpectRefused([] { ForwardEqualiser(Nrz(kBits, 8), Automatic(3)).Apply(Constant(0.5, 512)); },
                  "FFEFilter: numberOfTaps is 3; expected as many taps as the capture can tell apart: it is constant, "
                  "not finite, or its pattern too simple");
    ForwardEqualiser fractional(FractionallySampled(Nrz(kBits, 8), 7.5), Automatic(3));
    auto samples = record;
    const auto generate = [&](int samplesPerUi) {
        fractional.filter->GenerateTDECQAutomaticCoefficients(samples.data(), 512, nullptr, 0, kBits, 64, samplesPerUi,
                                                              2, true, false, SIGNAL_CODING_PAM4, -1);
    };
    ExpectRefused([&] { generate(7); },
                  "FFEFilter: uiDuration / sampleSpacing is 7.5; expected a whole number for the TDECQ equaliser");
    fractional.config = FractionallySampled(fractional.config, 8.0);
    ExpectRefused([&] { generate(4); }, "FFEFilter: uiDuration / sampleSpacing is 8; expected samplesPerUi, 4");
}

}  // namespace
