#include "framework/gaussianfilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <vector>

#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

constexpr double kRate = 26.5625;  // [GBd]

std::vector<double> Taps(double baudRateGBd, double bandwidth, int samplesPerUi, int count)
{
    int length = 0;
    double* raw = GaussianFilter::GetGaussianFilter_A(length, baudRateGBd, bandwidth, samplesPerUi, count, false, 0, 0);
    EXPECT_EQ(length, count);
    return Take(raw, static_cast<std::size_t>(count));
}

// The taps' own response at a frequency.
double LossDb(const std::vector<double>& taps, double sampleRate, double frequency)
{
    double gain = 0.0;
    for (std::size_t m = 0; m < taps.size(); ++m) {
        const auto lag = static_cast<double>(std::min(m, taps.size() - m));
        gain += taps[m] * std::cos(2.0 * std::numbers::pi * frequency * lag / sampleRate);
    }
    return -20.0 * std::log10(gain);
}

// Where a rising stretch crosses a height, in samples, on the line between its neighbours.
double Crossing(const std::vector<double>& values, std::size_t from, double height)
{
    while (values[from + 1] < height)
        ++from;
    return static_cast<double>(from) + (height - values[from]) / (values[from + 1] - values[from]);
}

// Figures worked out once in another language; printed to seven digits.
TEST(GaussianFilterTaps, AreThoseOfTheBellSampledInFrequency)
{
    const struct {
        double baudRateGBd, bandwidth;
        int samplesPerUi, length;
        std::vector<double> first;
    } cases[] = {{kRate, 80.0, 16, 131056, {0.5514292, 0.2189584, 0.0026505}},
                 {12.7, 100.0, 64, 8128, {0.3701541, 0.2409573}}};
    for (const auto& each : cases) {
        const auto taps = Taps(each.baudRateGBd, each.bandwidth, each.samplesPerUi, each.length);
        EXPECT_TRUE(AreNear(std::span(taps).first(each.first.size()), each.first, 6e-8));
        EXPECT_NEAR(std::accumulate(taps.begin(), taps.end(), 0.0), 1.0, 64 * DBL_EPSILON);
        for (std::size_t lag = 1; lag < 20; ++lag)
            EXPECT_NEAR(taps[lag], taps[taps.size() - lag], 4 * DBL_EPSILON);
    }
    const auto taps = Taps(kRate, 80.0, 16, 131056);
    EXPECT_NEAR(LossDb(taps, 16 * kRate, 80.0), 3.0103, 5e-5);
    EXPECT_NEAR(LossDb(taps, 16 * kRate, 50.0), 1.1759, 5e-5);
    // Towards half the sample rate the transform is cut off, and small negative lobes are right.
    const auto coarse = Taps(kRate, 80.0, 8, 65528);
    EXPECT_NEAR(*std::min_element(coarse.begin(), coarse.end()), -0.018, 0.0005);
    // Half height to half height, in ps at 53.125 GBd and 32 samples per UI; lines between samples round it by 0.02.
    const auto fine = Taps(53.125, 80.0, 32, 4064);
    const std::vector<double> falling(fine.begin(), fine.begin() + 8);
    const std::vector<double> rising(falling.rbegin(), falling.rend());
    EXPECT_NEAR(2.0 * (7.0 - Crossing(rising, 0, fine[0] / 2.0)) * 1000.0 / (32 * 53.125), 3.918, 0.001);
}

TEST(GaussianFilterTaps, MeetTheDroopAsked)
{
    constexpr double kBin = 64 * kRate / 640;
    int length = 0;
    for (const double droopDb : {0.2, 1.0, 3.0}) {
        const auto taps =
            Take(GaussianFilter::GetGaussianFilter_A(length, kRate, 80.0, 64, 640, true, droopDb, 20 * kBin), 640);
        EXPECT_NEAR(LossDb(taps, 64 * kRate, 20 * kBin), droopDb, 1e-12);  // the response itself, on its own grid
    }
    const auto byDroop = Take(GaussianFilter::GetGaussianFilter_A(length, kRate, 80.0, 64, 640, true, 0.2, 50.0), 640);
    // The bandwidth was given to five digits; a tap changes by at most its own share.
    EXPECT_TRUE(AreNear(byDroop, Taps(kRate, 193.98, 64, 640), 1e-5));
}

TEST(GaussianFilterApply, RoundsAStepAndMovesNothing)
{
    constexpr int kSamplesPerUi = 64;
    constexpr double kPsPerSample = 1000.0 / (kSamplesPerUi * kRate);
    for (const std::size_t half : {320U, 321U, 4099U}) {  // the last is prime
        std::vector<double> step(2 * half + 1, 0.0);
        std::fill(step.begin() + static_cast<std::ptrdiff_t>(half), step.end(), 1.0);
        const auto given = step;
        const int count = static_cast<int>(step.size());
        const auto rounded =
            Take(GaussianFilter::ApplyGaussianFilter(step.data(), count, kRate, 40.0, kSamplesPerUi), step.size());
        EXPECT_EQ(step, given);
        EXPECT_NEAR(Crossing(rounded, half - 20, 0.5), static_cast<double>(half) - 0.5, 1e-9);
        const double rise = Crossing(rounded, half - 20, 0.8) - Crossing(rounded, half - 20, 0.2);
        EXPECT_NEAR(rise * kPsPerSample, 5.576, 0.01);  // lines between samples of 0.6 ps
        const auto mean = [](const std::vector<double>& values) {
            return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
        };
        EXPECT_NEAR(mean(rounded), mean(given), 1e-15);
    }
}

TEST(GaussianFilterApply, IsTheCircularConvolutionWithTheTaps)
{
    const auto samples = RandomValues(217, 5);
    const auto filtered = Take(GaussianFilter::ApplyGaussianFilter(samples.data(), 217, kRate, 40.0, 7), 217);
    EXPECT_TRUE(AreNear(filtered, DirectConvolution(samples, Taps(kRate, 40.0, 7, 217)), 32 * DBL_EPSILON));
}

TEST(GaussianFilterErrors, NameTheValue)
{
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double rate, bandwidth;
        int samplesPerUi, count;
        double droopDb, droopGHz;
        std::string taps;
        std::string apply;  // none: not asked of it
    } cases[] = {
        {0.0, 80.0, 16, 64, 1, 1, "baudRateGBd is 0; expected a finite positive symbol rate in GBd", "same"},
        {kNan, 80.0, 16, 64, 1, 1, "baudRateGBd is nan; expected a finite positive symbol rate in GBd", "same"},
        {kRate, -1.0, 16, 64, 1, 1, "bandwidth is -1; expected a finite positive bandwidth in GHz", "same"},
        {kRate, 80.0, 0, 64, 1, 1, "samplesPerUi is 0; expected at least 1 sample per UI", "same"},
        {kRate, 80.0, 16, 0, 1, 1, "workingLength is 0; expected at least 1 tap", "n is 0; expected at least 1 sample"},
        {kRate, 80.0, 16, 64, 0, 1, "droopDb is 0; expected a finite positive loss in dB", ""},
        {kRate, 80.0, 16, 64, 1, -2, "droopGHz is -2; expected a finite positive frequency in GHz", ""},
    };
    const std::vector<double> samples(64);
    for (const auto& each : cases) {
        int length = 77;
        ExpectRefused(
            [&] {
                GaussianFilter::GetGaussianFilter_A(length, each.rate, each.bandwidth, each.samplesPerUi, each.count,
                                                    true, each.droopDb, each.droopGHz);
            },
            "GaussianFilter::GetGaussianFilter_A: " + each.taps);
        EXPECT_EQ(length, 77);
        if (!each.apply.empty())
            ExpectRefused(
                [&] {
                    GaussianFilter::ApplyGaussianFilter(samples.data(), each.count, each.rate, each.bandwidth,
                                                        each.samplesPerUi);
                },
                "GaussianFilter::ApplyGaussianFilter: " + (each.apply == "same" ? each.taps : each.apply));
    }
    ExpectRefused([] { GaussianFilter::ApplyGaussianFilter(nullptr, 3, kRate, 40.0, 16); },
                  "GaussianFilter::ApplyGaussianFilter: x is null; expected an array of n samples");
}

}  // namespace
