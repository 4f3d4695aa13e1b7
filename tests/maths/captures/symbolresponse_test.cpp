#include "maths/captures/symbolresponse.h"

#include <gtest/gtest.h>

#include <cmath>

#include "maths/patterns/periodicrecord.h"
#include "support/captures.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

constexpr std::size_t kSamplesPerUi = 3;

// Symbols -1 to +2 about each UI through taps that differ from phase to phase.
double Sent(const std::vector<double>& levels, std::size_t ui, std::size_t phase)
{
    const double taps[] = {0.1, 1.0, 0.3, -0.2};
    double sum = 5.0 + static_cast<double>(phase);
    for (int j = 0; j < 4; ++j)
        sum += (1.0 + 0.5 * static_cast<double>(phase)) * taps[j] *
               levels[WrappedIndex(static_cast<long long>(ui) - 1 + j, levels.size())];
    return sum;
}

std::vector<double> Capture(const std::vector<double>& levels)
{
    std::vector<double> samples;
    for (std::size_t ui = 0; ui < levels.size(); ++ui)
        for (std::size_t phase = 0; phase < kSamplesPerUi; ++phase)
            samples.push_back(Sent(levels, ui, phase));
    return samples;
}

TEST(SymbolResponseFit, GivesBackTheTapsOfEachPhase)
{
    std::vector<double> levels;
    for (const double value : RandomValues(5000, 1))  // more than two blocks
        levels.push_back(1e-3 * (40.0 + (value > 0.0 ? 1.0 : -1.0)));
    const std::vector<double> samples = Capture(levels);
    const SymbolSpan span{2, 3};
    const struct {
        Wrapping wrapping;
        SymbolRange range, used;
    } cases[] = {
        {Wrapping::Circular, {0, 5000}, {0, 5000}},
        {Wrapping::None, {0, 5000}, {2, 4995}},
        {Wrapping::None, {100, 4898}, {100, 4897}},
    };
    for (const auto& [wrapping, range, used] : cases) {
        SCOPED_TRACE(range.first);
        const auto found = WithWholeSpan(range, levels.size(), span, wrapping);
        EXPECT_EQ(found.first, used.first);
        EXPECT_EQ(found.count, used.count);
        const auto response = FitSymbolResponse(samples, kSamplesPerUi, levels, span, wrapping, range);
        EXPECT_EQ(response.unknowns, span.Count() + 1);
        for (std::size_t k = 0; k < kSamplesPerUi; ++k) {
            const double expected[] = {0.0, 0.1, 1.0, 0.3, -0.2, 0.0};
            for (std::size_t j = 0; j < span.Count(); ++j)  // a condition near 1, levels of 1/1000: 1e3 eps n
                EXPECT_NEAR(response.taps[k * span.Count() + j], (1.0 + 0.5 * static_cast<double>(k)) * expected[j],
                            1e-10);
            EXPECT_NEAR(response.residualRms[k], 0.0, 1e-13);
        }
        const auto explained = ExplainedSamples(response, levels, wrapping, used);
        ASSERT_EQ(explained.size(), used.count * kSamplesPerUi);
        for (std::size_t m = 0; m < explained.size(); ++m)
            ASSERT_NEAR(explained[m], samples[used.first * kSamplesPerUi + m], 1e-12) << m;
    }
}

// The rest of white noise; the samples that it was not fitted to have a little more than the ones that it was.
TEST(SymbolResponseFit, LeavesTheNoise)
{
    const auto levels = RandomValues(4000, 2);
    const auto samples = WithNoise(Capture(levels), 0.1, 3);
    const auto response = FitSymbolResponse(samples, kSamplesPerUi, levels, {}, Wrapping::None, {0, 2000});
    for (const double rms : response.residualRms)
        EXPECT_NEAR(rms, 0.1 * std::sqrt(1.0 - 18.0 / 1984.0), 0.006);  // 4 sigma of the rms of 2000 values
    EXPECT_NEAR(UnexplainedRms(response, samples, levels, Wrapping::None, {2100, 1800}), 0.1, 0.005);
}

// What cannot be told apart is shared out, and explains the samples none the worse.
TEST(SymbolResponseFit, TakesSymbolsThatCannotBeToldApart)
{
    const struct {
        const char* label;
        std::vector<double> levels;
        std::size_t unknowns;
    } cases[] = {
        {"three symbols over and over", Tiled({1.0, -1.0, 0.5}, 100), 3},
        {"all symbols equal", Constant(0.7, 300), 1},
        {"fewer symbols than the span", {1.0, -1.0, 1.0}, 3},
    };
    for (const auto& [label, levels, unknowns] : cases) {
        SCOPED_TRACE(label);
        const SymbolRange all{0, levels.size()};
        const auto response = FitSymbolResponse(Capture(levels), kSamplesPerUi, levels, {}, Wrapping::Circular, all);
        EXPECT_EQ(response.unknowns, unknowns);
        for (const double rms : response.residualRms)
            EXPECT_NEAR(rms, 0.0, 1e-10);
    }
    const auto none = FitSymbolResponse(Constant(1.0, 30), 3, Constant(1.0, 10), {}, Wrapping::None, {0, 10});
    EXPECT_EQ(none.unknowns, 0U);
    EXPECT_EQ(none.constants, Constant(0.0, 3));
}

}  // namespace
