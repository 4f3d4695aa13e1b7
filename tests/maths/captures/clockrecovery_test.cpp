#include "maths/captures/clockrecovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

#include "support/bandlimited.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;
using Values = std::vector<double>;

constexpr double kTurn = 2.0 * std::numbers::pi;

/// Random symbols of evenly spaced levels from -1 to 1.
Values RandomLevels(std::size_t count, int levelCount, std::uint64_t seed)
{
    Values levels = RandomValues(count, seed);
    for (double& level : levels)
        level = 2.0 * std::floor((level + 1.0) / 2.0 * levelCount) / (levelCount - 1) - 1.0;
    return levels;
}

Values Prbs(std::size_t order, std::size_t tap)
{
    Values levels;
    for (const int bit : PrbsLevels(order, tap))
        levels.push_back(2.0 * bit - 1.0);
    return levels;
}

Values WithNoise(Values samples, double amplitude)
{
    const Values noise = RandomValues(samples.size(), 99);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] += amplitude * noise[i];
    return samples;
}

std::function<double(double)> Rate(double samplesPerUi, double boundary = 0.0)
{
    return [=](double position) { return (position - boundary) / samplesPerUi; };
}

/// rms of the clock's u(t) about the true one, but for a constant.
double LeftOver(const SymbolClock& clock, std::size_t count, const std::function<double(double)>& uiAt)
{
    double sum = 0.0;
    double squares = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        const double error = uiAt(static_cast<double>(i)) - clock.UiAt(static_cast<double>(i));
        sum += error;
        squares += error * error;
    }
    const auto n = static_cast<double>(count);
    return std::sqrt(squares / n - sum * sum / n / n);
}

// The rate without a guess: open and closed eyes, two and four levels, between 2 and 200 samples per UI.
TEST(ClockRecovery, FindsTheSymbolRateWithoutAGuess)
{
    const Values closing = {1.0, 0.6, 0.3};  // closes the eye of NRZ
    const Values weak = {1.0, 0.3, 0.1};
    const struct {
        const char* label;
        double samplesPerUi;
        std::size_t samples;
        Values levels;
        double noise;
        double bound;  // [UI] over the record: 1e-3 for open eyes, the pattern's own share for others
        double leastScore;
    } cases[] = {
        {"NRZ", 3.7123, 60000, RandomLevels(16384, 2, 1), 0.0, 1e-3, 50.0},
        {"NRZ, closed", 3.7123, 18600, WithEchoes(Prbs(9, 5), closing), 0.02, 2e-2, 20.0},
        {"PAM4", 3.7123, 60000, WithEchoes(RandomLevels(16384, 4, 2), weak), 0.0, 1e-2, 20.0},
        {"NRZ, 50 ppm off", 8.0004, 40000, RandomLevels(5000, 2, 3), 0.0, 1e-3, 50.0},
        {"PAM4, 50 ppm off", 8.0004, 40000, RandomLevels(5000, 4, 4), 0.0, 1e-2, 20.0},
        {"near half the sample rate", 2.05, 40000, RandomLevels(20000, 2, 5), 0.0, 2e-3, 50.0},
        {"slow", 199.0, 270000, RandomLevels(1400, 2, 6), 0.0, 1e-2, 10.0},
        {"noise of the signal's own size", 8.1, 300000, RandomLevels(40000, 2, 7), 0.5, 3e-2, 10.0},
        {"258 repetitions", 8.0, 262144, WithEchoes(Prbs(7, 6), closing), 0.0, 1e-3, 10.0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const Values samples =
            WithNoise(BandLimited(row.levels, row.samples, Rate(row.samplesPerUi, 1.25), 0.35), row.noise);
        const RecoveredClock result = RecoverClock(samples);
        ASSERT_TRUE(result.found);
        EXPECT_GE(result.score, row.leastScore);
        const auto count = static_cast<double>(row.samples);
        EXPECT_NEAR(count / result.clock.samplesPerUi, count / row.samplesPerUi, row.bound);
        EXPECT_LT(result.phaseResidualUi, 0.05);
    }
}

// Slow edges whose line drowns in the noise of all that the record's bandwidth holds beside it.
TEST(ClockRecovery, FindsSlowClocksBelowTheNoiseOfTheBandwidth)
{
    const struct {
        double samplesPerUi;
        double edgeUi;
        double noise;
    } cases[] = {{20.3, 0.35, 0.3}, {40.3, 0.42, 0.5}, {120.7, 0.5, 0.3}};
    for (const auto& [samplesPerUi, edgeUi, noise] : cases) {
        const RecoveredClock result =
            RecoverClock(WithNoise(BandLimited(RandomLevels(10000, 2, 8), 200000, Rate(samplesPerUi), edgeUi), noise));
        ASSERT_TRUE(result.found) << samplesPerUi;
        EXPECT_NEAR(result.clock.samplesPerUi, samplesPerUi, 1e-4 * samplesPerUi);
        EXPECT_LT(result.phaseResidualUi, 0.05);
    }
}

// Symmetric edges are symmetric about the boundaries, so the line's phase puts these where they are.
TEST(ClockRecovery, PutsTheBoundariesBetweenTheSymbols)
{
    for (const double boundary : {0.0, 0.7, 3.3, 7.9}) {
        const Values samples = BandLimited(RandomLevels(5000, 2, 1), 40000, Rate(8.0, boundary));
        for (const RecoveredClock& result : {RecoverClock(samples), ClockOfRate(samples, 8.0)}) {
            const double away = (result.clock.boundary - boundary) / 8.0;
            EXPECT_NEAR(away - std::round(away), 0.0, 2e-3) << boundary;  // of 5000 random symbols
            EXPECT_GE(result.clock.boundary, 0.0);
            EXPECT_LT(result.clock.boundary, 8.0);
        }
    }
}

TEST(ClockRecovery, FindsNoneWhereThereIsNone)
{
    constexpr std::size_t kCount = 100000;
    Values walk = RandomValues(kCount, 5);
    std::partial_sum(walk.begin(), walk.end(), walk.begin());
    Values ramp(kCount);
    std::iota(ramp.begin(), ramp.end(), 0.0);
    Values step(kCount, 0.0);
    std::fill(step.begin() + 30000, step.end(), 1.0);
    Values broken = ramp;
    broken[777] = std::numeric_limits<double>::quiet_NaN();
    Values huge = ramp;
    huge[777] = std::numeric_limits<double>::infinity();
    const struct {
        const char* label;
        Values samples;
    } cases[] = {
        {"white noise", RandomValues(kCount, 1)},
        {"random walk", walk},
        {"ramp", ramp},
        {"step", step},
        {"constant", Constant(0.3, kCount)},
        {"not a number", broken},
        {"infinity", huge},
        {"nothing", {}},
        {"127 samples", BandLimited(RandomLevels(64, 2, 1), 127, Rate(2.5))},
        {"a gap with noise", WithNoise(Constant(0.0, 500000), 1e-3)},
    };
    for (const auto& [label, samples] : cases) {
        const RecoveredClock result = RecoverClock(samples);
        EXPECT_FALSE(result.found) << label;
        EXPECT_LT(result.score, 7.0) << label;
    }
}

// Short records of noise, in which few bins make up a background.
TEST(ClockRecovery, TakesNoShortNoiseForAClock)
{
    for (const std::size_t count : {128U, 200U, 500U, 1000U, 3000U})
        for (std::uint64_t seed = 1; seed <= 100; ++seed)
            ASSERT_LT(RecoverClock(RandomValues(count, seed)).score, kLeastClockScore) << count << " values, " << seed;
}

// The line is looked for in a part of a long record: in another one where the first choice is empty.
TEST(ClockRecovery, PassesOverAGap)
{
    Values samples = BandLimited(RandomLevels(50000, 2, 1), 700000, Rate(12.5));
    std::fill(samples.begin() + 150000, samples.begin() + 550000, 0.0);
    const RecoveredClock result = RecoverClock(samples);
    ASSERT_TRUE(result.found);
    EXPECT_NEAR(result.clock.samplesPerUi, 12.5, 1e-4);
}

// A sinusoidal deviation of 0.4 UI: a tenth of the loop's bandwidth is followed but for u^2 = 0.042 of it, u the frequency over
// the loop's natural one; at ten times the bandwidth it stays in the capture. Neither keeps the rate from being found.
TEST(ClockRecovery, TracksWhatIsSlowerThanTheLoop)
{
    constexpr std::size_t kCount = 320000;
    const Values levels = RandomLevels(40100, 2, 8);
    const struct {
        double perBandwidth;
        double least, most;  // [UI] rms left of 0.283
    } cases[] = {{0.1, 0.010, 0.0125}, {10.0, 0.281, 0.285}};
    for (const auto& row : cases) {
        const double frequency = row.perBandwidth / 1667.0;  // [cycles a UI]
        const auto uiAt = [&](double position) {
            return position / 8.0 + 0.4 * std::sin(kTurn * frequency * position / 8.0);
        };
        ClockSearch search;
        search.tracking = ClockTracking::Tracked;
        const RecoveredClock result = RecoverClock(BandLimited(levels, kCount, uiAt), search);
        ASSERT_TRUE(result.found);
        EXPECT_NEAR(result.clock.samplesPerUi, 8.0, 1e-4);
        const double left = LeftOver(result.clock, kCount, uiAt);
        EXPECT_GE(left, row.least);
        EXPECT_LE(left, row.most);
    }
}

// Half a per cent down-spread at 31.5 kHz, 5 GBd at 40 GS/s: the deviation is many UI, and the line a smear.
TEST(ClockRecovery, FollowsASpreadSpectrumClock)
{
    constexpr std::size_t kCount = 600000;
    constexpr double kSpread = 0.0025;
    constexpr double kPeriod = 40e9 / 31.5e3;  // [samples]
    const auto uiAt = [](double position) {
        return position * (1.0 - kSpread) / 8.0 +
               kSpread / 8.0 * kPeriod / kTurn * std::sin(kTurn * position / kPeriod);
    };
    ClockSearch search;
    search.tracking = ClockTracking::Tracked;
    const RecoveredClock result = RecoverClock(BandLimited(RandomLevels(75100, 2, 9), kCount, uiAt), search);
    ASSERT_TRUE(result.found);
    EXPECT_GT(result.phaseResidualUi, 5.0);
    EXPECT_NEAR(result.trackedUi, result.phaseResidualUi, 0.1);
    EXPECT_LT(LeftOver(result.clock, kCount, uiAt), 0.05);
}

// Positions and numbers of UI are each other's inverse, inside the knots and beyond them.
TEST(SymbolClock, GivesThePositionsOfItsUi)
{
    const SymbolClock clocks[] = {{3.7, 1.2, 0.0, 0.0, {}}, {8.0, 2.0, 40.0, 64.0, {0.1, -0.3, 0.25, 0.2, 1.5}}};
    for (const SymbolClock& clock : clocks) {
        Values positions(1000);
        clock.PositionsOf(-6.0, 1.0, 16.0, positions);
        for (std::size_t i = 0; i < positions.size(); ++i)
            EXPECT_NEAR(clock.UiAt(positions[i]), -6.0 + static_cast<double>(i) / 16.0, 1e-12) << i;
    }
}

TEST(WholeSamplesPerUi, AreThoseThatHoldOverTheRecord)
{
    const struct {
        double samplesPerUi;
        std::size_t samples;
        std::size_t expected;  // 0: none
    } cases[] = {
        {8.0000001, 200000, 8}, {8.0004, 3120, 8},  {8.0004, 8080, 0}, {16.00012, 8128, 16},
        {3.7123, 60000, 0},     {16.005, 2032, 16}, {16.01, 2032, 0},  {0.3, 100, 0},
    };
    for (const auto& [samplesPerUi, samples, expected] : cases)
        EXPECT_EQ(WholeSamplesPerUi(samplesPerUi, samples).value_or(0), expected) << samplesPerUi << ", " << samples;
}

TEST(ClockRecovery, KeepsTheSpectrumWhenAsked)
{
    ClockSearch search;
    search.keepSpectrum = true;
    const RecoveredClock result = RecoverClock(BandLimited(RandomLevels(5000, 2, 1), 40000, Rate(8.0)), search);
    ASSERT_TRUE(result.spectrum);
    const LineSpectrum& spectrum = *result.spectrum;
    EXPECT_EQ(spectrum.score[spectrum.line], *std::max_element(spectrum.score.begin(), spectrum.score.end()));
    EXPECT_NEAR(spectrum.first + static_cast<double>(spectrum.line) * spectrum.spacing, 0.125, spectrum.spacing);
    // All of the search, thinned: between the limits lie 39 600 bins.
    EXPECT_LE(spectrum.score.size(), 4096U);
    EXPECT_NEAR(spectrum.first, 1.0 / 200.0, spectrum.spacing);
    EXPECT_NEAR(spectrum.first + static_cast<double>(spectrum.score.size() - 1) * spectrum.spacing, 0.5,
                spectrum.spacing);
    EXPECT_EQ(spectrum.score[spectrum.line], result.score);
}

TEST(ClockRecovery, RefusesLimitsAndLoopsThatCannotBe)
{
    const Values samples = BandLimited(RandomLevels(500, 2, 1), 4000, Rate(8.0));
    ClockSearch search;
    search.fewestSamplesPerUi = 1.5;
    ExpectRefused([&] { RecoverClock(samples, search); },
                  "ClockRecovery: fewest samples per UI is 1.500000; expected at least 2");
    search = {};
    search.mostSamplesPerUi = 1.0;
    ExpectRefused([&] { RecoverClock(samples, search); },
                  "ClockRecovery: most samples per UI is 1.000000; expected at least the fewest");
    search = {};
    search.tracking = ClockTracking::Tracked;
    search.loopBandwidth = 0.0125;
    ExpectRefused([&] { RecoverClock(samples, search); },
                  "ClockRecovery: loop bandwidth over symbol rate is 0.100000; expected at most 0.01");
    ExpectRefused([&] { ClockOfRate(samples, 1.0); }, "ClockRecovery: samples per UI is 1.000000; expected at least 2");
}

}  // namespace
