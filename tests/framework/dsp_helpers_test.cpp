#include "framework/dsp_helpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <numbers>
#include <vector>

#include "support/expectations.h"
#include "support/references.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
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

// Two poles at 0.95 and 1.05 of half the symbol rate, a zero found so that the gain at half the symbol rate stands
// `peakingDb` above that at DC; gain 1 at half the symbol rate.
std::function<Complex(double)> PeakingEqualiser(double peakingDb, double symbolRate)
{
    const double half = symbolRate / 2.0;
    const auto relative = [half](double zero, double frequency) {
        const Complex s(0.0, frequency);
        const double p1 = 0.95 * half;
        const double p2 = 1.05 * half;
        return p1 * p2 / zero * (s + zero) / ((s + p1) * (s + p2));
    };
    double low = half / 1000.0;
    double high = half;
    for (int step = 0; step < 60; ++step) {
        const double zero = (low + high) / 2.0;
        (20.0 * std::log10(std::abs(relative(zero, half))) > peakingDb ? low : high) = zero;
    }
    const double scale = 1.0 / std::abs(relative(low, half));
    return [=](double frequency) { return scale * relative(low, frequency); };
}

struct Corrected {
    std::vector<Complex> bins;
    bool applied;
};

Corrected Correct(std::vector<Complex> bins, std::vector<double> frequencies, double corner, double upper)
{
    bool applied = false;
    const std::size_t count = bins.size();
    Complex* raw = DSP_Helpers::preserve_noise_TF(bins.data(), frequencies.data(), count, corner, upper, applied);
    Corrected result{{raw, raw + count}, applied};
    // The one result that comes from malloc.
    std::free(raw);  // NOLINT(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)
    return result;
}

struct ReceiverCase {
    const char* label;
    std::function<Complex(double)> response;
    Axis axis;
    double corner;
    double uncorrected, corrected, analog;
};

std::vector<ReceiverCase> Receivers()
{
    return {{"BT 20 GHz", FourthOrder(20 * kGHz), {850 * kGHz, 8191}, 35 * kGHz, 0.2219, 0.7606, 0.7608},
            {"BT 13.28 GHz", FourthOrder(13.28125 * kGHz), {212.5 * kGHz, 8191}, 35 * kGHz, 0.3617, 0.6290, 0.6291},
            {"BT 13.28 GHz, even", FourthOrder(13.28125 * kGHz), {850 * kGHz, 8192}, 35 * kGHz, 0.1808, 0.6290, 0.6291},
            {"BT 39.84 GHz", FourthOrder(39.84375 * kGHz), {850 * kGHz, 8191}, 35 * kGHz, 0.3132, 0.9237, 0.9238},
            {"BT 20 GHz, corner 60", FourthOrder(20 * kGHz), {850 * kGHz, 8191}, 60 * kGHz, 0.2219, 0.5900, 0.5902},
            {"peaking 6 dB", PeakingEqualiser(6, 25 * kGHz), {800 * kGHz, 8191}, 35 * kGHz, 0.3075, 0.8241, 0.8242}};
}

// rms of unit white noise through the response, before and after, beside that of noise which ends at the corner. The
// figures are rounded to four digits and the corner falls between two bins: 0.2 %.
TEST(PreserveNoise, GivesWhiteNoiseThePowerOfBandLimitedNoise)
{
    for (const auto& receiver : Receivers()) {
        SCOPED_TRACE(receiver.label);
        const auto bins = Sampled(receiver.axis, receiver.response);
        const auto [corrected, applied] = Correct(bins, receiver.axis.Frequencies(), receiver.corner, kUpper);
        EXPECT_TRUE(applied);
        EXPECT_NEAR(NoiseRms(bins), receiver.uncorrected, 0.002 * receiver.uncorrected);
        EXPECT_NEAR(NoiseRms(corrected), receiver.corrected, 0.002 * receiver.corrected);

        std::vector<Complex> analog(20000);
        for (std::size_t k = 0; k < analog.size(); ++k)
            analog[k] = receiver.response((static_cast<double>(k) + 0.5) / static_cast<double>(analog.size()) *
                                          receiver.corner);
        EXPECT_NEAR(NoiseRms(analog), receiver.analog, 0.0005 * receiver.analog);
    }
}

// By Parseval the mean over all bins is now the mean over the bins up to the corner; a sum of count squares.
TEST(PreserveNoise, MakesTheTwoMeansEqualToRounding)
{
    for (const auto& receiver : Receivers()) {
        SCOPED_TRACE(receiver.label);
        const auto frequencies = receiver.axis.Frequencies();
        const auto bins = Sampled(receiver.axis, receiver.response);
        const auto corrected = Correct(bins, frequencies, receiver.corner, kUpper).bins;
        std::vector<Complex> inBand;
        for (std::size_t k = 0; k < frequencies.size() && frequencies[k] <= receiver.corner; ++k)
            inBand.insert(inBand.end(), k == 0 ? 1 : 2, bins[k]);
        EXPECT_NEAR(NoiseRms(corrected), NoiseRms(inBand), 1000.0 * DBL_EPSILON);
    }
}

TEST(PreserveNoise, LeavesTheBandAndWhatLiesAboveItBitForBit)
{
    const Axis axis{850 * kGHz, 8191};
    const auto frequencies = axis.Frequencies();
    const auto bins = Sampled(axis, FourthOrder(20 * kGHz));
    const auto [corrected, applied] = Correct(bins, frequencies, 35 * kGHz, kUpper);
    ASSERT_TRUE(applied);
    for (std::size_t k = 0; k < frequencies.size(); ++k) {
        const std::size_t mirrored = (axis.count - k) % axis.count;
        EXPECT_EQ(corrected[mirrored], std::conj(corrected[k])) << "bin " << k;
        if (frequencies[k] <= 35 * kGHz || frequencies[k] > kUpper) {
            EXPECT_EQ(corrected[k], bins[k]) << "bin " << k;
            continue;
        }
        // Between them the level rises and the phase stays: the quotient is real and at least 1.
        const Complex lift = corrected[k] / bins[k];
        EXPECT_GE(lift.real(), 1.0 - 4 * DBL_EPSILON) << "bin " << k;
        EXPECT_NEAR(lift.imag(), 0.0, 8 * DBL_EPSILON * lift.real()) << "bin " << k;
    }
}

// A raised cosine leads from the response at the corner to one level an octave above it; the level then holds.
TEST(PreserveNoise, RampsUpOverOneOctaveToALevel)
{
    constexpr double kCorner = 35 * kGHz;
    const Axis axis{850 * kGHz, 8191};
    const auto frequencies = axis.Frequencies();
    const auto bins = Sampled(axis, FourthOrder(20 * kGHz));
    const auto corrected = Correct(bins, frequencies, kCorner, kUpper).bins;
    const double level = std::abs(corrected[1000]);  // 104 GHz
    for (std::size_t k = 0; frequencies[k] <= kUpper; ++k) {
        const double octaves = std::clamp(frequencies[k] / kCorner - 1.0, 0.0, 1.0);
        const double share = std::pow(std::sin(std::numbers::pi / 2.0 * octaves), 2);
        const double expected = (1.0 - share) * std::abs(bins[k]) + share * level;
        ASSERT_NEAR(std::abs(corrected[k]), expected, 20 * DBL_EPSILON) << "bin " << k;  // a dozen roundings within 2
    }
}

TEST(PreserveNoise, GivesARealImpulseResponse)
{
    for (const std::size_t count : {511U, 512U}) {
        const Axis axis{850 * kGHz, count};
        const auto bins = Sampled(axis, FourthOrder(20 * kGHz));
        const auto taps = DirectDft(Correct(bins, axis.Frequencies(), 35 * kGHz, kUpper).bins, false);
        double peak = 0.0;
        double imaginary = 0.0;
        for (const Complex tap : taps) {
            peak = std::max(peak, std::abs(tap.real()));
            imaginary = std::max(imaginary, std::abs(tap.imag()));
        }
        EXPECT_LT(imaginary, 1e-14 * peak) << count << " bins";
    }
}

TEST(PreserveNoise, LeavesAFlatResponseFlat)
{
    const Axis axis{400 * kGHz, 1000};
    const auto bins = Sampled(axis, [](double) { return 1.0; });
    const auto [corrected, applied] = Correct(bins, axis.Frequencies(), 35 * kGHz, kUpper);
    EXPECT_TRUE(applied);
    EXPECT_TRUE(AreNear(corrected, bins, 1000.0 * DBL_EPSILON));  // a root of sums over 1000 bins
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
                 {"frequencies descend", bins, {2.0, 1.0, 0.0}, 0.5, 3.0},
                 {"corner zero", bins, axis, 0.0, 3.0},
                 {"corner negative", bins, axis, -1.0, 3.0},
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
        ASSERT_EQ(result.size(), each.bins.size());
        EXPECT_TRUE(each.bins.empty() ||
                    std::memcmp(result.data(), each.bins.data(), result.size() * sizeof(Complex)) == 0);
    }
    EXPECT_TRUE(Correct(bins, axis, 0.5, 3.0).applied);  // the table's own starting point does apply
    const Axis slow{60 * kGHz, 8191};                    // half the sample rate lies below the corner
    EXPECT_FALSE(Correct(Sampled(slow, FourthOrder(20 * kGHz)), slow.Frequencies(), 35 * kGHz, kUpper).applied);
}

TEST(PreserveNoise, IsNotAppliedWithoutFrequencies)
{
    std::vector<Complex> bins{1.0, {0.8, -0.3}, {0.8, 0.3}};
    bool applied = true;
    Complex* raw = DSP_Helpers::preserve_noise_TF(bins.data(), nullptr, 3, 0.5, 2.0, applied);
    EXPECT_FALSE(applied);
    EXPECT_EQ(std::vector<Complex>(raw, raw + 3), bins);
    std::free(raw);  // NOLINT(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)
}

TEST(PreserveNoiseErrors, NameTheNullResponse)
{
    bool applied = true;
    double axis[2] = {0.0, 1.0};
    ExpectRefused([&] { DSP_Helpers::preserve_noise_TF(nullptr, axis, 3, 0.5, 2.0, applied); },
                  "DSP_Helpers::preserve_noise_TF: response is null; expected an array of count values");
    EXPECT_TRUE(applied);  // untouched
}

TEST(Normalize, DividesByTheSum)
{
    const double taps[] = {-0.5, 2.0, 0.5};
    EXPECT_EQ(Take(DSP_Helpers::Normalize(taps, 3), 3), std::vector<double>({-0.25, 1.0, 0.25}));
}

TEST(NormalizeErrors, NameTheSum)
{
    const struct {
        std::vector<double> taps;
        std::string text;
    } cases[] = {{{1.0, -1.0}, "sum is 0; expected a finite sum other than zero"},
                 {{1.0, kNan}, "sum is nan; expected a finite sum other than zero"},
                 {{}, "n is 0; expected at least one value"}};
    for (const auto& [taps, text] : cases)
        ExpectRefused([&taps = taps] { DSP_Helpers::Normalize(taps.data(), static_cast<int>(taps.size())); },
                      "DSP_Helpers::Normalize: " + text);
    ExpectRefused([] { DSP_Helpers::Normalize(nullptr, 2); },
                  "DSP_Helpers::Normalize: a is null; expected an array of n values");
}

TEST(Interp1q, JoinsItsPointsByStraightLines)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double x[] = {-1.0, 0.0, 4.0, 5.0};
    const double y[] = {2.0, 1.0, 3.0, infinity};
    const double xi[] = {4.0, 3.0, -1.0, 0.0, -0.25, 5.0, 4.5, 5.000001, -1.000001, kNan};
    const double expected[] = {3.0, 2.5, 2.0, 1.0, 1.25, infinity, infinity, kNan, kNan, kNan};
    const auto values = Take(DSP_Helpers::interp1q(x, y, 4, xi, 10), 10);
    for (std::size_t k = 0; k < 10; ++k)
        EXPECT_TRUE(std::isnan(expected[k]) ? std::isnan(values[k]) : values[k] == expected[k])
            << "at " << xi[k] << ": " << values[k];
    EXPECT_EQ(Take(DSP_Helpers::interp1q(x, y, 1, x, 1), 1)[0], 2.0);
    EXPECT_TRUE(std::isnan(Take(DSP_Helpers::interp1q(nullptr, nullptr, 0, x, 1), 1)[0]));
    Take(DSP_Helpers::interp1q(x, y, 4, nullptr, 0), 0);
}

TEST(Interp1qErrors, NameTheArray)
{
    const double x[] = {0.0, 1.0, 1.0};
    const double nan[] = {kNan};
    const struct {
        const double* x;
        const double* y;
        int n;
        const double* xi;
        int m;
        const char* text;
    } cases[] = {{x, x, 3, x, 1, "x[2] is 1; expected ascending abscissae"},
                 {nan, x, 1, x, 1, "x[0] is nan; expected ascending abscissae"},
                 {x, x, -1, x, 1, "n is -1; expected 0 or more values"},
                 {x, nullptr, 1, x, 1, "y is null; expected an array of n values"},
                 {x, x, 1, nullptr, 1, "xi is null; expected an array of m values"},
                 {x, x, 1, x, -2, "m is -2; expected 0 or more values"}};
    for (const auto& row : cases)
        ExpectRefused([&] { DSP_Helpers::interp1q(row.x, row.y, row.n, row.xi, row.m); },
                      std::string("DSP_Helpers::interp1q: ") + row.text);
}

}  // namespace
