#include "workbench/touchstonecheck.h"

#include <gtest/gtest.h>

#include <complex>
#include <exception>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/files.h"

namespace {

using namespace Tarnwick::DSO::Workbench;
using Tarnwick::DSO::Filters::DeEmbeddingFilter;
using Tarnwick::DSO::Filters::DeEmbeddingParameters;
using Tarnwick::Testing::TestFolder;

std::vector<std::string> TextsOf(const TouchstoneReport& report)
{
    std::vector<std::string> texts;
    for (const auto& [line, token, reason] : report.differences)
        texts.push_back(std::to_string(line) + "." + std::to_string(token) + " " + reason);
    return texts;
}

// What DeEmbeddingFilter reads in a file, or what it throws.
std::pair<std::map<double, std::complex<double>>, std::string> Loaded(const std::string& path)
{
    DeEmbeddingParameters parameters;
    try {
        return {DeEmbeddingFilter(&parameters).loadSparamFile(path, PORT_ORDER_12_34), ""};
    } catch (const std::exception& error) {
        return {{}, error.what()};
    }
}

// Where the rules part from the file: line, token and reason, how many values a plain reading finds, and what fails it.
TEST(TouchstoneCheck, SaysWhereTheRulesPartFromTheFile)
{
    const std::string options = "# GHz S MA R 50\n";
    const std::string row = "1 .1 0 .5 -90 .5 -90 .1 0\n";
    const std::string row2 = "2 .1 0 .5 -90 .5 -90 .1 0\n";
    const std::string zeros = " 0 0 0 0 0 0 0 0";
    const std::string row4 = zeros.substr(1) + "\n";
    const std::string atZero = "; their value is put at 0 Hz";
    const std::string blank = "a blank at the end counts as a token";
    const std::string refused = "the file is refused";
    const std::string invalid = ": invalid stod argument";
    const std::string fourPorts = "# Hz S RI R 50\n1";
    const struct {
        std::string text;
        std::vector<std::string> differences;
        const char* name = "a.s2p";
        std::size_t plain = 1;
        const char* plainFailure = "";
    } cases[] = {
        {"! x\n" + options + "\n" + row, {}},
        {"# Hz S RI R 50\r\n1 " + row4 + "\t" + row4 + row4 + row4, {}, "a.s4p"},
        {options + "1 .1 0 .5 -90 .5 -90 .1 0 \n", {"2.10 " + blank + atZero}},
        {options + "1 .1 0 .5 -90 .5 -90 .1 0 ! noisy\n",
         {"2.10 a comment behind the numbers counts as tokens" + atZero}},
        {fourPorts + " " + row4 + "1 0 0 0 0 0 0 0 \n" + row4 + row4,
         {"3.9 " + blank + "; the first is read as a frequency",
          "3.9 " + refused + " at the empty token behind a blank at the end" + invalid},
         "a.s4p"},
        {fourPorts + zeros + zeros + zeros + zeros + "\n",
         {"2.0 33 tokens; the frequency is read as a value"},
         "a.s4p"},
        {options + row + "0.5 1 2 3 4\n", {"3.0 noise parameters are read as transmission" + atZero}},
        {options + "1 .1 0 .5 -90\n.5 -90 .1 0\n",
         {"2.0 5 tokens" + atZero, "3.0 " + refused + ": 4 tokens of at least 5"}},
        {row + row2,
         {"1.0 data without an option line are read at negated frequencies in Hz as RI, not in GHz as MA"},
         "a.s2p",
         2},
        {"# S RI MHz R 50\n" + row, {"1.2 frequencies are read in Hz, not in MHz: the unit is looked for here alone"}},
        {"# GHz Y R 50\n" + row,
         {"1.4 pairs are read as RI, not as MA: the format is looked for here alone",
          "1.0 parameters Y are read as S-parameters"}},
        {options + row + "# MHz S MA R 50\n" + row2,
         {"3.0 a further option line counts for the lines behind it"},
         "a.s2p",
         2},
        {options + "1 .1 0 .5x -90 .5 -90 .1 0\n",
         {"2.4 \".5x\" is no decimal number"},
         "a.s2p",
         0,
         "line 2: \".5x\" is no decimal number"},
        {options + "  ! five words are a line\n" + row,
         {"2.1 a comment behind a blank is read as data", "2.4 " + refused + " at \"are\"" + invalid}},
        {"\xEF\xBB\xBF" + options + row,
         {"1.1 a byte order mark makes a data line of the first line",
          "1.1 an option line behind a blank is read as data", "1.4 " + refused + " at \"MA\"" + invalid}},
        {"[Version] 2.0\n" + options + row,
         {"1.1 \"[Version]\" is a keyword of version 2", "1.0 " + refused + ": 2 tokens of at least 5"},
         "a.s2p",
         0,
         "line 1: \"[Version]\" is a keyword of version 2"},
        {options + "1 .5 0\n2 .5 0\n",
         {"0.0 the magnitude of the lowest frequency is put at 0 Hz, since the second frequency is twice the first"},
         "a.s1p",
         2},
        {fourPorts + " " + row4 + row4 + row4,
         {"4.0 the last record lacks 8 of its 33 numbers"},
         "a.s4p",
         0,
         "line 4: the last record lacks 8 of its 33 numbers"},
        {options + "1 .5 0\n1 .6 0\n",
         {"3.1 the frequency does not lie above the one before; of equal ones the last counts"},
         "a.s1p"},
        {options + "1 .5 0\n",
         {"0.0 the name says one-port file, but it is read as a two-port file: its end has to be in lower case and "
          "stand in the whole name once",
          "2.0 " + refused + ": 3 tokens of at least 5"},
         "A.S1P"},
        {options + row,
         {"0.0 a file of this many ports has no single transmission; it is read as a two-port file"},
         "a.s3p",
         0,
         "a file of this many ports has no single transmission; it is read as a two-port file"},
        {"1e9,-3,0\nnothing\n3e9,-6\n", {"2.0 a line of fewer than two values is passed over"}, "a.s21", 2},
        {"f,mag\n1e9,-3,0\n", {"1.1 " + refused + " at \"f\"" + invalid}, "a.s21"},
        {"", {"0.0 the file is empty or cannot be read"}, "a.s2p", 0},
    };
    const TestFolder folder;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        const std::string path = folder.Write(each.name, each.text).string();
        const TouchstoneReport report = CheckTouchstoneText(each.text, path, PORT_ORDER_12_34);
        EXPECT_EQ(TextsOf(report), each.differences);
        EXPECT_EQ(report.plain.size(), each.plain);
        EXPECT_EQ(report.plainFailure, each.plainFailure);
        EXPECT_EQ(std::pair(report.read, report.readFailure), Loaded(path));
        EXPECT_TRUE(report.plain == report.read || !report.differences.empty());
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
