#include "filters/filters/touchstonecheck.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/files.h"

namespace {

using namespace Tarnwick::DSO::Filters;
using Tarnwick::Testing::TestFolder;

std::vector<std::string> TextsOf(const TouchstoneReport& report)
{
    std::vector<std::string> texts;
    for (const auto& [line, token, reason] : report.differences)
        texts.push_back(std::to_string(line) + "." + std::to_string(token) + " " + reason);
    return texts;
}

// Where the rules part from the file: line, token and reason, how many values either finds, and what fails.
TEST(TouchstoneCheck, SaysWhereTheRulesPartFromTheFile)
{
    const std::string row = "1 .1 0 .5 -90 .5 -90 .1 0\n";
    const std::string row4 = "1 0 0 0 0 0 0 0\n";
    const struct {
        const char* label;
        const char* name;
        std::string text;
        std::size_t plain, read;
        std::vector<std::string> differences;
        std::string plainFailure, readFailure;
    } cases[] = {
        {"as it should be", "a.s2p", "! x\n# GHz S MA R 50\n\n" + row, 1, 1, {}, "", ""},
        {"four ports", "a.s4p", "# Hz S RI R 50\r\n1 " + row4 + "\t" + row4 + row4 + row4, 1, 1, {}, "", ""},
        {"blank at the end",
         "a.s2p",
         "# GHz S MA R 50\n1 .1 0 .5 -90 .5 -90 .1 0 \n",
         1,
         1,
         {"2.10 a blank at the end counts as a token; their value is put at 0 Hz"},
         "",
         ""},
        {"comment behind numbers",
         "a.s2p",
         "# GHz S MA R 50\n1 .1 0 .5 -90 .5 -90 .1 0 ! noisy\n",
         1,
         1,
         {"2.10 a comment behind the numbers counts as tokens; their value is put at 0 Hz"},
         "",
         ""},
        {"blank in a four-port file",
         "a.s4p",
         "# Hz S RI R 50\n1 " + row4 + "1 0 0 0 0 0 0 0 \n" + row4 + row4,
         1,
         0,
         {"3.9 a blank at the end counts as a token; the first is read as a frequency",
          "3.9 the file is refused at the empty token behind a blank at the end: invalid stod argument"},
         "",
         "invalid stod argument"},
        {"noise",
         "a.s2p",
         "# GHz S MA R 50\n" + row + "0.5 1 2 3 4\n",
         1,
         2,
         {"3.0 noise parameters are read as transmission; their value is put at 0 Hz"},
         "",
         ""},
        {"record over two lines",
         "a.s2p",
         "# GHz S MA R 50\n1 .1 0 .5 -90\n.5 -90 .1 0\n",
         1,
         0,
         {"2.0 5 tokens; their value is put at 0 Hz", "3.0 the file is refused: 4 tokens of at least 5"},
         "",
         "DeEmbeddingFilter: number of tokens in line 3 of a.s2p is 4; expected at least 5 in a data line"},
        {"no option line",
         "a.s2p",
         row,
         1,
         1,
         {"1.0 data without an option line are read at negated frequencies in Hz as RI, not in GHz as MA"},
         "",
         ""},
        {"options in another order",
         "a.s2p",
         "# S RI MHz R 50\n" + row,
         1,
         1,
         {"1.2 frequencies are read in Hz, not in MHz: the unit is looked for here alone"},
         "",
         ""},
        {"options without a format",
         "a.s2p",
         "# GHz Y R 50\n" + row,
         1,
         1,
         {"1.4 pairs are read as RI, not as MA: the format is looked for here alone",
          "1.0 parameters Y are read as S-parameters"},
         "",
         ""},
        {"a second option line",
         "a.s2p",
         "# GHz S MA R 50\n" + row + "# MHz S DB R 50\n2 .1 0 .5 -90 .5 -90 .1 0\n",
         2,
         2,
         {"3.0 a further option line counts for the lines behind it"},
         "",
         ""},
        {"a word",
         "a.s2p",
         "# GHz S MA R 50\n1 .1 0 .5x -90 .5 -90 .1 0\n",
         0,
         1,
         {"2.4 \".5x\" is no decimal number"},
         "line 2: \".5x\" is no decimal number",
         ""},
        {"blank before a comment",
         "a.s2p",
         "# GHz S MA R 50\n  ! five words are a line\n" + row,
         1,
         0,
         {"2.1 a comment behind a blank is read as data", "2.4 the file is refused at \"are\": invalid stod argument"},
         "",
         "invalid stod argument"},
        {"byte order mark",
         "a.s2p",
         "\xEF\xBB\xBF# GHz S MA R 50\n" + row,
         1,
         0,
         {"1.1 a byte order mark makes a data line of the first line",
          "1.1 an option line behind a blank is read as data",
          "1.4 the file is refused at \"MA\": invalid stod argument"},
         "",
         "invalid stod argument"},
        {"version 2",
         "a.s2p",
         "[Version] 2.0\n# GHz S MA R 50\n" + row,
         0,
         0,
         {"1.1 \"[Version]\" is a keyword of version 2", "1.0 the file is refused: 2 tokens of at least 5"},
         "line 1: \"[Version]\" is a keyword of version 2",
         "DeEmbeddingFilter: number of tokens in line 1 of a.s2p is 2; expected at least 5 in a data line"},
        {"point at 0 Hz",
         "a.s1p",
         "# GHz S MA R 50\n1 .5 0\n2 .5 0\n",
         2,
         3,
         {"0.0 the magnitude of the lowest frequency is put at 0 Hz, since the second frequency is twice the first"},
         "",
         ""},
        {"cut short",
         "a.s4p",
         "# Hz S RI R 50\n1 " + row4 + row4 + row4,
         0,
         0,
         {"4.0 the last record lacks 8 of its 33 numbers"},
         "line 4: the last record lacks 8 of its 33 numbers",
         ""},
        {"the same frequency twice",
         "a.s1p",
         "# Hz S RI R 50\n1 .5 0\n1 .6 0\n",
         1,
         1,
         {"3.1 the frequency does not lie above the one before; of equal ones the last counts"},
         "",
         ""},
        {"upper case",
         "A.S1P",
         "# Hz S RI R 50\n1 .5 0\n",
         1,
         0,
         {"0.0 the name says one-port file, but it is read as a two-port file: its end has to be in lower case and "
          "stand "
          "in the whole name once",
          "2.0 the file is refused: 3 tokens of at least 5"},
         "",
         "DeEmbeddingFilter: number of tokens in line 2 of A.S1P is 3; expected at least 5 in a data line"},
        {"three ports",
         "a.s3p",
         "# Hz S RI R 50\n" + row,
         0,
         1,
         {"0.0 a file of so many ports has no one transmission; it is read as a two-port file"},
         "a file of so many ports has no one transmission; it is read as a two-port file",
         ""},
        {"table",
         "a.s21",
         "1e9,-3,0\nnothing\n3e9,-6,1\n",
         2,
         2,
         {"2.0 a line of fewer than two values is passed over"},
         "",
         ""},
        {"table with a header",
         "a.s21",
         "f,mag\n1e9,-3,0\n",
         1,
         0,
         {"1.1 the file is refused at \"f\": invalid stod argument"},
         "",
         "invalid stod argument"},
        {"nothing", "a.s2p", "", 0, 0, {"0.0 the file is empty or cannot be read"}, "", ""},
    };
    const TestFolder folder;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        const TouchstoneReport report = CheckTouchstoneText(each.text, each.name, PORT_ORDER_12_34);
        EXPECT_EQ(TextsOf(report), each.differences);
        EXPECT_EQ(report.plain.size(), each.plain);
        EXPECT_EQ(report.read.size(), each.read);
        EXPECT_EQ(report.plainFailure, each.plainFailure);
        EXPECT_EQ(report.readFailure, each.readFailure);
        EXPECT_EQ(report.differences.empty(), report.plain == report.read && each.differences.empty());
        // The file is read as the text is, and the filter reads what this says.
        const std::string path = folder.Write(each.name, each.text).string();
        EXPECT_EQ(TextsOf(CheckTouchstoneFile(path, PORT_ORDER_12_34)), each.differences);
        if (report.readFailure.empty()) {
            DeEmbeddingParameters parameters;
            EXPECT_EQ(DeEmbeddingFilter(&parameters).loadSparamFile(path, PORT_ORDER_12_34), report.read);
        }
    }
}

// Touchstone allows for options in any order and case, comments anywhere and records over any number of lines.
TEST(TouchstoneCheck, ReadsPlainlyWhatTheSpecificationAllows)
{
    const struct {
        const char* name;
        const char* text;
        PortOrderS4P order;
        double frequency;
        std::complex<double> value;
    } cases[] = {
        {"a.s2p", " # r 50 ri s khz ! options\n! c\n1 1 2 3 4 ! one\n\t5 6 7 8\n", PORT_ORDER_12_34, 1e3, {3, 4}},
        {"a.s2p", "1 1 0 .5 180 1 0 1 0", PORT_ORDER_12_34, 1e9, {-0.5, 0}},
        {"a.s1p", "#\n1 2 0 3 4 90\n", PORT_ORDER_12_34, 3e9, {0, 4}},
        {"a.s4p",
         "# Hz RI\n7 1 0 2 0 3 0 4 0 5 0 6 0 7 0 8 0 9 0 3 0 12 0 11 0 13 0 14 0 15 0 17 0\n",
         PORT_ORDER_12_34,
         7,
         {3.5, 0}},
        {"a.S4P",
         "# Hz RI\n7 1 0 2 0 3 0 4 0 5 0 6 0 7 0 8 0 9 0 10 0 12 0 11 0 13 0 14 0 16 0 18 0\n",
         PORT_ORDER_13_24,
         7,
         {0.5, 0}},
    };
    for (const auto& [name, text, order, frequency, value] : cases) {
        const auto plain = CheckTouchstoneText(text, name, order).plain;
        ASSERT_TRUE(plain.contains(frequency)) << text;
        EXPECT_LT(std::abs(plain.at(frequency) - value), 1e-15) << text;
    }
}

}  // namespace
