#include "workbench/pattern.h"

#include "support/failures.h"
#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::FailureOf;

// The bits start with ones and satisfy their polynomial all the way round.
TEST(PatternPrbs, IsAMaximalSequenceOfItsPolynomial)
{
    const struct {
        int order;
        std::vector<std::size_t> taps;
    } cases[] = {{7, {7, 6}}, {9, {9, 5}}, {11, {11, 9}}, {13, {13, 12, 2, 1}}, {15, {15, 14}}};
    for (const auto& row : cases) {
        SCOPED_TRACE("order " + std::to_string(row.order));
        const std::string bits = PrbsSymbols(row.order, SIGNAL_CODING_NRZ);
        const std::size_t length = (std::size_t{1} << static_cast<unsigned>(row.order)) - 1;
        ASSERT_EQ(bits.size(), length);
        EXPECT_EQ(bits.substr(0, static_cast<std::size_t>(row.order)),
                  std::string(static_cast<std::size_t>(row.order), '1'));
        std::size_t wrong = 0;
        for (std::size_t k = 0; k < length; ++k) {
            int sum = bits[k] - '0';
            for (const std::size_t tap : row.taps)
                sum += bits[(k + length - tap) % length] - '0';
            wrong += static_cast<std::size_t>(sum % 2);
        }
        EXPECT_EQ(wrong, 0U);
    }
}

TEST(PatternPrbs, MakesPam4OfTheSequenceTakenTwice)
{
    const std::string bits = PrbsSymbols(13, SIGNAL_CODING_NRZ);
    const std::string symbols = PrbsSymbols(13, SIGNAL_CODING_PAM4);
    ASSERT_EQ(symbols.size(), 8191U);
    const std::string twice = bits + bits;
    for (std::size_t k = 0; k < symbols.size(); ++k)
        ASSERT_EQ(symbols[k] - '0', 2 * (twice[2 * k] - '0') + (twice[2 * k + 1] - '0')) << "symbol " << k;
}

TEST(PatternLevels, AreGrayCodesOfPam4AndPlainDigitsElsewhere)
{
    EXPECT_EQ(LevelsOf("0132", SIGNAL_CODING_PAM4, false), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(LevelsOf("0132", SIGNAL_CODING_PAM4_PRECODED, false), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(LevelsOf("0132", SIGNAL_CODING_PAM4, true), (std::vector<int>{0, 1, 3, 2}));
    EXPECT_EQ(LevelsOf("012", SIGNAL_CODING_PAM3, false), (std::vector<int>{0, 1, 2}));
}

TEST(PatternErrors, NameWhatIsWrong)
{
    EXPECT_EQ(FailureOf<UsageFailure>([] { PrbsSymbols(8, SIGNAL_CODING_NRZ); }),
              "PRBS order is 8; expected 7, 9, 11, 13 or 15");
    EXPECT_EQ(FailureOf<UsageFailure>([] { PrbsSymbols(7, SIGNAL_CODING_PAM3); }),
              "a PRBS has no PAM3 symbols; give them as a text");
    EXPECT_EQ(FailureOf<UsageFailure>([] { LevelsOf("0102", SIGNAL_CODING_NRZ, false); }),
              "symbol 3 is '2'; expected a digit below 2");
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
