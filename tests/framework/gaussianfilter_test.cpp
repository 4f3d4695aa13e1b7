#include "framework/gaussianfilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
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
    const auto taps = Taps(kRate, 80.0, 16, 131056);
    EXPECT_TRUE(AreNear(std::span(taps).first(3), std::vector{0.5514292, 0.2189584, 0.0026505}, 6e-8));
    EXPECT_NEAR(std::accumulate(taps.begin(), taps.end(), 0.0), 1.0, 64 * DBL_EPSILON);
    const auto odd = Taps(kRate, 40.0, 64, 641);
    EXPECT_NEAR(LossDb(odd, 64 * kRate, 40.0), 3.0103, 5e-5);
    for (const auto& each : {taps, odd})
        for (std::size_t lag = 1; lag < 20; ++lag)
            EXPECT_NEAR(each[lag], each[each.size() - lag], 4 * DBL_EPSILON);
    EXPECT_NEAR(LossDb(taps, 16 * kRate, 80.0), 3.0103, 5e-5);
    EXPECT_NEAR(LossDb(taps, 16 * kRate, 50.0), 1.1759, 5e-5);
    const auto narrow = Taps(12.7, 100.0, 64, 8128);
    EXPECT_TRUE(AreNear(std::span(narrow).first(2), std::vector{0.3701541, 0.2409573}, 6e-8));
    // Half height to half height, in ps at 53.125 GBd and 32 samples per UI; lines between samples round it by 0.02.
    const auto fine = Taps(53.125, 80.0, 32, 4064);
    const std::vector<double> rising(fine.rbegin() + 4056, fine.rend());
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
}

TEST(GaussianFilterApply, IsTheCircularConvolutionWithTheTaps)
{
    for (const int count : {216, 217, 1009}) {  // the last is prime
        const auto samples = RandomValues(static_cast<std::size_t>(count), 5);
        const auto filtered =
            Take(GaussianFilter::ApplyGaussianFilter(samples.data(), count, kRate, 40.0, 7), samples.size());
        EXPECT_TRUE(AreNear(filtered, DirectConvolution(samples, Taps(kRate, 40.0, 7, count)), 32 * DBL_EPSILON));
    }
}

}  // namespace
