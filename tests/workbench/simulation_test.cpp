#include "workbench/simulation.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include <gtest/gtest.h>

namespace Tarnwick::DSO::Workbench {

namespace {

const std::vector<int> kLevels = {0, 3, 1, 2, 2, 0, 1, 3, 3, 0};

TEST(Simulate, HoldsTheLevelsAndMovesOnStraightEdges)
{
    const std::vector<double> samples = Simulate(kLevels, 4, {.samplesPerUi = 8, .amplitude = 6.0, .riseUi = 0.5});
    ASSERT_EQ(samples.size(), 80U);
    // Levels -3, -1, 1, 3. The second symbol, level 3: from -3 over two samples on either side of the boundary.
    const double expected[] = {-2.25, -0.75, 0.75, 2.25, 3, 3, 3, 3, 2.5, 1.5};
    for (std::size_t k = 0; k < std::size(expected); ++k)
        EXPECT_NEAR(samples[6 + k], expected[k], 1e-15) << "sample " << 6 + k;  // one rounding of values of order 1
}

TEST(Simulate, LosesWhatItIsAskedToAtHalfTheSymbolRate)
{
    Simulation settings;
    std::vector<int> clock;
    for (int k = 0; k < 32; ++k)
        clock.push_back(k % 2);
    // The fundamental of an alternating pattern is half the symbol rate.
    const auto fundamental = [&] {
        const std::vector<double> samples = Simulate(clock, 2, settings);
        std::complex<double> sum;
        for (std::size_t k = 0; k < samples.size(); ++k)
            sum += samples[k] * std::polar(1.0, -std::numbers::pi * static_cast<double>(k) / settings.samplesPerUi);
        return std::abs(sum);
    };
    const double clean = fundamental();
    settings.lossDb = 6.0;
    EXPECT_NEAR(20.0 * std::log10(clean / fundamental()), 6.0, 1e-9);  // rounding of a 512-point transform
}

TEST(Simulate, AddsNoiseAndJitterThatItsSeedDecides)
{
    Simulation settings;
    settings.repetitions = 200;
    const std::vector<double> clean = Simulate(kLevels, 4, settings);
    settings.noiseRms = 0.01;
    const std::vector<double> noisy = Simulate(kLevels, 4, settings);
    double power = 0.0;
    for (std::size_t k = 0; k < clean.size(); ++k)
        power += (noisy[k] - clean[k]) * (noisy[k] - clean[k]);
    // 32 000 values: the rms of their sample is within 2 % of the true one at five standard deviations.
    EXPECT_NEAR(std::sqrt(power / static_cast<double>(clean.size())), 0.01, 2e-4);
    EXPECT_EQ(noisy, Simulate(kLevels, 4, settings));
    settings.seed = 2;
    EXPECT_NE(noisy, Simulate(kLevels, 4, settings));

    settings.noiseRms = 0.0;
    settings.jitterRms = 0.05;
    const std::vector<double> jittered = Simulate(kLevels, 4, settings);
    const auto period = static_cast<std::ptrdiff_t>(jittered.size() / 200);
    EXPECT_FALSE(std::equal(jittered.begin(), jittered.begin() + period, jittered.begin() + period));
    for (std::size_t k = 8; k < jittered.size(); k += 16)
        EXPECT_NEAR(jittered[k], clean[k], 1e-15) << "the middle of UI " << k / 16 << " is flat";
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
