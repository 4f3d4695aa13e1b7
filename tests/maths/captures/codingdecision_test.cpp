#include "maths/captures/codingdecision.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <string>

#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"
#include "support/captures.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

constexpr std::size_t kSamplesPerUi = 8;

// Behind a matched line of skin effect, `lossDb` down at half the symbol rate.
std::vector<double> BehindLine(const std::vector<double>& samples, double lossDb)
{
    return ThroughResponse(samples, kSamplesPerUi, [lossDb](double f) {
        const double loss = lossDb / 8.685889638 * std::sqrt(f / 0.5);
        return std::exp(std::complex<double>(-loss, -loss));
    });
}

std::vector<double> Drawn(const std::vector<int>& levels, int levelCount)
{
    return IdealSignal(levels, {-0.5, 0.5, levelCount}, kSamplesPerUi, levels.size() * kSamplesPerUi);
}

std::vector<double> WithEchoes(const std::vector<int>& levels, const std::vector<double>& echoes)
{
    std::vector<double> samples = Drawn(levels, 2);
    const std::vector<double> sent = samples;
    for (std::size_t k = 0; k < echoes.size(); ++k)
        AddRotated(samples, echoes[k], sent, -static_cast<long long>((k + 1) * kSamplesPerUi));
    return ThroughFrontEnd(samples, kSamplesPerUi, 0.75);
}

std::vector<int> RandomLevels(std::size_t count, int levelCount)
{
    std::vector<int> levels;
    for (const double value : RandomValues(count, 9))
        levels.push_back(static_cast<int>((value + 1.0) / 2.0 * levelCount));
    return levels;
}

// Symbols that differ but for the uncertain ends; a line delays by up to a UI.
std::size_t Errors(const CodingDecision& found, const std::vector<int>& sent)
{
    std::size_t fewest = sent.size();
    for (const long long shift : {0, 1}) {
        std::size_t errors = 0;
        for (std::size_t i = found.uncertainEnds; i + found.uncertainEnds < sent.size(); ++i)
            errors += found.symbols[i] == sent[WrappedIndex(static_cast<long long>(i) - shift, sent.size())] ? 0 : 1;
        fewest = std::min(fewest, errors);
    }
    return fewest;
}

TEST(CodingDecided, IsTheOneSentThroughClosedEyes)
{
    const std::vector<int> prbs = PrbsLevels(11, 9);
    const std::vector<int> pam3 = RandomLevels(3000, 3);
    const std::vector<int> pam4 = Prbs13qLevels();
    const std::vector<int> fewPam4(pam4.begin() + 1000, pam4.begin() + 1300);
    const std::vector<int> manyPam4 = RandomLevels(20000, 4);
    std::vector<int> smallSteps{0};
    for (const int level : RandomLevels(3000, 4))
        if (std::abs(level - smallSteps.back()) < 3)
            smallSteps.push_back(level);
    std::vector<int> clock;
    for (int i = 0; i < 500; ++i)
        clock.push_back(i % 2);
    const auto noisy = [](const std::vector<double>& samples, double rms) { return WithNoise(samples, rms, 5); };
    const struct {
        const char* label;
        E_SIGNAL_CODING coding;
        std::vector<int> sent;
        std::vector<double> capture;
        Wrapping wrapping = Wrapping::None;
        bool lacksPairs = false;
    } cases[] = {
        {"NRZ", SIGNAL_CODING_NRZ, prbs, noisy(Drawn(prbs, 2), 0.01)},
        {"NRZ with echoes", SIGNAL_CODING_NRZ, prbs, WithEchoes(prbs, {0.6, 0.3})},
        {"NRZ behind 10 dB", SIGNAL_CODING_NRZ, prbs, noisy(BehindLine(Drawn(prbs, 2), 10.0), 0.005)},
        {"PAM3 behind 10 dB", SIGNAL_CODING_PAM3, pam3, noisy(BehindLine(Drawn(pam3, 3), 10.0), 0.002)},
        {"PAM4 behind 8 dB", SIGNAL_CODING_PAM4, pam4, noisy(BehindLine(Drawn(pam4, 4), 8.0), 0.002)},
        {"PAM4 behind 16 dB", SIGNAL_CODING_PAM4, pam4, BehindLine(Drawn(pam4, 4), 16.0), Wrapping::Circular},
        {"300 UI of PAM4", SIGNAL_CODING_PAM4, fewPam4, noisy(Drawn(fewPam4, 4), 0.01)},
        {"20 000 UI of PAM4", SIGNAL_CODING_PAM4, manyPam4, noisy(BehindLine(Drawn(manyPam4, 4), 8.0), 0.002)},
        {"PAM4 without the largest steps", SIGNAL_CODING_PAM4, smallSteps, noisy(Drawn(smallSteps, 4), 0.01),
         Wrapping::None, true},
        {"a clock", SIGNAL_CODING_NRZ, clock, Drawn(clock, 2), Wrapping::None, true},
    };
    for (const auto& [label, coding, sent, capture, wrapping, lacksPairs] : cases) {
        SCOPED_TRACE(label);
        const CodingDecision found = DecideCoding(capture, kSamplesPerUi, wrapping);
        EXPECT_EQ(found.coding, coding);
        EXPECT_EQ(found.lacksPairs, lacksPairs);
        ASSERT_EQ(found.symbols.size(), sent.size());
        EXPECT_EQ(Errors(found, sent), 0U);
        EXPECT_EQ(found.uncertainEnds > 0, wrapping == Wrapping::None);
        EXPECT_LT(found.quality, 0.01);
        EXPECT_TRUE(std::is_sorted(found.levels.begin(), found.levels.end()));
        EXPECT_EQ(found.fits.size(), 3U);
        // Given, it is not asked for, and what it finds is the same.
        const CodingDecision told = DecideCoding(capture, kSamplesPerUi, wrapping, coding);
        EXPECT_EQ(told.coding, coding);
        EXPECT_EQ(told.symbols, found.symbols);
        EXPECT_EQ(told.fits.size(), 1U);
    }
}

TEST(CodingDecided, IsNoneWithoutLevels)
{
    std::vector<double> ramp(8000);
    std::vector<double> sine(8000);
    for (std::size_t m = 0; m < ramp.size(); ++m) {
        ramp[m] = static_cast<double>(m);
        sine[m] = std::sin(0.1234567 * static_cast<double>(m));
    }
    const struct {
        const char* label;
        std::vector<double> samples;
    } cases[] = {{"empty", {}},
                 {"15 UI", Drawn(PrbsLevels(7, 6), 2)},
                 {"constant", Constant(0.3, 8000)},
                 {"white noise", WithNoise(Constant(0.0, 8000), 1.0, 7)},
                 {"uniform noise", RandomValues(8000, 8)},
                 {"ramp", ramp},
                 {"sine", sine}};
    for (const auto& [label, samples] : cases) {
        SCOPED_TRACE(label);
        const std::span<const double> all(samples);
        const CodingDecision found =
            DecideCoding(all.first(label == std::string("15 UI") ? 127 : all.size()), kSamplesPerUi, Wrapping::None);
        EXPECT_EQ(found.coding, SIGNAL_CODING_UNKNOWN);
        EXPECT_TRUE(found.symbols.empty() && found.levels.empty());
        EXPECT_EQ(found.fits.size(), 3U);
    }
}

TEST(SymbolAgreementOf, TellsWhereThePatternLies)
{
    const std::vector<int> pattern = Prbs13qLevels();
    const struct {
        const char* label;
        std::size_t first, count;
        bool inverted;
        std::size_t every;  // one symbol in this many is wrong; 0: none
    } cases[] = {{"part of a period", 3000, 1000, false, 0},
                 {"more than two periods, upside down", 8000, 20000, true, 0},
                 {"one symbol in 50 wrong", 17, 8191, false, 50}};
    for (const auto& [label, first, count, inverted, every] : cases) {
        SCOPED_TRACE(label);
        std::vector<int> found;
        for (std::size_t i = 0; i < count; ++i) {
            const int level = pattern[(first + i) % pattern.size()];
            found.push_back(inverted ? 3 - level : level);
            if (every > 0 && i % every == 0)
                found.back() ^= 1;
        }
        const SymbolAgreement agreement = CompareSymbols(found, pattern, 4);
        EXPECT_EQ(agreement.shift, first);
        EXPECT_EQ(agreement.inverted, inverted);
        EXPECT_NEAR(agreement.share, every == 0 ? 1.0 : 0.98, every == 0 ? 0.0 : 1e-4);
    }
    EXPECT_LT(CompareSymbols(RandomLevels(4000, 4), pattern, 4).share, 0.4);
}

}  // namespace
