#include "maths/captures/recordseam.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

#include "maths/patterns/periodicrecord.h"
#include "support/captures.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

constexpr std::size_t kSamplesPerUi = 4;

std::vector<double> Levels(std::size_t order, std::size_t tap)
{
    const std::vector<int> bits = PrbsLevels(order, tap);
    return {bits.begin(), bits.end()};
}

TEST(SeamTested, TellsWholePeriodsFromCutOnes)
{
    const auto whole = Levels(9, 5);
    const auto behind = [](const std::vector<double>& levels, double bandwidth) {
        return ThroughFrontEnd(Held(levels, kSamplesPerUi), kSamplesPerUi, bandwidth);
    };
    const std::vector<double> periods = Tiled(whole, 2);
    const auto stretch = [&](std::size_t first, std::size_t count) {
        return std::vector<double>(periods.begin() + static_cast<std::ptrdiff_t>(first),
                                   periods.begin() + static_cast<std::ptrdiff_t>(first + count));
    };
    const struct {
        const char* label;
        std::size_t first, count;
        double bandwidth, noise, offset;
        bool joins;
    } cases[] = {
        {"clean", 0, 511, 0.75, 0.0, 0.0, true},
        {"clean, large offset", 0, 511, 0.75, 0.0, 1e3, true},
        {"noise", 0, 511, 0.75, 0.02, 0.0, true},
        {"closed eye", 100, 511, 0.2, 0.01, 0.0, true},
        {"cut by 7 UI", 0, 504, 0.75, 0.02, 0.0, false},
        {"7 UI too many", 0, 518, 0.75, 0.02, 0.0, false},
        {"closed eye, cut by 7 UI", 100, 504, 0.2, 0.01, 0.0, false},
    };
    for (const auto& [label, first, count, bandwidth, noise, offset, joins] : cases) {
        SCOPED_TRACE(label);
        const std::vector<double> sent = behind(periods, bandwidth);
        std::vector<double> samples(sent.begin() + static_cast<std::ptrdiff_t>(first * kSamplesPerUi),
                                    sent.begin() + static_cast<std::ptrdiff_t>((first + count) * kSamplesPerUi));
        for (double& sample : samples)
            sample += offset;
        const auto seam = TestSeam(WithNoise(samples, noise, 3), kSamplesPerUi, stretch(first, count));
        ASSERT_TRUE(seam);
        EXPECT_EQ(seam->Joins(), joins) << seam->Ratio();
        if (joins)  // 16 UI against the rest: white noise gives 1 +- 0.1, a few UI of interference up to 1.6
            EXPECT_LT(seam->Ratio(), 1.6);
        else
            EXPECT_GT(seam->Ratio(), 4.0);
    }
    EXPECT_EQ(TestSeam(Constant(1.0, 400), kSamplesPerUi, Constant(1.0, 100))->Ratio(), 0.0);
    EXPECT_FALSE(TestSeam(Constant(1.0, 252), kSamplesPerUi, Constant(1.0, 63)));
}

// A tap at each lag from the delay, up to half the record away.
std::vector<double> Kernel(std::size_t count, long long delay, const std::function<double(long long)>& tap)
{
    std::vector<double> kernel(count, 0.0);
    const auto half = static_cast<long long>(count) / 2;
    for (long long lag = -half + 1; lag < half; ++lag)
        kernel[WrappedIndex(delay + lag, count)] = tap(lag);
    return kernel;
}

double Change(const std::vector<double>& record, std::vector<double> kernel, long long delay, std::size_t reachUi)
{
    const auto inside = static_cast<long long>(reachUi) * static_cast<long long>(kSamplesPerUi);
    for (long long lag = -inside; lag <= inside; ++lag)
        kernel[WrappedIndex(delay + lag, kernel.size())] = 0.0;
    double power = 0.0;
    double changed = 0.0;
    const std::vector<double> centred = WithoutMean(record);
    for (const double sample : centred)
        power += sample * sample;
    for (const double sample : DirectConvolution(centred, kernel))
        changed += sample * sample;
    return std::sqrt(changed / power);
}

TEST(Reach, EndsWhereTheFartherTapsChangeTheRecordByAThousandth)
{
    std::vector<double> record = ThroughFrontEnd(Held(Levels(9, 5), kSamplesPerUi), kSamplesPerUi, 0.75);
    for (double& sample : record)
        sample += 50.0;
    const std::size_t count = record.size();
    const struct {
        const char* label;
        long long delay;
        std::function<double(long long)> tap;
    } cases[] = {
        {"decay behind", 0, [](long long lag) { return lag < 0 ? 0.0 : std::exp(-static_cast<double>(lag) / 10.0); }},
        {"decay ahead, delay", 700,
         [](long long lag) { return lag > 0 ? 0.0 : std::exp(static_cast<double>(lag) / 4.0); }},
        {"both, from a negative delay", -9,
         [](long long lag) { return std::exp(-std::abs(static_cast<double>(lag)) / 20.0); }},
        {"echo of 1 %", 3, [](long long lag) { return lag == 0     ? 1.0
                                                      : lag == 100 ? 0.01
                                                                   : 0.0; }},
        // Its taps alternate and shrink as 1/n: their magnitudes sum up to any number.
        {"half a sample late", 0,
         [](long long lag) {
             const double t = std::numbers::pi * (static_cast<double>(lag) - 0.5);
             return std::sin(t) / t;
         }},
    };
    for (const auto& [label, delay, tap] : cases) {
        SCOPED_TRACE(label);
        const std::vector<double> kernel = Kernel(count, delay, tap);
        const std::size_t reach = ReachUi(record, kernel, kSamplesPerUi, delay);
        EXPECT_EQ(ReachUi(record, kernel, kSamplesPerUi, delay + static_cast<long long>(count)), reach);
        EXPECT_LE(Change(record, kernel, delay, reach), 1e-3);
        EXPECT_GT(Change(record, kernel, delay, reach / 2), 1e-3);
        EXPECT_LE(reach, 64U);
    }
    // An echo from the other side of the record leaves nothing untouched; one tap touches nothing.
    EXPECT_EQ(ReachUi(record, Kernel(count, 0, [](long long lag) { return lag == 0 || lag == 1000 ? 1.0 : 0.0; }),
                      kSamplesPerUi, 0),
              256U);
    EXPECT_EQ(ReachUi(record, Kernel(count, 0, [](long long lag) { return lag == 0 ? 1.0 : 0.0; }), kSamplesPerUi, 0),
              1U);
    EXPECT_EQ(ReachUi(Constant(3.0, 40), Constant(1.0, 40), kSamplesPerUi, 0), 1U);
    EXPECT_EQ(ReachUi({}, {}, kSamplesPerUi, 0), 1U);
}

}  // namespace
