#include "maths/touchstone/touchstone.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "framework/plumbing/linereader.h"
#include "maths/touchstone/networkparameters.h"

namespace {

using Tarnwick::DSO::SystemFramework::LineReader;
using namespace Tarnwick::DSO::Maths;

// What std::stod makes of a text; in the "C" locale, in which tests run.
Number ByStod(const std::string& text)
{
    Number number;
    try {
        number.value = std::stod(text, &number.length);
        // Hexadecimal subnormals are exact, which one C library calls in range and another does not. Here none is.
        const bool isTooSmall = std::fpclassify(number.value) == FP_SUBNORMAL;
        number.status = isTooSmall ? NumberStatus::OutOfRange : NumberStatus::Number;
    } catch (const std::invalid_argument&) {
        number.status = NumberStatus::Invalid;
    } catch (const std::out_of_range&) {
        number.status = NumberStatus::OutOfRange;
    }
    return number;
}

void ExpectAsStod(const std::string& text)
{
    const Number expected = ByStod(text);
    const Number actual = NumberAtStart(text);
    ASSERT_EQ(actual.status, expected.status) << "\"" << text << "\"";
    if (expected.status != NumberStatus::Number)
        return;
    EXPECT_EQ(actual.length, expected.length) << text;
    EXPECT_EQ(std::isnan(actual.value), std::isnan(expected.value)) << text;
    if (!std::isnan(expected.value)) {
        EXPECT_EQ(actual.value, expected.value) << text;
        EXPECT_EQ(std::signbit(actual.value), std::signbit(expected.value)) << text;
    }
}

TEST(TouchstoneNumber, IsReadAsStodReadsIt)
{
    // Texts that are almost numbers, of the characters that numbers are made of.
    std::mt19937_64 random(1);
    const std::string_view alphabet = "0123456789012345..+-eE xXpPinfatyaA";
    for (int k = 0; k < 200000; ++k) {
        std::string text(1 + random() % 9, ' ');
        for (char& c : text)
            c = alphabet[random() % alphabet.size()];
        ExpectAsStod(text);
    }
    // What these hardly come upon: words, other blanks, and either side of the limits.
    std::istringstream texts(
        "|\t\v\f\r\n7|1,5|-0x.8p1|0xinf|-INF|infinity|infinit|-NaN|nan(7)|1e309|0e-400|0x1p1024|"
        "0x1p-1074|0x0p-9999|0x1p-9999|1e99999999999999999999|2.2250738585072014e-308|"
        "2.2250738585072009e-308|1.7976931348623157e308|1.7976931348623159e308|"
        "0.000000000000000000000000000001e-300");
    for (std::string text; std::getline(texts, text, '|');)
        ExpectAsStod(text);
}

TEST(TouchstoneTokens, DropEmptyRunsButTheOneAtTheEnd)
{
    const struct {
        const char* line;
        const char* delimiters;
        std::vector<std::string> tokens;
    } cases[] = {{"", " ", {""}},
                 {"  a \t b", " \t", {"a", "b"}},
                 {"a\tb  ", " ", {"a\tb", ""}},
                 {",1,,2,", ",", {"1", "2", ""}}};
    for (const auto& [line, delimiters, expected] : cases) {
        const Tokens tokens = Split(line, delimiters);
        EXPECT_EQ(std::vector<std::string>(tokens.stored.begin(), tokens.stored.begin() + tokens.count), expected)
            << line;
    }
    const Tokens many = Split("1 2 3 4 5 6 7 8 9 10 11 ", " ");
    EXPECT_EQ(many.count, 12U);
    EXPECT_EQ(many.stored.back(), "9");
}

TEST(TouchstoneKind, IsTheEndOfTheNameWhereThatStandsOnce)
{
    const struct {
        const char* name;
        FileKind kind;
    } cases[] = {{"dir/a.b.s4p", FileKind::FourPort}, {"a.S4P", FileKind::TwoPort},
                 {"a.s4p.bak", FileKind::TwoPort},    {"x.s4p/a.s4p", FileKind::TwoPort},
                 {"a.s4p.s1p", FileKind::OnePort},    {"a.s1p.s21", FileKind::Table}};
    for (const auto& [name, kind] : cases)
        EXPECT_EQ(KindOf(name), kind) << name;
}

// Lines meet the buffer's edge at every place, and one is longer than it.
TEST(LineReader, CutsAtNewlinesWhereverTheBufferEnds)
{
    std::string text = "\n\r\r\n";
    std::vector<std::string> expected = {"", "\r"};
    for (std::size_t k = 0; k < 3000; ++k) {
        expected.emplace_back(k % 97, static_cast<char>('a' + k % 26));
        text += expected.back() + "\n";
    }
    expected.emplace_back(300000, 'x');
    expected.emplace_back("last");
    text += expected[expected.size() - 2] + "\nlast\r";
    std::istringstream source(text);
    LineReader lines(source);
    for (std::size_t k = 0; k < expected.size(); ++k) {
        ASSERT_EQ(lines.Next(), expected[k]);
        ASSERT_EQ(lines.Number(), k + 1);
    }
    EXPECT_FALSE(lines.Next().has_value());
}

using Complex = std::complex<double>;

// A series impedance z has H = [z 1; -1 0], G = [0 -1; 1 z], Y = [1 -1; -1 1]/z and S = [z 2; 2 z]/(z + 2); a shunt
// admittance y has Z = [1 1; 1 1]/y and S = [-y 2; 2 -y]/(y + 2).
TEST(NetworkParameters, BecomeThoseOfASeriesAndAShuntElement)
{
    const Complex z(3.0, -1.0);
    const Complex one = 1.0;
    const std::vector<Complex> series = {z / (z + 2.0), 2.0 / (z + 2.0), 2.0 / (z + 2.0), z / (z + 2.0)};
    std::vector<Complex> shunt = series;
    shunt[0] = shunt[3] = -series[0];
    const auto expect = [](const std::vector<Complex>& expected, char kind, const std::vector<Complex>& values) {
        const auto found = ScatteringFrom(kind, values);
        ASSERT_TRUE(found);
        for (std::size_t k = 0; k < 4; ++k)  // some tens of roundings of numbers near 1
            EXPECT_LT(std::abs((*found)[k] - expected[k]), 1e-14) << kind << " " << k;
    };
    expect(series, 'H', {z, one, -one, 0.0});
    expect(series, 'G', {0.0, -one, one, z});
    expect(series, 'Y', {one / z, -one / z, -one / z, one / z});
    expect(shunt, 'Z', {one / z, one / z, one / z, one / z});
    EXPECT_FALSE(ScatteringFrom('Z', std::vector<Complex>{-1.0}));
    EXPECT_FALSE(ScatteringFrom('G', std::vector<Complex>(16, 0.0)));
}

}  // namespace
