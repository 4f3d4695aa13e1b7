#include "filters/filters/movingaveragesmoothingfilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <optional>

#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Parameters = MovingAverageWindowSmoothingParameters;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

Parameters ParametersOf(int windowLength, DeviceConfiguration* config)
{
    Parameters parameters(windowLength);
    static_cast<SystemFramework::BaseFilterParameters&>(parameters) = SystemFramework::BaseFilterParameters(config);
    return parameters;
}

std::vector<double> Smoothed(Parameters parameters, std::vector<double> samples)
{
    MovingAverageSmoothingFilter filter(&parameters);
    Record record(std::move(samples));
    return Take(filter.Apply(&record), record.Values().size());
}

// Mean over lags first .. last of a periodic signal, times (last - first + 1) / window.
std::vector<double> WindowSums(const std::vector<double>& period, int first, int last, int window)
{
    const int n = static_cast<int>(period.size());
    std::vector<double> result(period.size());
    for (int k = 0; k < n; ++k) {
        long double sum = 0.0L;
        for (int lag = first; lag <= last; ++lag)
            sum += period[((k - lag) % n + n) % n];
        result[k] = static_cast<double>(sum / window);
    }
    return result;
}

// Samples lie within 1: w roundings of the sum and one of the division.
double Bound(int window)
{
    return (window + 1) * DBL_EPSILON;
}

// The window becomes the next odd length of at least 3; its taps stand around lag 0 and sum to one.
TEST(MovingAverageKernel, IsTheOddBoxcarAroundLagZero)
{
    const struct {
        int requested, used;
    } cases[] = {{-5, 3}, {0, 3}, {1, 3}, {2, 3}, {3, 3}, {4, 5}, {5, 5}, {10, 11}, {63, 63}};
    for (const auto& [requested, used] : cases) {
        SCOPED_TRACE("window " + std::to_string(requested));
        Parameters parameters(requested);
        MovingAverageSmoothingFilter filter(&parameters);
        Record record(Constant(1.0, 64));
        const auto kernel = Take(filter.MovingAverageSmoothing(&parameters, &record), 64);
        EXPECT_EQ(parameters.WindowLength, used);
        for (int lag = -32; lag < 32; ++lag)
            EXPECT_EQ(kernel[(lag + 64) % 64], std::abs(lag) <= used / 2 ? 1.0 / used : 0.0) << "lag " << lag;
        EXPECT_NEAR(std::accumulate(kernel.begin(), kernel.end(), 0.0), 1.0, used * DBL_EPSILON);  // one rounding a tap
    }
}

// A window longer than the record whose half is not: the two ends meet, and each tap is set once.
TEST(MovingAverageKernel, SetsTapsOnceWhereItsEndsMeet)
{
    Parameters parameters(9);
    MovingAverageSmoothingFilter filter(&parameters);
    for (const std::size_t count : {5U, 6U, 8U}) {
        Record record(Constant(1.0, count));
        EXPECT_EQ(Take(filter.MovingAverageSmoothing(&parameters, &record), count), Constant(1.0 / 9, count));
    }
}

TEST(MovingAverageKernel, RefusesAWindowWhoseHalfReachesRoundTheRecord)
{
    Parameters parameters(10);  // 11 samples, 5 to either side
    MovingAverageSmoothingFilter filter(&parameters);
    Record record(Constant(1.0, 5));
    const std::string text =
        "MovingAverageSmoothingFilter: WindowLength is 10; expected half a window shorter than the record of 5 samples";
    ExpectRefused([&] { filter.MovingAverageSmoothing(&parameters, &record); }, text);
    ExpectRefused([&] { filter.Prepare(&record); }, text);
    ExpectRefused([&] { filter.Apply(&record); }, text);
    EXPECT_EQ(parameters.WindowLength, 10);
    EXPECT_TRUE(parameters.IsDirty());
    EXPECT_TRUE(filter.notPrepared);
    EXPECT_EQ(filter.kernel, nullptr);
    Parameters largest(std::numeric_limits<int>::max());
    ExpectRefused([&] { filter.MovingAverageSmoothing(&largest, &record); },
                  "MovingAverageSmoothingFilter: WindowLength is 2147483647; expected half a window shorter than the "
                  "record of 5 samples");
}

TEST(MovingAverageApply, WithoutAConfigurationIsTheCentredMeanOfTheWholeRecord)
{
    for (const int window : {3, 5, 31, 33, 101}) {
        SCOPED_TRACE("window " + std::to_string(window));
        EXPECT_EQ(Smoothed(Parameters(window), Constant(0.75, 1000)), Constant(0.75, 1000));
        const auto samples = RandomValues(1000, 1);
        EXPECT_TRUE(AreNear(Smoothed(Parameters(window), samples),
                            WindowSums(samples, -(window / 2), window / 2, window), Bound(window)));
    }
}

// H(f) = sin(pi f w/fs) / (w sin(pi f/fs)), zero phase: a whole number of sine periods comes back scaled. Sines of
// arguments up to 2 pi 40 carry their rounding of 250 eps.
TEST(MovingAverageApply, ScalesASineByTheBoxcarsResponse)
{
    constexpr int kCount = 1000;
    for (const int cycles : {1, 40, 200, 333}) {
        constexpr int kWindow = 25;
        const double f = static_cast<double>(cycles) / kCount;
        const double gain = std::sin(std::numbers::pi * f * kWindow) / (kWindow * std::sin(std::numbers::pi * f));
        std::vector<double> sine(kCount);
        std::vector<double> expected(kCount);
        for (int k = 0; k < kCount; ++k) {
            sine[k] = std::sin(2.0 * std::numbers::pi * (k * cycles % kCount) / kCount);
            expected[k] = gain * sine[k];
        }
        EXPECT_TRUE(AreNear(Smoothed(Parameters(kWindow), sine), expected, 250 * DBL_EPSILON)) << cycles << " cycles";
    }
}

// Of several repetitions each meets the leading taps alone: lags 0 .. h, gain (h + 1)/w.
TEST(MovingAverageApply, OfSeveralRepetitionsIsAPartialTrailingAverage)
{
    const struct {
        int samplesPerUi, patternLengthUi, repetitions, window;
    } cases[] = {{8, 16, 2, 3}, {8, 16, 5, 7}, {1, 127, 3, 33}, {16, 127, 2, 101}};
    for (const auto& each : cases) {
        SCOPED_TRACE("window " + std::to_string(each.window));
        DeviceConfiguration config = Configuration(each.samplesPerUi, each.patternLengthUi);
        const std::size_t length = static_cast<std::size_t>(each.samplesPerUi) * each.patternLengthUi;
        const auto ones = Constant(1.0, length * each.repetitions);
        const int half = each.window / 2;
        EXPECT_EQ(Smoothed(ParametersOf(each.window, &config), ones),
                  Constant((half + 1.0) / each.window, ones.size()));

        std::vector<double> samples;
        std::vector<double> expected;
        for (int r = 0; r < each.repetitions; ++r) {
            const auto repetition = RandomValues(length, 10 + r);
            const auto sums = WindowSums(repetition, 0, half, each.window);
            samples.insert(samples.end(), repetition.begin(), repetition.end());
            expected.insert(expected.end(), sums.begin(), sums.end());
        }
        EXPECT_TRUE(AreNear(Smoothed(ParametersOf(each.window, &config), samples), expected, Bound(each.window)));
    }
}

TEST(MovingAverageApply, OfOneRepetitionIsCentred)
{
    DeviceConfiguration config = Configuration(8, 16);
    const auto samples = RandomValues(128, 3);
    EXPECT_TRUE(AreNear(Smoothed(ParametersOf(5, &config), samples), WindowSums(samples, -2, 2, 5), Bound(5)));
}

// A NaN in one repetition changes no bit of the others.
TEST(MovingAverageApply, KeepsRepetitionsApart)
{
    DeviceConfiguration config = Configuration(8, 16);
    const auto middle = RandomValues(128, 4);
    const auto broken = Constant(kNan, 128);
    std::vector<double> samples = Tiled(middle, 3);
    const auto expected = Smoothed(ParametersOf(33, &config), samples);
    std::copy(broken.begin(), broken.end(), samples.begin());
    std::copy(broken.begin(), broken.end(), samples.begin() + 256);
    const auto result = Smoothed(ParametersOf(33, &config), samples);
    EXPECT_TRUE(HaveSameBits(std::span(result).subspan(128, 128), std::span(expected).subspan(128, 128)));
}

// How many repetitions the record holds, by the rule of each sampling; what is left over at the end is zero.
TEST(MovingAverageApply, CutsTheRecordByTheRuleOfTheSampling)
{
    const struct {
        const char* label;
        int samplesPerUi, patternLengthUi;
        double uiDuration, sampleSpacing;  // 0: whole samples per UI
        int samples, repetitions;
    } cases[] = {{"1000 samples hold three", 3, 100, 0, 0, 1000, 3},
                 {"two less a sample is one", 8, 16, 0, 0, 255, 1},
                 {"fractional: 13.33 samples a pattern", 99, 4, 10, 3, 40, 3},
                 {"fractional: one sample short", 99, 4, 10, 3, 39, 2},
                 {"negative period: nothing is written", -8, 16, 0, 0, 1000, 0},
                 {"negative fractional period", 8, 4, -10, 3, 1000, 0}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        DeviceConfiguration config = Configuration(each.samplesPerUi, each.patternLengthUi);
        config.useFractionalSampling = each.sampleSpacing != 0.0;
        config.uiDuration = each.uiDuration;
        config.sampleSpacing = each.sampleSpacing;
        const std::size_t length = each.repetitions > 0 ? each.samples / each.repetitions : 0;
        auto expected = Constant(each.repetitions == 1 ? 1.0 : 2.0 / 3, length * each.repetitions);
        expected.resize(each.samples, 0.0);
        EXPECT_EQ(Smoothed(ParametersOf(3, &config), Constant(1.0, each.samples)), expected);
    }
}

TEST(MovingAverageApply, IsNullForARecordShorterThanOneRepetition)
{
    DeviceConfiguration config = Configuration(8, 16);
    Parameters parameters = ParametersOf(4, &config);
    MovingAverageSmoothingFilter filter(&parameters);
    Record record(Constant(1.0, 127));
    EXPECT_EQ(filter.Apply(&record), nullptr);
    EXPECT_EQ(parameters.WindowLength, 5);  // prepared all the same
    EXPECT_FALSE(parameters.IsDirty());
    config.useFractionalSampling = true;
    config.uiDuration = 10.0;
    config.sampleSpacing = 1.0;  // 160 samples
    EXPECT_EQ(filter.Apply(&record), nullptr);
}

TEST(MovingAverageLifecycle, PreparesWhileDirtyAndResetsIt)
{
    Parameters parameters(3);
    MovingAverageSmoothingFilter filter(&parameters);
    Record record(RandomValues(64, 5));
    Take(filter.Apply(&record), 64);
    EXPECT_FALSE(parameters.IsDirty());
    EXPECT_FALSE(filter.notPrepared);
    EXPECT_TRUE(filter.flag2);
    const double* const kernel = filter.kernel;

    parameters.WindowLength = 7;  // writing a field alone changes nothing
    const auto clean = Take(filter.Apply(&record), 64);
    EXPECT_EQ(filter.kernel, kernel);
    EXPECT_TRUE(AreNear(clean, WindowSums(record.Values(), -1, 1, 3), Bound(3)));
    parameters.SetDirty();
    EXPECT_TRUE(AreNear(Take(filter.Apply(&record), 64), WindowSums(record.Values(), -3, 3, 7), Bound(7)));

    std::fill(filter.kernel, filter.kernel + 64, 0.0);  // what the host writes into the kernel counts
    filter.kernel[2] = 1.0;
    auto delayed = record.Values();
    std::rotate(delayed.rbegin(), delayed.rbegin() + 2, delayed.rend());
    EXPECT_EQ(Take(filter.Apply(&record), 64), delayed);
}

// The kernel of another record is used as it stands: its first taps for a shorter one, none for a longer one.
TEST(MovingAverageLifecycle, UsesTheKernelOfTheRecordItWasPreparedFor)
{
    Parameters parameters(5);
    MovingAverageSmoothingFilter filter(&parameters);
    Record prepared(Constant(1.0, 64));
    Record shorter(RandomValues(40, 6));
    Record longer(Constant(1.0, 65));
    filter.Prepare(&prepared);
    EXPECT_TRUE(AreNear(Take(filter.Apply(&shorter), 40), WindowSums(shorter.Values(), 0, 2, 5), Bound(5)));
    ExpectRefused([&] { filter.Apply(&longer); },
                  "MovingAverageSmoothingFilter: number of kernel taps is 64; expected at least 65; call Prepare");
}

TEST(MovingAverageLifecycle, CopiesShareTheKernelAndParametersCarryTheWindow)
{
    Parameters parameters(5);
    std::optional<MovingAverageSmoothingFilter> filter(&parameters);
    Record record(RandomValues(64, 7));
    const auto expected = Take(filter->Apply(&record), 64);
    MovingAverageSmoothingFilter copy(*filter);
    EXPECT_EQ(copy.kernel, filter->kernel);
    filter.reset();
    EXPECT_TRUE(HaveSameBits(Take(copy.Apply(&record), 64), expected));

    DeviceConfiguration config;
    Parameters source = ParametersOf(9, &config);
    source.ResetDirty();
    parameters = source;
    Parameters moved;
    moved = std::move(source);
    for (const Parameters* each : {&parameters, &moved}) {
        EXPECT_EQ(each->WindowLength, 9);
        EXPECT_EQ(each->GetConfig(), &config);
        EXPECT_FALSE(each->IsDirty());
    }
}

TEST(MovingAverageErrors, NameTheBadRecordAndTheMissingKernel)
{
    Parameters parameters(5);
    MovingAverageSmoothingFilter filter(&parameters);
    Record record(Constant(1.0, 16));
    const std::string where = "MovingAverageSmoothingFilter: ";
    ExpectRefused([&] { filter.Apply(nullptr); }, where + "signal is null; expected a captured waveform");
    ExpectRefused([&] { filter.Prepare(nullptr); }, where + "signal is null; expected a captured waveform");
    ExpectRefused([&] { filter.MovingAverageSmoothing(nullptr, &record); },
                  where + "parameters is null; expected a parameters object");
    parameters.ResetDirty();
    ExpectRefused([&] { filter.Apply(&record); },
                  where + "kernel is null; expected a kernel made by Prepare or assigned by the host");
    record.sampleCount = -2;
    ExpectRefused([&] { filter.Apply(&record); }, where + "sampleCount is -2; expected 0 or more samples");
}

// A repetition without samples leaves the number of repetitions undefined: refused before anything is changed.
TEST(MovingAverageErrors, RefuseARepetitionWithoutSamplesAndChangeNothing)
{
    const struct {
        const char* label;
        int samplesPerUi;
        bool fractional;
        double uiDuration, sampleSpacing;
        std::string text;
    } cases[] = {
        {"no samples per UI", 0, false, 0, 0, "samplesPerUi * patternLengthUi is 0; expected at least 1 sample"},
        {"no UI duration", 8, true, 0, 1,
         "patternLengthUi * (uiDuration / sampleSpacing) is 0; expected at least 1 sample"},
        {"0 / 0", 8, true, 0, 0, "patternLengthUi * (uiDuration / sampleSpacing) is "}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        DeviceConfiguration config = Configuration(each.samplesPerUi, 16);
        config.useFractionalSampling = each.fractional;
        config.uiDuration = each.uiDuration;
        config.sampleSpacing = each.sampleSpacing;
        Parameters parameters = ParametersOf(4, &config);
        MovingAverageSmoothingFilter filter(&parameters);
        Record record(Constant(1.0, 64));
        try {
            filter.Apply(&record);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::invalid_argument& error) {
            // The sign of a NaN is the processor's: of that text the beginning.
            EXPECT_EQ(std::string(error.what()).rfind("MovingAverageSmoothingFilter: " + each.text, 0), 0U)
                << error.what();
        }
        EXPECT_EQ(parameters.WindowLength, 4);
        EXPECT_TRUE(parameters.IsDirty());
        EXPECT_EQ(filter.kernel, nullptr);
    }
}

}  // namespace
