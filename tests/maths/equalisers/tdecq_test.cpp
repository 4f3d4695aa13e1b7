#include "maths/equalisers/tdecq.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "framework/dsp_helpers.h"
#include "framework/prbs.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

constexpr double kRate = 26.5625;  // [GBd]
constexpr std::size_t kSpu = 16;

std::vector<double> Sent()
{
    std::vector<double> samples;
    for (const int level : Prbs13qLevels())
        samples.insert(samples.end(), kSpu, level / 3.0);
    return samples;
}

std::vector<double> Behind(const std::vector<double>& samples, double bandwidthGHz)
{
    return ThroughFrontEnd(samples, kRate * static_cast<double>(kSpu), bandwidthGHz);
}

// PRBS13Q through a transmitter and the reference receiver of half the symbol rate.
TEST(ReferenceEqualizerTaps, ReachTheirTdecq)
{
    const std::vector<double> sent = Sent();
    std::vector<double> withEchoes = sent;
    for (std::size_t k = 0, n = sent.size(); k < n; ++k)
        withEchoes[k] += 0.25 * sent[(k + n - 20) % n] - 0.1 * sent[(k + 13) % n];
    const struct {
        const char* label;
        std::vector<double> transmitted;
        std::size_t count;
        int cursor;  // -1: searched
        double tdecqDb;
        std::size_t largest;
    } cases[] = {
        {"receiver only", sent, 5, -1, 0.184, 5},
        {"14 GHz", Behind(sent, 14.0), 5, -1, 1.027, 2},
        {"10 GHz", Behind(sent, 10.0), 5, -1, 1.889, 2},
        {"echoes", withEchoes, 5, -1, 0.859, 2},
        {"10 GHz, cursor index 1", Behind(sent, 10.0), 5, 1, 2.053, 1},
        {"10 GHz, 9 taps", Behind(sent, 10.0), 9, -1, 1.794, 2},
    };
    for (const auto& [label, transmitted, count, cursor, tdecqDb, largest] : cases) {
        SCOPED_TRACE(label);
        const auto capture = Behind(transmitted, kRate / 2.0);
        const auto symbols = LocatePattern(capture, Prbs13qLevels(), kSpu);
        ASSERT_TRUE(symbols);
        const auto found =
            FindReferenceEqualizer(capture, *symbols, kSpu, count,
                                   cursor < 0 ? std::nullopt : std::optional(static_cast<std::size_t>(cursor)));
        ASSERT_TRUE(found);
        // 0.05 dB is what the choice of the steps in the search leaves open.
        EXPECT_NEAR(found->closure.tdecqDb, tdecqDb, 0.05);
        EXPECT_NEAR(std::accumulate(found->taps.begin(), found->taps.end(), 0.0), 1.0, 1e-12);
        EXPECT_TRUE(largest >= count || found->cursor == largest) << found->cursor;
        std::vector<double> taps(count);
        std::vector<double> copy = capture;
        std::vector<double> reference = sent;
        // However the two lie against each other, only the order of the sums changes: roundings, far below the bound.
        PRBS::CircularShiftOptim(1000, copy.data(), static_cast<int>(copy.size()), false);
        PRBS::CircularShiftOptim(2 * kSpu, reference.data(), static_cast<int>(reference.size()), false);
        DSP_Helpers::GenerateTdecqEqualizerCoefficients(copy.data(), static_cast<int>(copy.size()), reference.data(),
                                                        static_cast<int>(reference.size()), static_cast<int>(count),
                                                        kSpu, cursor, taps.data(), static_cast<int>(count));
        EXPECT_TRUE(AreNear(taps, found->taps, 1e-9));
    }
}

TEST(EyeClosureMeasure, KnowsAnIdealAndAClosedEye)
{
    const std::vector<double> sent = Sent();
    const auto symbols = LocatePattern(sent, Prbs13qLevels(), kSpu);
    ASSERT_TRUE(symbols);
    const double pass[] = {1.0};
    // An ideal eye is where the scale begins; the spread of the symbols over the levels leaves a few thousandths.
    const EyeClosure ideal = MeasureClosure(sent, *symbols, kSpu, pass);
    EXPECT_NEAR(ideal.tdecqDb, 0.0, 0.01);
    EXPECT_NEAR(ideal.oma, 1.0, 1e-12);
    EXPECT_EQ(ideal.noiseGain, 1.0);
    const EyeClosure closed = MeasureClosure(Behind(sent, 5.0), *symbols, kSpu, pass);
    EXPECT_TRUE(closed.closed);
    EXPECT_GT(closed.tdecqDb, 50.0);
}

// A single shot that filters took for periodic: what its ends hold decides nothing, and where it ends hardly anything.
TEST(EyeClosureMeasure, LeavesOutTheEnds)
{
    constexpr std::size_t kIgnored = 12;
    const std::vector<double> capture = Behind(Behind(Sent(), 12.0), kRate / 2.0);
    const auto measure = [](const std::vector<double>& record) {
        std::vector<int> pattern = Prbs13qLevels();
        pattern.resize(record.size() / kSpu);
        const auto symbols = LocatePattern(record, pattern, kSpu, kIgnored);
        const auto found = FindReferenceEqualizer(record, *symbols, kSpu, 5, std::nullopt, kIgnored);
        const EyeClosure closure = MeasureClosure(record, *symbols, kSpu, found->taps, kIgnored);
        EXPECT_NEAR(closure.tdecqDb, found->closure.tdecqDb, 0.1) << "at 16 phases, against a refined one";
        return *found;
    };
    const auto cutTo = [&](std::size_t ui) {
        return std::vector<double>(capture.begin(), capture.begin() + static_cast<std::ptrdiff_t>(ui * kSpu));
    };
    const ReferenceEqualizer first = measure(cutTo(2000));
    for (const std::size_t ui : {1999U, 1990U})
        EXPECT_NEAR(measure(cutTo(ui)).closure.tdecqDb, first.closure.tdecqDb, 0.05) << ui;
    std::vector<double> spoilt = cutTo(2000);
    for (std::size_t k = 0; k < kIgnored * kSpu; ++k)
        spoilt[k] = spoilt[spoilt.size() - 1 - k] = 30.0 * std::sin(static_cast<double>(k * k));
    const ReferenceEqualizer found = measure(spoilt);
    EXPECT_TRUE(AreNear(found.taps, first.taps, 1e-9));  // roundings of the correlation that aligns the two
    EXPECT_NEAR(found.closure.tdecqDb, first.closure.tdecqDb, 1e-9);
    EXPECT_FALSE(FindReferenceEqualizer(spoilt, *LocatePattern(spoilt, Prbs13qLevels(), kSpu), kSpu, 5, {}, 996));
}

// The same symbols at the same place from a pattern and from its waveform, whichever of four levels it uses and however
// the two are rotated.
TEST(ReferenceSymbolsOf, PatternAndWaveformAgree)
{
    const std::vector<int> pattern{0, 3, 1, 1, 3, 0, 0, 3, 1, 3, 0};
    const std::vector<int> ranks{0, 2, 1, 1, 2, 0, 0, 2, 1, 2, 0};
    std::vector<double> sent;
    for (const int level : ranks)
        sent.insert(sent.end(), 3, 5.0 + level);
    for (const int lag : {0, 1, 7, 32}) {
        SCOPED_TRACE(lag);
        std::vector<double> capture = sent;
        PRBS::CircularShiftOptim(lag, capture.data(), static_cast<int>(capture.size()), false);
        const auto ofPattern = LocatePattern(capture, pattern, 3);
        const auto ofWaveform = LocateReference(capture, sent, 3);
        ASSERT_TRUE(ofPattern && ofWaveform);
        EXPECT_EQ(ofPattern->levels, ranks);
        EXPECT_EQ(ofPattern->levelCount, 3);
        EXPECT_EQ(ofPattern->firstCentre, static_cast<std::size_t>(lag) + 1);
        EXPECT_EQ(ofWaveform->levels, ranks);
        EXPECT_EQ(ofWaveform->levelCount, 3);
        EXPECT_EQ(ofWaveform->firstCentre, ofPattern->firstCentre);
        // P and N exchanged, with whatever offset.
        for (double& sample : capture)
            sample = -9.0 - sample;
        for (const auto& inverted : {LocatePattern(capture, pattern, 3), LocateReference(capture, sent, 3)}) {
            EXPECT_EQ(inverted->levels, (std::vector<int>{2, 0, 1, 1, 0, 2, 2, 0, 1, 0, 2}));
            EXPECT_EQ(inverted->firstCentre, ofPattern->firstCentre);
        }
    }
    // The pattern starts again until the capture ends.
    EXPECT_EQ(LocatePattern(Tiled({0, 0, 1, 1}, 3), std::vector<int>{0, 1}, 2)->levels,
              (std::vector<int>{0, 1, 0, 1, 0, 1}));
    EXPECT_FALSE(LocatePattern(sent, std::vector<int>(11, 2), 3));
    EXPECT_FALSE(LocatePattern(sent, std::vector<int>{0, 1, 2, 3, 4, 0, 0, 0, 0, 0, 0}, 3));
    EXPECT_FALSE(LocateReference(RandomValues(64, 1), RandomValues(64, 1), 4));
}

}  // namespace
