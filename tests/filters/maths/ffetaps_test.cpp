#include "filters/maths/ffetaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "framework/matrixutilities.h"
#include "framework/prbs.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Filters::Maths;
using namespace Tarnwick::Testing;
using Tarnwick::DSO::SystemFramework::MatrixUtilities;
using Tarnwick::DSO::SystemFramework::PRBS;

TEST(FfeDelays, DivideInTheirOrder)
{
    EXPECT_EQ(TapDelays(4, 10, 4), (std::vector<int>{0, 2, 5, 7}));
    EXPECT_EQ(TapDelays(3, 8, 1), (std::vector<int>{0, 8, 16}));
    const struct {
        int taps, samplesPerUi, tapsPerUi;
        bool narrow;
        std::size_t count;
        std::vector<int> first;
    } cases[] = {
        {5, 16, 1, false, 21, {40, 36, 44, 32, 48}},
        {5, 16, 1, true, 7, {40, 36, 44, 32, 48}},
        {1, 10, 4, false, 5, {1, 1, 1, 0, 2}},  // -10 / 16 is 0, -20 / 16 is -1
        {31, 16, 1, true, 7, {248, 244, 252, 240, 256}},
    };
    for (const auto& [taps, samplesPerUi, tapsPerUi, narrow, count, first] : cases) {
        const auto delays = CandidateDelays(taps, samplesPerUi, tapsPerUi, narrow);
        ASSERT_EQ(delays.size(), count);
        EXPECT_TRUE(std::equal(first.begin(), first.end(), delays.begin())) << taps << " taps";
    }
}

// W = (X'X)^-1 X'Y and the diagonal of Y'Y - Y'X W with the matrices of samples that they are defined by.
struct ByMatrices {
    std::vector<double> taps;
    std::size_t candidate = 0;
};

ByMatrices SolveByMatrices(const std::vector<double>& capture, const std::vector<double>& reference,
                           const std::vector<int>& tapDelays, const std::vector<int>& candidates)
{
    const auto rows = static_cast<int>(capture.size());
    const auto columnsOf = [rows](const std::vector<double>& values, const std::vector<int>& delays) {
        std::vector<double> matrix(values.size() * delays.size());
        for (std::size_t j = 0; j < delays.size(); ++j) {
            std::vector<double> rotated = values;
            PRBS::CircularShiftOptim(delays[j], rotated.data(), rows, false);
            for (std::size_t i = 0; i < values.size(); ++i)
                matrix[i * delays.size() + j] = rotated[i];
        }
        return matrix;
    };
    const auto taps = static_cast<int>(tapDelays.size());
    const auto many = static_cast<int>(candidates.size());
    std::vector<double> x = columnsOf(capture, tapDelays);
    std::vector<double> y = columnsOf(reference, candidates);
    const auto product = [](std::vector<double>& a, int ra, int ca, std::vector<double>& b, int rb, int cb) {
        return Take(MatrixUtilities::MultiplyDoubleMatrices(a.data(), ra, ca, b.data(), rb, cb),
                    static_cast<std::size_t>(ra) * static_cast<std::size_t>(cb));
    };
    std::vector<double> xt = Take(MatrixUtilities::MatrixTranspose(x.data(), rows, taps), x.size());
    std::vector<double> yt = Take(MatrixUtilities::MatrixTranspose(y.data(), rows, many), y.size());
    std::vector<double> normal = product(xt, taps, rows, x, rows, taps);
    std::vector<double> inverse = Take(MatrixUtilities::MatrixInverse(normal.data(), taps), normal.size());
    std::vector<double> right = product(xt, taps, rows, y, rows, many);
    std::vector<double> w = product(inverse, taps, taps, right, taps, many);
    std::vector<double> yy = product(yt, many, rows, y, rows, many);
    std::vector<double> yx = product(yt, many, rows, x, rows, taps);
    std::vector<double> explained = product(yx, many, taps, w, taps, many);
    ByMatrices best;
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t k = 0; k < candidates.size(); ++k) {
        const std::size_t diagonal = k * candidates.size() + k;
        const double error = std::abs(yy[diagonal] - explained[diagonal]);
        if (error < least) {
            least = error;
            best.candidate = k;
        }
    }
    for (std::size_t j = 0; j < tapDelays.size(); ++j)
        best.taps.push_back(w[j * candidates.size() + best.candidate]);
    return best;
}

TEST(FfeTaps, AreThoseOfTheMatricesOfSamples)
{
    const struct {
        int taps, samplesPerUi, tapsPerUi;
    } cases[] = {{1, 8, 1}, {5, 8, 1}, {11, 16, 1}, {7, 8, 2}, {4, 10, 4}};
    for (const auto& [taps, samplesPerUi, tapsPerUi] : cases) {
        SCOPED_TRACE(std::to_string(taps) + " taps, " + std::to_string(samplesPerUi) + " samples per UI");
        // Noise behind a running mean over a UI: correlated from sample to sample as a capture is.
        const auto count = std::size_t{63} * static_cast<std::size_t>(samplesPerUi);
        const auto noise = RandomValues(count, 11);
        std::vector<double> reference(count);
        std::vector<double> capture(count);
        for (std::size_t k = 0; k < count; ++k)
            reference[k] = noise[k - k % static_cast<std::size_t>(samplesPerUi)];
        const auto more = RandomValues(count, 12);
        for (std::size_t k = 0; k < count; ++k)
            capture[k] = reference[(k + 3) % count] + 0.4 * reference[(k + count - 5) % count] + 0.1 * more[k];
        std::vector<int> delays = TapDelays(taps, samplesPerUi, tapsPerUi);
        for (int& delay : delays)
            delay += 17;
        const auto candidates = CandidateDelays(taps, samplesPerUi, tapsPerUi, false);
        const ByMatrices expected = SolveByMatrices(capture, reference, delays, candidates);
        const auto solution = SolveTaps(capture, reference, delays, candidates);
        ASSERT_TRUE(solution);
        EXPECT_EQ(solution->candidate, expected.candidate);
        // Both solve the same system; its condition is below 1e3.
        EXPECT_TRUE(AreNear(solution->taps, expected.taps, 1e-12));

        double error = 0.0;
        double power = 0.0;
        for (std::size_t k = 0; k < count; ++k) {
            const auto at = [&](const std::vector<double>& values, int delay) {
                return values[(k + 10 * count - static_cast<std::size_t>(delay)) % count];
            };
            double y = -at(reference, candidates[solution->candidate]);
            power += y * y;
            for (std::size_t j = 0; j < delays.size(); ++j)
                y += solution->taps[j] * at(capture, delays[j]);
            error += y * y;
        }
        EXPECT_NEAR(solution->residual, error / power, 1e-12);
    }
}

TEST(FfeTaps, AreNoneWhenTheCaptureCannotTellThemApart)
{
    const auto noise = RandomValues(64, 5);
    const std::vector<int> one = {0};
    EXPECT_TRUE(SolveTaps(noise, noise, std::vector<int>{0, 8}, one));
    EXPECT_FALSE(SolveTaps(Constant(0.0, 64), noise, std::vector<int>{0, 8}, one));
    EXPECT_FALSE(SolveTaps(noise, noise, std::vector<int>{0, 8, 8}, one));
    EXPECT_FALSE(SolveTaps(noise, noise, std::vector<int>{0, 64}, one));
    EXPECT_FALSE(SolveTaps(Tiled({1.0, -1.0}, 32), noise, std::vector<int>{0, 1}, one));
    EXPECT_FALSE(SolveTaps(Constant(std::numeric_limits<double>::quiet_NaN(), 64), noise, std::vector<int>{0, 8}, one));
}

}  // namespace
