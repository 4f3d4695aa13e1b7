#include "maths/captures/clipping.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/captures.h"

namespace Tarnwick::DSO::Maths {

namespace {

// A sine of amplitude 1 with noise of 0.02, as an instrument takes it with steps of this many volts, between its limits.
std::vector<double> Taken(double step, double low, double high)
{
    std::vector<double> samples(20000);
    for (std::size_t k = 0; k < samples.size(); ++k)
        samples[k] = std::sin(0.05 * static_cast<double>(k));
    samples = Testing::WithNoise(std::move(samples), 0.02, 1);
    for (double& sample : samples)
        sample = std::clamp(step > 0.0 ? step * std::round(sample / step) : sample, low, high);
    return samples;
}

TEST(Clipping, IsFoundAtTheEndThatIsCutOff)
{
    const struct {
        const char* what;
        double step, low, high;
        bool isLowCut, isHighCut;
    } cases[] = {
        {"as it is", 0.0, -9.0, 9.0, false, false},
        {"in 8 bits", 2.5 / 256.0, -9.0, 9.0, false, false},
        {"in 5 bits", 2.5 / 32.0, -9.0, 9.0, false, false},
        {"cut at the top", 0.0, -9.0, 0.8, false, true},
        {"cut at both ends in 8 bits", 2.5 / 256.0, -0.9, 0.9, true, true},
        {"cut at the bottom in 8 bits", 2.5 / 256.0, -0.95, 9.0, true, false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        const std::vector<double> samples = Taken(row.step, row.low, row.high);
        const Clipping clipping = FindClipping(samples);
        EXPECT_EQ(clipping.low.samples > 0, row.isLowCut);
        EXPECT_EQ(clipping.high.samples > 0, row.isHighCut);
        if (row.isHighCut) {
            EXPECT_EQ(static_cast<std::ptrdiff_t>(clipping.high.samples),
                      std::count(samples.begin(), samples.end(), clipping.high.value));
        }
    }
    EXPECT_EQ(FindClipping(std::vector<double>(100, 1.0)).high.samples, 0U);  // a constant is no capture
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
