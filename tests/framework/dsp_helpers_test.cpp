#include "framework/dsp_helpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numbers>
#include <vector>

#include "support/expectations.h"
#include "support/references.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

constexpr double kGHz = 1e9;
constexpr double kUpper = 200 * kGHz;

struct Axis {
    double sampleRate;
    std::size_t count;
    std::vector<double> Frequencies() const
    {
        std::vector<double> frequencies(count / 2 + 1);
        for (std::size_t k = 0; k < frequencies.size(); ++k)
            frequencies[k] = static_cast<double>(k) * sampleRate / static_cast<double>(count);
        return frequencies;
    }
};

std::vector<Complex> Sampled(const Axis& axis, const std::function<Complex(double)>& response)
{
    std::vector<Complex> bins(axis.count);
    const auto frequencies = axis.Frequencies();
    for (std::size_t k = 0; k <= axis.count / 2; ++k) {
        bins[k] = response(frequencies[k]);
        if (k > 0)
            bins[axis.count - k] = std::conj(bins[k]);
        if (2 * k == axis.count)
            bins[k] = bins[k].real();
    }
    return bins;
}

std::function<Complex(double)> FourthOrder(double cutoff)
{
    constexpr double kHalfPower = 2.1139176749042;  // |B_4(0) / B_4(jw)|^2 = 1/2
    return [cutoff](double frequency) { return BesselThomsonAt(4, kHalfPower * frequency / cutoff); };
}

// Gain 1 at half a symbol rate of 25 GBd and 6 dB less at DC; the zero was found by bisection.
Complex PeakingEqualiser(double frequency)
{
    constexpr double kZero = 3.22703083694502 * kGHz;
    const auto relative = [&](Complex s) { return (s + kZero) / ((s + 11.875 * kGHz) * (s + 13.125 * kGHz)); };
    return relative(Complex(0.0, frequency)) / std::abs(relative(Complex(0.0, 12.5 * kGHz)));
}

struct Corrected {
    std::vector<Complex> bins;
    bool applied;
};

Corrected Correct(std::vector<Complex> bins, std::vector<double> frequencies, double corner, double upper)
{
    bool applied = false;
    const std::size_t count = bins.size();
    Complex* raw = DSP_Helpers::preserve_noise_TF(bins.data(), frequencies.empty() ? nullptr : frequencies.data(),
                                                  count, corner, upper, applied);
    Corrected result{{raw, raw + count}, applied};
    // The one result that comes from malloc.
    std::free(raw);  // NOLINT(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)
    return result;
}

// rms of unit white noise through the response: that of noise which ends at the corner. The figures, integrals over
// frequency, are rounded to four digits and the corner falls between two bins: 0.2 %. The mean over the bins up to the
// corner is met to rounding of a sum of count squares.
TEST(PreserveNoise, GivesWhiteNoiseThePowerOfBandLimitedNoise)
{
    const struct {
        const char* label;
        std::function<Complex(double)> response;
        Axis axis;
        double corner, rms;
    } cases[] = {{"BT 20 GHz", FourthOrder(20 * kGHz), {850 * kGHz, 8191}, 35 * kGHz, 0.7608},
                 {"BT 13.28 GHz", FourthOrder(13.28125 * kGHz), {212.5 * kGHz, 8191}, 35 * kGHz, 0.6291},
                 {"BT 13.28 GHz, even", FourthOrder(13.28125 * kGHz), {850 * kGHz, 8192}, 35 * kGHz, 0.6291},
                 {"BT 39.84 GHz", FourthOrder(39.84375 * kGHz), {850 * kGHz, 8191}, 35 * kGHz, 0.9238},
                 {"BT 20 GHz, corner 60", FourthOrder(20 * kGHz), {850 * kGHz, 8191}, 60 * kGHz, 0.5902},
                 {"peaking 6 dB", PeakingEqualiser, {800 * kGHz, 8191}, 35 * kGHz, 0.8242},
                 {"flat", [](double) { return 1.0; }, {400 * kGHz, 1000}, 35 * kGHz, 1.0}};
    for (const auto& [label, response, axis, corner, rms] : cases) {
        SCOPED_TRACE(label);
        const auto bins = Sampled(axis, response);
        const auto frequencies = axis.Frequencies();
        const auto [corrected, applied] = Correct(bins, frequencies, corner, kUpper);
        EXPECT_TRUE(applied);
        EXPECT_NEAR(NoiseRms(corrected), rms, 0.002 * rms);
        std::vector<Complex> inBand;
        for (std::size_t k = 0; k < frequencies.size() && frequencies[k] <= corner; ++k)
            inBand.insert(inBand.end(), k == 0 ? 1 : 2, bins[k]);
        EXPECT_NEAR(NoiseRms(corrected), NoiseRms(inBand), 1000.0 * DBL_EPSILON);
        if (rms == 1.0) {  // what is flat stays flat, to a root of sums over 1000 bins
            EXPECT_TRUE(AreNear(corrected, bins, 1000.0 * DBL_EPSILON));
        }
    }
}

// A raised cosine leads from the response at the corner to one level an octave above it, which holds up to the upper
// end; the phase stays, and so does all that lies outside, bit for bit.
TEST(PreserveNoise, RampsUpOverOneOctaveToALevel)
{
    constexpr double kCorner = 35 * kGHz;
    for (const std::size_t count : {8191U, 8192U}) {
        const Axis axis{850 * kGHz, count};
        const auto frequencies = axis.Frequencies();
        const auto bins = Sampled(axis, FourthOrder(20 * kGHz));
        const auto corrected = Correct(bins, frequencies, kCorner, kUpper).bins;
        const double level = std::abs(corrected[1000]);  // 104 GHz
        for (std::size_t k = 0; k < frequencies.size(); ++k) {
            SCOPED_TRACE(testing::Message() << "bin " << k << " of " << count);
            ASSERT_EQ(corrected[(count - k) % count], std::conj(corrected[k]));
            if (frequencies[k] <= kCorner || frequencies[k] > kUpper) {
                ASSERT_EQ(corrected[k], bins[k]);
                continue;
            }
            const double octaves = std::min(frequencies[k] / kCorner - 1.0, 1.0);
            const double share = std::pow(std::sin(std::numbers::pi / 2.0 * octaves), 2);
            const double magnitude = std::abs(bins[k]);
            const Complex expected = ((1.0 - share) * magnitude + share * level) / magnitude * bins[k];
            ASSERT_NEAR(std::abs(corrected[k] - expected), 0.0, 20 * DBL_EPSILON);  // a dozen roundings within 2
        }
    }
}

// Bins as good as zero have no phase of their own; a pure delay's goes on in a straight line through them.
TEST(PreserveNoise, ContinuesThePhaseOfADelayThroughANull)
{
    const Axis axis{400 * kGHz, 801};
    constexpr double kDelay = 10.3e-12;
    const auto bins = Sampled(axis, [](double frequency) {
        return std::polar(frequency < 60 * kGHz ? 1.0 : 1e-12, -2.0 * std::numbers::pi * frequency * kDelay);
    });
    const auto frequencies = axis.Frequencies();
    const auto [corrected, applied] = Correct(bins, frequencies, 35 * kGHz, kUpper);
    ASSERT_TRUE(applied);
    for (std::size_t k = 0; k < frequencies.size(); ++k) {
        const Complex direction = corrected[k] / std::abs(corrected[k]);
        // Each of 280 bins doubles the step's rounding of the one before: eps k^2 is 2e-11.
        EXPECT_NEAR(std::abs(direction - std::polar(1.0, -2.0 * std::numbers::pi * frequencies[k] * kDelay)), 0.0,
                    1e-10)
            << k;
    }
}

TEST(PreserveNoise, IsNotAppliedWhereItCannotBe)
{
    const std::vector<Complex> bins{1.0, {0.8, -0.3}, {0.2, -0.4}, {0.2, 0.4}, {0.8, 0.3}};
    const std::vector<double> axis{0.0, 1.0, 2.0};
    std::vector<Complex> broken = bins;
    broken[3] = {0.2, kNan};
    std::vector<Complex> loudAbove = bins;
    loudAbove[2] = loudAbove[3] = 100.0;
    // Not so much that the level became complex: only negative.
    const std::vector<Complex> loudInTheRamp{1.0, 1.0, 2.311, 0.0, 0.0, 0.0, 0.0, 2.311, 1.0};
    const struct {
        const char* label;
        std::vector<Complex> bins;
        std::vector<double> axis;
        double corner, upper;
    } cases[] = {{"no bins", {}, {0.0}, 0.5, 3.0},
                 {"two bins", {1.0, 0.5}, {0.0, 1.0}, 0.5, 3.0},
                 {"a bin is NaN", broken, axis, 0.5, 3.0},
                 {"a frequency is NaN", bins, {0.0, kNan, 2.0}, 0.5, 3.0},
                 {"a frequency repeats", bins, {0.0, 1.0, 1.0}, 0.5, 3.0},
                 {"no frequencies", bins, {}, 0.5, 3.0},
                 {"corner zero", bins, axis, 0.0, 3.0},
                 {"corner NaN", bins, axis, kNan, 3.0},
                 {"upper at the corner", bins, axis, 0.5, 0.5},
                 {"upper NaN", bins, axis, 0.5, kNan},
                 {"corner at the last bin", bins, axis, 2.0, 3.0},
                 {"no bin between corner and upper", bins, axis, 0.5, 0.75},
                 {"more power above upper than there may be", loudAbove, axis, 0.5, 1.5},
                 {"more power in the ramp", loudInTheRamp, {0.0, 1.0, 2.0, 3.0, 4.0}, 1.5, 4.0}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        const auto [result, applied] = Correct(each.bins, each.axis, each.corner, each.upper);
        EXPECT_FALSE(applied);
        EXPECT_TRUE(each.bins.empty() ||
                    std::memcmp(result.data(), each.bins.data(), result.size() * sizeof(Complex)) == 0);
    }
    EXPECT_TRUE(Correct(bins, axis, 0.5, 3.0).applied);  // the table's own starting point does apply
}

}  // namespace
