#include "maths/equalisers/ffetaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>

#include "framework/matrixutilities.h"
#include "maths/equalisers/ffesearch.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/responses/gaussian.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;
using Tarnwick::DSO::SystemFramework::MatrixUtilities;

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
    };
    for (const auto& [taps, samplesPerUi, tapsPerUi, narrow, count, first] : cases) {
        const auto delays = CandidateDelays(taps, samplesPerUi, tapsPerUi, narrow);
        ASSERT_EQ(delays.size(), count);
        EXPECT_TRUE(std::equal(first.begin(), first.end(), delays.begin())) << taps << " taps";
    }
}

double Product(const std::vector<double>& a, const std::vector<double>& b)
{
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

// w = (X'X)^-1 X'y and |y - X w|^2 / |y|^2 for each candidate, with the columns of samples that they are defined by.
TapSolution SolveByMatrices(const std::vector<double>& capture, const std::vector<double>& reference,
                            const std::vector<int>& tapDelays, const std::vector<int>& candidates, RowStretch rows)
{
    const auto delayed = [rows](const std::vector<double>& values, int delay) {
        std::vector<double> result;
        for (std::size_t k = 0; k < rows.count; ++k)
            result.push_back(values[WrappedIndex(rows.first + static_cast<long long>(k) - static_cast<long long>(delay),
                                                 values.size())]);
        return result;
    };
    std::vector<std::vector<double>> columns;
    for (const int delay : tapDelays)
        columns.push_back(delayed(capture, delay));
    std::vector<double> normal;
    for (const auto& a : columns)
        for (const auto& b : columns)
            normal.push_back(Product(a, b));
    const auto taps = static_cast<int>(tapDelays.size());
    const auto inverse = Take(MatrixUtilities::MatrixInverse(normal.data(), taps), normal.size());
    TapSolution best;
    best.residual = std::numeric_limits<double>::infinity();
    for (std::size_t c = 0; c < candidates.size(); ++c) {
        const auto y = delayed(reference, candidates[c]);
        std::vector<double> right;
        for (const auto& column : columns)
            right.push_back(Product(column, y));
        const auto w = Take(MatrixUtilities::MultiplyDoubleMatrices(inverse.data(), taps, taps, right.data(), taps, 1),
                            right.size());
        auto rest = y;
        for (std::size_t j = 0; j < w.size(); ++j)
            for (std::size_t k = 0; k < rest.size(); ++k)
                rest[k] -= w[j] * columns[j][k];
        const double residual = Product(rest, rest) / Product(y, y);
        if (residual < best.residual)
            best = {w, c, residual};
    }
    return best;
}

TEST(FfeTaps, AreThoseOfTheMatricesOfSamples)
{
    const struct {
        int taps, samplesPerUi, tapsPerUi;
    } cases[] = {{1, 8, 1}, {5, 8, 1}, {11, 16, 1}, {7, 8, 2}, {4, 10, 4}};
    for (const auto& [taps, samplesPerUi, tapsPerUi] : cases) {
        SCOPED_TRACE(std::to_string(taps) + " taps, " + std::to_string(samplesPerUi) + " samples per UI");
        // Noise held over a UI: correlated from sample to sample as a capture is.
        const auto count = std::size_t{63} * static_cast<std::size_t>(samplesPerUi);
        const auto noise = RandomValues(count, 11);
        const auto more = RandomValues(count, 12);
        std::vector<double> reference(count);
        std::vector<double> capture(count);
        for (std::size_t k = 0; k < count; ++k)
            reference[k] = noise[k - k % static_cast<std::size_t>(samplesPerUi)];
        for (std::size_t k = 0; k < count; ++k)
            capture[k] = reference[(k + 3) % count] + 0.4 * reference[(k + count - 5) % count] + 0.1 * more[k];
        std::vector<int> delays = TapDelays(taps, samplesPerUi, tapsPerUi);
        for (int& delay : delays)
            delay += 17;
        const auto candidates = CandidateDelays(taps, samplesPerUi, tapsPerUi, false);
        for (const RowStretch rows : {RowStretch{0, count}, RowStretch{-9, count - 31}, RowStretch{50, count / 2}}) {
            const TapSolution expected = SolveByMatrices(capture, reference, delays, candidates, rows);
            const auto solution = SolveTaps(capture, reference, delays, candidates,
                                            rows.count < count ? std::optional(rows) : std::nullopt);
            ASSERT_TRUE(solution);
            EXPECT_EQ(solution->candidate, expected.candidate);
            // Both solve the same system; its condition is below 1e3.
            EXPECT_TRUE(AreNear(solution->taps, expected.taps, kFfeTapError));
            EXPECT_NEAR(solution->residual, expected.residual, 1e-12);
        }
    }
}

// Cosines of equal height over 256 samples.
std::vector<double> Harmonics(int count)
{
    std::vector<double> values(256);
    for (std::size_t k = 0; k < values.size(); ++k)
        for (int harmonic = 1; harmonic <= count; ++harmonic)
            values[k] += std::cos(2.0 * std::numbers::pi * harmonic * static_cast<double>(k) / 256.0);
    return values;
}

// Ten harmonics over 256 samples and taps a sample apart: the smallest pivot is 6e-9 of the largest, and the taps can still
// be told apart. Rounding is magnified by its inverse.
TEST(FfeTaps, AreFoundWhereTheCaptureIsSmooth)
{
    const std::vector<double> capture = Harmonics(10);
    const std::vector<double> taps = {0.1, -0.3, 1.0, 0.2, -0.1};
    const std::vector<int> delays = {0, 1, 2, 3, 4};
    std::vector<double> reference(capture.size());
    for (std::size_t k = 0; k < reference.size(); ++k)
        for (std::size_t j = 0; j < taps.size(); ++j)
            reference[k] += taps[j] * capture[(k + 256 - j) % 256];
    const auto solution = SolveTaps(capture, reference, delays, std::vector<int>{0});
    ASSERT_TRUE(solution);
    EXPECT_TRUE(AreNear(solution->taps, taps, 1e-6));
}

TEST(FfeTaps, AreNoneWhenTheCaptureCannotTellThemApart)
{
    const auto noise = RandomValues(64, 5);
    const std::vector<int> one = {0};
    EXPECT_TRUE(SolveTaps(noise, noise, std::vector<int>{0, 8}, one));
    EXPECT_FALSE(SolveTaps(Constant(0.0, 64), noise, std::vector<int>{0, 8}, one));
    EXPECT_FALSE(SolveTaps(noise, noise, std::vector<int>{0, 8, 8}, one));
    EXPECT_FALSE(SolveTaps(noise, noise, std::vector<int>{0, 64}, one));
    EXPECT_FALSE(SolveTaps(Constant(std::numeric_limits<double>::quiet_NaN(), 64), noise, std::vector<int>{0, 8}, one));
    const auto silent = SolveTaps(noise, Constant(0.0, 64), std::vector<int>{0, 8}, one);
    ASSERT_TRUE(silent);
    EXPECT_EQ(silent->residual, 0.0);
    // A harmonic tells two taps apart. What is left of the pivot of one more is rounding, of either sign.
    for (int taps = 3; taps <= 17; taps += 2) {
        const auto capture = Harmonics(taps / 2);
        EXPECT_FALSE(SolveTaps(capture, capture, TapDelays(taps, 256 / taps, 1), one)) << taps << " taps";
    }
}

// Three taps equalise the record exactly, so that a row that reaches into the ends would show. The second half of the pattern
// is the first inverted and each half a palindrome: its mean is 0 with and without the ends.
TEST(FfeSearch, TakesNoRowFromTheIgnoredEnds)
{
    std::vector<int> levels;
    for (const double value : RandomValues(20, 4))
        levels.push_back(value > 0.0 ? 1 : 0);
    for (std::size_t k = 20; k > 0; --k)
        levels.push_back(levels[k - 1]);
    for (std::size_t k = 0; k < 40; ++k)
        levels.push_back(1 - levels[k]);
    constexpr std::size_t kCount = 640;
    const auto ideal = GaussianLowPass(IdealSignal(levels, {-1.0, 1.0, 2}, 8.0, kCount), 8.0, 1.0);
    auto samples = ideal;  // until 0.3, 1 and 0.3 a UI apart make it the ideal one
    for (int pass = 0; pass < 100; ++pass) {
        const auto before = samples;
        for (std::size_t k = 0; k < kCount; ++k)
            samples[k] = ideal[k] - 0.3 * (before[(k + 8) % kCount] + before[(k + kCount - 8) % kCount]);
    }
    const auto solution = FindLeastSquaresTaps({{samples, levels, 2, 8.0}, 8, 3, 1, 2, false, 8.0, 1.0, 64});
    ASSERT_TRUE(solution);
    EXPECT_LT(solution->residual, 1e-12);
    EXPECT_NEAR(solution->taps[0] / solution->taps[1], 0.3, 1e-9);
}

}  // namespace
