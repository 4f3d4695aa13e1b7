#include "framework/prbs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "maths/patterns/idealsignal.h"
#include "maths/patterns/symboldetection.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

namespace Maths = Tarnwick::DSO::Maths;
using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

constexpr double kRate = 26.5625;  // [GBd]
constexpr int kSymbols = 8191;
constexpr int kSamplesPerUi = 16;

std::vector<double> Ideal(const std::vector<int>& levels, double samplesPerUi, int levelCount = 4)
{
    const auto count = static_cast<std::size_t>(static_cast<double>(levels.size()) * samplesPerUi);
    return Maths::IdealSignal(levels, {-1.0, 1.0, levelCount}, samplesPerUi, count);
}

// Of the pattern behind a front end of `bandwidth` GHz.
std::vector<double> Capture(double bandwidth, double samplesPerUi = kSamplesPerUi)
{
    return ThroughFrontEnd(Ideal(Prbs13qLevels(), samplesPerUi), kRate * samplesPerUi, bandwidth);
}

std::vector<double> WithEchoes(const std::vector<double>& samples, const std::vector<double>& taps)
{
    std::vector<double> sum(samples.size(), 0.0);
    for (std::size_t k = 0; k < taps.size(); ++k)
        for (std::size_t m = 0; m < samples.size(); ++m)
            sum[m] += taps[k] * samples[(m + samples.size() - k * kSamplesPerUi) % samples.size()];
    return sum;
}

std::string Detected(const std::vector<double>& capture, int symbols = kSymbols, bool withoutGray = false,
                     bool refine = true)
{
    return PRBS::GetIdealPrbsSequencePAM4(capture.data(), static_cast<int>(capture.size()), symbols, nullptr,
                                          withoutGray, false, refine);
}

// Symbols that differ, at the best rotation within a few UI: the front ends delay by less.
template <typename Symbols>
int Errors(const Symbols& found, const Symbols& sent)
{
    const auto count = static_cast<int>(sent.size());
    EXPECT_EQ(static_cast<int>(found.size()), count);
    int fewest = count;
    for (int shift = -5; shift <= 5; ++shift) {
        int errors = 0;
        for (int j = 0; j < count; ++j)
            errors += found[static_cast<std::size_t>((j + shift + count) % count)] != sent[static_cast<std::size_t>(j)];
        fewest = std::min(fewest, errors);
    }
    return fewest;
}

TEST(PrbsDetection, FindsTheSymbolsOfPrbs13q)
{
    std::vector<double> uneven;
    for (const double value : Capture(20.0))
        uneven.push_back(value + 0.25 * value * value);  // levels bend: spacings 0.44, 0.67, 0.89
    const struct {
        const char* label;
        std::vector<double> capture;
        bool refine;
    } cases[] = {
        {"20 GHz, noise of 2 %", WithNoise(Capture(20.0), 0.02, 1), true},
        {"the same without refining", WithNoise(Capture(20.0), 0.02, 1), false},
        {"uneven levels", uneven, true},
        {"13.28 GHz", Capture(13.28), true},
        {"9 GHz, the eye closes", Capture(9.0), true},
        {"7.5 GHz", Capture(7.5), true},
        {"6.5 GHz", Capture(6.5), true},
        {"echoes", WithEchoes(Capture(20.0), {-0.12, 1.0, 0.35, 0.1}), true},
        {"3.3 samples per UI", Capture(20.0, 3.3), true},
        {"1 sample per UI", Ideal(Prbs13qLevels(), 1.0), true},
    };
    const std::string sent = GraySymbols(Prbs13qLevels());
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        EXPECT_EQ(Errors(Detected(each.capture, kSymbols, false, each.refine), sent), 0);
    }
}

// Noise of 12 % of half the swing: decisions are as good as they can be, and the quality says how far it is from none.
TEST(PrbsDetection, ErrsSeldomInHeavyNoise)
{
    const auto capture = WithNoise(Capture(13.0), 0.12, 2);
    EXPECT_NEAR(Errors(Detected(capture), GraySymbols(Prbs13qLevels())), 62, 40);  // 62 for other noise: root 62 is 8
    EXPECT_NEAR(Maths::DetectSymbols(capture, kSymbols, 4).quality, 0.036, 0.004);
}

// NRZ and PAM3 by the same way; scale and offset of the capture do not matter.
TEST(SymbolDetection, FindsAnyNumberOfLevels)
{
    for (const int levelCount : {2, 3}) {
        SCOPED_TRACE(levelCount);
        std::vector<int> sent;
        for (const double value : RandomValues(1500, 4))
            sent.push_back(static_cast<int>((value + 1.0) / 2.0 * levelCount));
        auto capture = ThroughFrontEnd(Ideal(sent, 8.0, levelCount), 8.0 * kRate, 18.0);
        for (double& value : capture)
            value = 5.0 + 1e-3 * value;
        const auto found = Maths::DetectSymbols(capture, sent.size(), levelCount);
        EXPECT_EQ(Errors(found.levels, sent), 0);
        EXPECT_LT(found.quality, 0.01);
        ASSERT_EQ(found.voltages.size(), static_cast<std::size_t>(levelCount));
        // Means of some hundred symbols; 18 GHz leaves a tenth of interference on each.
        EXPECT_NEAR(found.voltages.front(), 5.0 - 1e-3, 1e-4);
        EXPECT_NEAR(found.voltages.back(), 5.0 + 1e-3, 1e-4);
    }
}

TEST(PrbsDetection, TakesTheUsersPattern)
{
    EXPECT_EQ(PRBS::GetIdealPrbsSequencePAM4(nullptr, 0, 5, "03122", false, true, true), "03122");
    // Without one, or unasked, the samples decide.
    const auto capture = Ideal({0, 1, 2, 3, 1, 2}, 4.0);
    EXPECT_EQ(Detected(capture, 6, false, false), "013213");
    for (const auto& [buffer, asked] :
         {std::pair{"", true}, {static_cast<const char*>(nullptr), true}, {"000000", false}})
        EXPECT_EQ(PRBS::GetIdealPrbsSequencePAM4(capture.data(), 24, 6, buffer, true, asked, false), "012312");
}

TEST(PrbsDetectionErrors, SayWhatIsMissing)
{
    auto capture = Ideal({0, 1, 2, 3, 1, 2}, 4.0);
    const auto detect = [&](int count, int symbols, const char* buffer) {
        PRBS::GetIdealPrbsSequencePAM4(capture.data(), count, symbols, buffer, false, true, true);
    };
    const std::string where = "PRBS::GetIdealPrbsSequencePAM4: ";
    ExpectRefused([&] { detect(24, 0, ""); }, where + "patternLengthUi is 0; expected at least 1 UI");
    ExpectRefused([&] { detect(5, 6, ""); }, where + "count is 5; expected at least one sample for each of 6 UI");
    ExpectRefused([&] { detect(24, 6, "01230"); }, where + "length of the buffer is 5; expected 6 symbols");
    ExpectRefused([&] { detect(24, 6, "012\n01"); }, where + "buffer[3] is character 10; expected '0' to '3'");
    ExpectRefused([] { PRBS::GetIdealPrbsSequencePAM4(nullptr, 24, 6, nullptr, false, false, true); },
                  where + "samples is null; expected an array of count samples");
    capture[7] = std::numeric_limits<double>::infinity();
    ExpectRefused([&] { detect(24, 6, ""); }, where + "samples[7] is inf; expected a finite value");
    ExpectRefused([] { Detected(Constant(0.3, 700), 100); },
                  where + "quality of the four levels is inf; expected at most 0.05, as of a PAM4 pattern");
    try {
        Detected(WithNoise(Constant(0.0, 131056), 1.0, 3));
        ADD_FAILURE() << "symbols found in white noise";
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(std::string(error.what()).find(where + "quality of the four levels is 0.1"), 0U) << error.what();
    }
}

TEST(PrbsIdealSignal, HoldsEachSymbolAtItsLevel)
{
    const struct {
        const char* label;
        std::string symbols;
        E_SIGNAL_CODING coding;
        std::vector<double> gray, plain;
    } cases[] = {
        {"PAM4", "0132", SIGNAL_CODING_PAM4, {-3, -1, 1, 3}, {-3, -1, 3, 1}},
        {"precoded", "0132", SIGNAL_CODING_PAM4_PRECODED, {-3, -1, 1, 3}, {-3, -1, 3, 1}},
        {"PAM3", "201", SIGNAL_CODING_PAM3, {3, -3, 0}, {3, -3, 0}},
        {"NRZ", "10", SIGNAL_CODING_NRZ, {3, -3}, {3, -3}},
        {"unknown", "024", SIGNAL_CODING_UNKNOWN, {-3, 0, 3}, {-3, 0, 3}},
        {"unknown, one symbol", "0", SIGNAL_CODING_UNKNOWN, {-3}, {-3}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        int count = 0;
        const auto length = each.symbols.size();  // one sample per UI
        double* raw = PRBS::GetIdealSignalFromPrbsSymbolsD(count, -3.0, 3.0, each.symbols, 1, each.coding);
        EXPECT_TRUE(AreNear(Take(raw, length), each.gray, 4 * DBL_EPSILON));
        EXPECT_EQ(count, static_cast<int>(length));
        raw = PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD(count, -3.0, 3.0, each.symbols, 1, each.coding, 0);
        EXPECT_TRUE(AreNear(Take(raw, length), each.plain, 4 * DBL_EPSILON));
    }
}

TEST(PrbsIdealSignal, SlopesAboutEachBoundary)
{
    int length = 0;
    const auto signal = Take(
        PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD(length, -3.0, 3.0, "0312", 8, SIGNAL_CODING_PAM4, 0.5),
        32);
    const std::vector<double> first{-1.5, -2.5, -3, -3, -3, -3, -2.25, -0.75};
    EXPECT_TRUE(AreNear(std::span(signal).first(8), first, 8 * DBL_EPSILON));
    EXPECT_EQ(length, 32);
}

// Of s samples per UI that need not be whole, sample m holds symbol floor(m/s); beyond the pattern it starts anew.
TEST(PrbsIdealSignal, TakesFractionsOfASample)
{
    const std::vector<int> levels{0, 1, 2};
    EXPECT_EQ(Maths::IdealSignal(levels, {0.0, 2.0, 3}, 2.5, 11),
              std::vector<double>({0, 0, 0, 1, 1, 2, 2, 2, 0, 0, 1}));
}

TEST(PrbsIdealSignalErrors, NameTheValue)
{
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double low;
        std::string symbols;
        int samplesPerUi;
        E_SIGNAL_CODING coding;
        double edge;
        std::string text;
    } cases[] = {
        {kNan, "01", 8, SIGNAL_CODING_NRZ, 0, "low is nan; expected a finite level"},
        {0.0, "", 8, SIGNAL_CODING_NRZ, 0, "symbols is empty; expected at least one symbol"},
        {0.0, "0324", 8, SIGNAL_CODING_PAM4, 0, "symbols[3] is '4'; expected '0' to '3'"},
        {0.0, "1x", 8, SIGNAL_CODING_UNKNOWN, 0, "symbols[1] is 'x'; expected '0' to '1'"},
        {0.0, "01", 0, SIGNAL_CODING_NRZ, 0, "samplesPerUi is 0; expected at least 1 sample per UI"},
        {0.0, "01", 1 << 30, SIGNAL_CODING_NRZ, 0,
         "samplesPerUi is 1073741824; expected at most 1073741823, so that the samples can be counted"},
        {0.0, "01", 8, SIGNAL_CODING_NRZ, 1.5, "edge is 1.5; expected 0 to 1 UI"},
    };
    for (const auto& each : cases) {
        int length = 77;
        ExpectRefused(
            [&] {
                PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD(length, each.low, 1.0, each.symbols,
                                                                       each.samplesPerUi, each.coding, each.edge);
            },
            "PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD: " + each.text);
        EXPECT_EQ(length, 77);
    }
}

TEST(PrbsCircularShift, RotatesEitherWayByAnyNumber)
{
    const struct {
        int shift;
        bool left;
        std::vector<double> rotated;
    } cases[] = {{2, false, {4, 5, 0, 1, 2, 3}},
                 {8, true, {2, 3, 4, 5, 0, 1}},
                 {0, false, {0, 1, 2, 3, 4, 5}},
                 {INT_MIN, false, {2, 3, 4, 5, 0, 1}}};
    for (const auto& [shift, left, rotated] : cases) {
        std::vector<double> data{0, 1, 2, 3, 4, 5};
        PRBS::CircularShiftOptim(shift, data.data(), 6, left);
        EXPECT_EQ(data, rotated) << shift;
    }
    PRBS::CircularShiftOptim(3, nullptr, 0, false);
    ExpectRefused([] { PRBS::CircularShiftOptim(1, nullptr, 6, false); },
                  "PRBS::CircularShiftOptim: data is null; expected an array of length values");
}

}  // namespace
