#include "workbench/correctedchannel.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr double kSigma = 8e-12;  // [s] of the channel's Gaussian impulse response

// Upside down, with an offset, its peak at 3 ns.
std::vector<double> GaussianTable(std::size_t count, double interval)
{
    std::vector<double> table(count);
    for (std::size_t k = 0; k < count; ++k) {
        const double t = (static_cast<double>(k) * interval - 3e-9) / kSigma;
        table[k] = 0.05 - 0.4 * std::exp(-0.5 * t * t);
    }
    return table;
}

double GaussianDb(double frequency)
{
    const double x = 2.0 * std::numbers::pi * kSigma * frequency;
    return -10.0 / std::numbers::ln10 * x * x;
}

// No correction at all: what is left is the channel, whatever the form of its table.
TEST(CorrectedChannel, MeasuresTheTableAtItsOwnInterval)
{
    std::vector<double> identity(4096, 0.0);
    identity.front() = 3.0;
    const TransferFunction correction = Transform(identity, 160e9);
    std::vector<double> sampled = GaussianTable(2500, 4e-12);
    sampled.insert(sampled.begin(), 4e-12);
    // One that begins with its interval, and one that the window of 10 ns gives it.
    for (const std::vector<double>& table : {sampled, GaussianTable(5000, 2e-12)}) {
        SCOPED_TRACE(table.size());
        const auto channel = CorrectChannel({table, 10e-9, 0.16, 10e9}, correction, 10e9);
        ASSERT_TRUE(channel);
        EXPECT_NEAR(channel->frequency.back(), 20e9, 160e9 / 4096);
        double largest = 0.0;
        for (std::size_t k = 0; k < channel->frequency.size(); ++k) {
            const double frequency = channel->frequency[k];
            EXPECT_NEAR(channel->measured[k], GaussianDb(frequency), 1e-9) << frequency;  // rounding of 2500 terms
            EXPECT_NEAR(channel->correction[k], 0.0, 1e-12);
            if (frequency <= 15e9 && std::abs(GaussianDb(frequency) - channel->target[k]) > std::abs(largest))
                largest = GaussianDb(frequency) - channel->target[k];
        }
        EXPECT_NEAR(channel->target[256], 10.0 * std::log10(0.5), 1e-3);  // 10 GHz; the constant has five digits
        EXPECT_NEAR(channel->largestDifference, largest, 1e-9);
        EXPECT_NEAR(channel->comparedTo, 15e9, 160e9 / 4096);
    }
    EXPECT_FALSE(CorrectChannel({{1.0, 1.0}, 10e-9, 0.16, 10e9}, correction, 10e9));
    EXPECT_FALSE(CorrectChannel({{1e-12}, 10e-9, 0.16, 10e9}, correction, 10e9));
}

// What lies above half the table's sample rate is not measured.
TEST(CorrectedChannel, EndsWhereTheTableEnds)
{
    std::vector<double> table = GaussianTable(200, 40e-12);
    table.insert(table.begin(), 40e-12);
    const TransferFunction correction = Transform({1.0, 0.0, 0.0, 0.0}, 40e9);
    const auto channel = CorrectChannel({table, 10e-9, 0.16, 10e9}, correction, 10e9);
    ASSERT_TRUE(channel);
    ASSERT_EQ(channel->frequency, (std::vector<double>{0.0, 10e9, 20e9}));
    EXPECT_TRUE(std::isfinite(channel->measured[1]));
    EXPECT_TRUE(std::isnan(channel->corrected[2]));
    EXPECT_EQ(channel->comparedTo, 10e9);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
