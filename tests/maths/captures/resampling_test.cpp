#include "maths/captures/resampling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "support/bandlimited.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;
using Values = std::vector<double>;

constexpr double kTurn = 2.0 * std::numbers::pi;

// 40 tones of equal amplitude and random phase, evenly spread up to a share of the lower sample rate. The window's
// transition begins at 0.44; what is left below is its ripple.
TEST(Resampling, BringsTonesBack)
{
    const struct {
        double upTo;
        double bound;  // of the rms
    } cases[] = {{0.40, 1.0e-5}, {0.43, 1.2e-5}, {0.45, 6.5e-5}};
    constexpr std::size_t kTones = 40;
    constexpr std::size_t kCount = 4000;
    for (const double rate : {16.0 / 3.7123, 1.1, 0.4})
        for (const auto& [upTo, bound] : cases) {
            const Values phases = RandomValues(kTones, 3);
            const auto sum = [&, upTo = upTo](double position) {
                double value = 0.0;
                for (std::size_t k = 0; k < kTones; ++k)
                    value += std::cos(kTurn * upTo * std::min(rate, 1.0) * static_cast<double>(k) / kTones * position +
                                      kTurn * phases[k]);
                return value;
            };
            Values samples(kCount);
            for (std::size_t i = 0; i < kCount; ++i)
                samples[i] = sum(static_cast<double>(i));
            const Resampler resampler(rate);
            const auto used = static_cast<double>(resampler.UsedUp());
            const auto count = static_cast<std::size_t>((kCount - 1.0 - 2.0 * used) * rate);
            const auto positionOf = [&](std::size_t i) { return used + static_cast<double>(i) / rate; };
            const Values values =
                Resampled(samples, resampler, count, [&](std::size_t first, std::span<double> positions) {
                    for (std::size_t i = 0; i < positions.size(); ++i)
                        positions[i] = positionOf(first + i);
                });
            double error = 0.0;
            double power = 0.0;
            for (std::size_t i = 0; i < count; ++i) {
                const double expected = sum(positionOf(i));
                error += (values[i] - expected) * (values[i] - expected);
                power += expected * expected;
            }
            EXPECT_LE(std::sqrt(error / power), bound) << "rate " << rate << ", tones up to " << upTo;
        }
}

TEST(Resampling, GivesTheSamplesThemselvesAtTheirPositions)
{
    const Values samples = RandomValues(200, 1);
    const Resampler resampler(2.0);
    ASSERT_EQ(resampler.UsedUp(), 24U);
    Values positions;
    for (std::size_t i = 24; i <= 175; ++i)
        positions.push_back(static_cast<double>(i));
    Values values(positions.size());
    resampler.At(samples, positions, values);
    // sin(pi n) is not quite 0: a rounding for each of 48 taps.
    EXPECT_TRUE(AreNear(values, std::span<const double>(samples).subspan(24, 152), 48 * 3e-16));
}

// Along a clock that moves, the waveform comes out as one of a constant clock: sample k N where a UI begins.
TEST(Resampling, FollowsAClock)
{
    const Values levels = RandomValues(4100, 4);
    SymbolClock clock{3.7123, 1.1, 100.0, 800.0, {}};
    for (std::size_t knot = 0; knot < 19; ++knot)
        clock.deviationUi.push_back(0.3 * std::sin(static_cast<double>(knot)));
    constexpr double kEdge = 0.45;  // [UI] nothing above 0.44 of the sample rate
    const Values samples = BandLimited(
        levels, 15000, [&](double position) { return clock.UiAt(position); }, kEdge);
    for (const std::size_t samplesPerUi : {4U, 16U}) {
        const AlignedRecord record = ResampledAlong(clock, samples, samplesPerUi);
        EXPECT_EQ(record.samples.size() % samplesPerUi, 0U);
        EXPECT_GE(record.samples.size() / samplesPerUi, 4025U);  // of 4040, 24 samples used up at either end
        EXPECT_GE(record.firstPosition, 24.0);
        EXPECT_LT(record.firstPosition, 24.0 + 2 * 3.7123);
        EXPECT_NEAR(clock.UiAt(record.firstPosition), record.firstUi, 1e-9);
        Values expected(record.samples.size());
        for (std::size_t i = 0; i < expected.size(); ++i)
            expected[i] = BandLimitedAt(
                levels, record.firstUi + static_cast<double>(i) / static_cast<double>(samplesPerUi), kEdge);
        EXPECT_TRUE(AreNear(record.samples, expected, 2e-4));  // the knots bend the clock, and so widen the band
    }
}

TEST(Resampling, HasNothingToGiveForShortRecords)
{
    const SymbolClock clock{8.0, 0.5, 0.0, 0.0, {}};
    for (const std::size_t count : {0U, 1U, 48U, 49U, 56U}) {
        const AlignedRecord record = ResampledAlong(clock, Constant(1.0, count), 16);
        EXPECT_TRUE(record.samples.empty()) << count;
    }
    EXPECT_EQ(ResampledAlong(clock, Constant(1.0, 66), 16).samples.size(), 32U);
}

TEST(Resampling, RefusesPositionsOutside)
{
    const Values samples = Constant(1.0, 100);
    Values value(1);
    const Resampler resampler(1.0);
    for (const double position : {23.5, 75.5, std::nan("")})
        EXPECT_THROW(resampler.At(samples, Values{position}, value), std::invalid_argument) << position;
    ExpectRefused([&] { resampler.At(samples, Values{10.0}, value); },
                  "Resampler: position is 10.000000; expected 24 to 75.000000");
    ExpectRefused([] { Resampler{0.0}; }, "Resampler: rate is 0.000000; expected at least 1/4096");
}

}  // namespace
