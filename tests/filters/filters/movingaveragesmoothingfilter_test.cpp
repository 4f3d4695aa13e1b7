#include "filters/filters/movingaveragesmoothingfilter.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "filters/apply.h"
#include "maths/responses/movingaverage.h"
#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Parameters = MovingAverageWindowSmoothingParameters;

Parameters ParametersOf(int windowLength, DeviceConfiguration* config)
{
    Parameters parameters(windowLength);
    static_cast<SystemFramework::BaseFilterParameters&>(parameters) = SystemFramework::BaseFilterParameters(config);
    return parameters;
}

std::vector<double> Smoothed(Parameters parameters, const std::vector<double>& samples)
{
    MovingAverageSmoothingFilter filter(&parameters);
    return Filtered(filter, samples);
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

// The window becomes the next odd length of at least 3; its taps stand around lag 0. Where it is longer than the record
// but its half is not, the two ends meet, and each tap is set once.
TEST(MovingAverageKernel, IsTheOddBoxcarAroundLagZero)
{
    const struct {
        int requested, used, count;
    } cases[] = {{-5, 3, 64}, {2, 3, 64}, {3, 3, 64}, {4, 5, 64}, {63, 63, 64}, {9, 9, 8}, {9, 9, 5}};
    for (const auto& [requested, used, count] : cases) {
        SCOPED_TRACE("window " + std::to_string(requested) + " of " + std::to_string(count));
        Parameters parameters(requested);
        MovingAverageSmoothingFilter filter(&parameters);
        Record record(RandomValues(count, 1));
        const auto kernel = Take(filter.MovingAverageSmoothing(&parameters, &record), count);
        EXPECT_EQ(parameters.WindowLength, used);
        for (int k = 0; k < count; ++k)
            EXPECT_EQ(kernel[k], std::min(k, count - k) <= used / 2 ? 1.0 / used : 0.0) << "tap " << k;
    }
}

TEST(MovingAverageApply, WithoutAConfigurationIsTheCentredMeanOfTheWholeRecord)
{
    const auto samples = RandomValues(1000, 1);
    for (const int window : {3, 5, 31, 33, 101}) {
        const auto expected = WindowSums(samples, -(window / 2), window / 2, window);
        EXPECT_TRUE(AreNear(Smoothed(Parameters(window), samples), expected, Maths::MovingAverageError(window)))
            << "window " << window;
    }
}

// Of several repetitions each meets the leading taps alone: lags 0 .. h, gain (h + 1)/w.
TEST(MovingAverageApply, OfSeveralRepetitionsIsAPartialTrailingAverage)
{
    const struct {
        int length, repetitions, window;
    } cases[] = {{128, 2, 3}, {128, 5, 7}, {127, 3, 33}, {2032, 2, 101}};
    for (const auto& [length, repetitions, window] : cases) {
        SCOPED_TRACE("window " + std::to_string(window));
        DeviceConfiguration config = Configuration(1, length);
        std::vector<double> samples;
        std::vector<double> expected;
        for (int r = 0; r < repetitions; ++r) {
            const auto repetition = RandomValues(length, 10 + r);
            const auto sums = WindowSums(repetition, 0, window / 2, window);
            samples.insert(samples.end(), repetition.begin(), repetition.end());
            expected.insert(expected.end(), sums.begin(), sums.end());
        }
        EXPECT_TRUE(
            AreNear(Smoothed(ParametersOf(window, &config), samples), expected, Maths::MovingAverageError(window)));
    }
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

TEST(MovingAverageApply, IsNullButPreparedForARecordShorterThanOneRepetition)
{
    DeviceConfiguration config = Configuration(8, 16);
    Parameters parameters = ParametersOf(4, &config);
    MovingAverageSmoothingFilter filter(&parameters);
    Record record(Constant(1.0, 127));
    EXPECT_EQ(filter.Apply(&record), nullptr);
    ExpectRefused(
        [&] { Filtered(filter, record.Values()); },
        "Filters::Filtered: result of Apply is null; expected a filtered record; the samples may be fewer than "
        "one repetition of the pattern");
    EXPECT_EQ(parameters.WindowLength, 5);
    EXPECT_FALSE(parameters.IsDirty());
}

TEST(MovingAverageLifecycle, PreparesWhileDirtyAndResetsIt)
{
    Parameters parameters(3);
    MovingAverageSmoothingFilter filter(&parameters);
    EXPECT_TRUE(filter.notPrepared && filter.flag2);
    const auto record = RandomValues(64, 5);
    const auto expected = Filtered(filter, record);
    EXPECT_FALSE(parameters.IsDirty() || filter.notPrepared);

    parameters.WindowLength = 7;  // writing a field alone changes nothing
    EXPECT_EQ(Filtered(filter, record), expected);
    parameters.SetDirty();
    EXPECT_TRUE(AreNear(Filtered(filter, record), WindowSums(record, -3, 3, 7), Maths::MovingAverageError(7)));
}

// The kernel of another record is used as it stands: its first taps for a shorter one, none for a longer one.
TEST(MovingAverageLifecycle, UsesTheKernelOfTheRecordItWasPreparedFor)
{
    Parameters parameters(5);
    MovingAverageSmoothingFilter filter(&parameters);
    Record prepared(Constant(1.0, 64));
    const auto shorter = RandomValues(40, 6);
    filter.Prepare(&prepared);
    EXPECT_TRUE(AreNear(Filtered(filter, shorter), WindowSums(shorter, 0, 2, 5), Maths::MovingAverageError(5)));
    ExpectRefused([&] { Filtered(filter, Constant(1.0, 65)); },
                  "MovingAverageSmoothingFilter: number of kernel taps is 64; expected at least 65; call Prepare");
}

TEST(MovingAverageErrors, NameTheValueAndChangeNothing)
{
    DeviceConfiguration config = Configuration(8, 16);
    Parameters parameters = ParametersOf(10, &config);  // 11 samples, 5 to either side
    MovingAverageSmoothingFilter filter(&parameters);
    Record record(Constant(1.0, 5));
    const std::string where = "MovingAverageSmoothingFilter: ";
    ExpectRefused([&] { filter.Apply(&record); },
                  where + "WindowLength is 10; expected half a window shorter than the record of 5 samples");
    ExpectRefused([&] { filter.MovingAverageSmoothing(nullptr, &record); },
                  where + "parameters is null; expected a parameters object");
    EXPECT_EQ(parameters.WindowLength, 10);
    EXPECT_TRUE(parameters.IsDirty() && filter.notPrepared);
    EXPECT_EQ(filter.kernel, nullptr);
}

}  // namespace
