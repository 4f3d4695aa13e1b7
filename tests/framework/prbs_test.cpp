#include "framework/prbs.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/captures.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

// `samplesPerUi` samples for each level, 0 to 3, from -1 to 1.
std::vector<double> Ideal(const std::vector<int>& levels, std::size_t samplesPerUi)
{
    std::vector<double> samples;
    for (const int level : levels)
        samples.insert(samples.end(), samplesPerUi, 2.0 * level / 3.0 - 1.0);
    return samples;
}

std::string Detected(const std::vector<double>& capture, int symbols, bool withoutGray = false, bool refine = true)
{
    return PRBS::GetIdealPrbsSequencePAM4(capture.data(), static_cast<int>(capture.size()), symbols, nullptr,
                                          withoutGray, false, refine);
}

// An echo of 40 % closes the eye: without the equaliser no phase shows four levels.
TEST(PrbsDetection, RefinesWhenAsked)
{
    const std::vector<double> sent = Ideal(Prbs13qLevels(), 1);
    std::vector<double> capture = sent;
    for (std::size_t k = 0; k < sent.size(); ++k)
        capture[(k + 1) % sent.size()] += 0.4 * sent[k];
    EXPECT_EQ(Detected(capture, 8191), GraySymbols(Prbs13qLevels()));
    EXPECT_THROW(Detected(capture, 8191, false, false), std::invalid_argument);
}

TEST(PrbsDetection, TakesTheUsersPattern)
{
    EXPECT_EQ(PRBS::GetIdealPrbsSequencePAM4(nullptr, 0, 5, "03122", false, true, true), "03122");
    // Without one, or unasked, the samples decide.
    const auto capture = Ideal({0, 1, 2, 3, 1, 2}, 4);
    EXPECT_EQ(Detected(capture, 6, false, false), "013213");
    for (const auto& [buffer, asked] :
         {std::pair{"", true}, {static_cast<const char*>(nullptr), true}, {"000000", false}})
        EXPECT_EQ(PRBS::GetIdealPrbsSequencePAM4(capture.data(), 24, 6, buffer, true, asked, false), "012312");
}

TEST(PrbsDetectionErrors, SayWhatIsMissing)
{
    auto capture = Ideal({0, 1, 2, 3, 1, 2}, 4);
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
        Detected(WithNoise(Constant(0.0, 131056), 1.0, 3), 8191);
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

}  // namespace
