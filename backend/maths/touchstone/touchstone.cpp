#include "maths/touchstone/touchstone.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <utility>

namespace Tarnwick::DSO::Maths {

using Complex = std::complex<double>;

namespace {

constexpr double kRadiansPerDegree = 0.017453292519943295;
constexpr std::size_t kRecordTokens = 9;  // a frequency and four pairs

Complex Polar(double magnitude, double radians)
{
    return {magnitude * std::cos(radians), magnitude * std::sin(radians)};
}

double FromLevel(double level)
{
    return std::pow(10.0, level / 20.0);
}

// One character at a time: a search for any of several starts again at each.
bool IsSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool IsHexDigit(char c)
{
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// After 0x a hexadecimal number has a digit, or a point and a digit.
bool IsHexadecimal(std::string_view text)
{
    if (text.size() < 3 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
        return false;
    return IsHexDigit(text[2]) || (text[2] == '.' && text.size() > 3 && IsHexDigit(text[3]));
}

// Whether a number that was read as zero has other digits, and is therefore too small.
bool HasDigits(std::string_view number, bool hexadecimal)
{
    return std::any_of(number.begin(), number.end(), [&, inExponent = false](char c) mutable {
        inExponent = inExponent || (hexadecimal ? c == 'p' || c == 'P' : c == 'e' || c == 'E');
        return !inExponent && c != '0' && c != '.';
    });
}

}  // namespace

FileKind KindOf(std::string_view fileName)
{
    const struct {
        std::string_view end;
        FileKind kind;
    } kinds[] = {{".s21", FileKind::Table}, {".s1p", FileKind::OnePort}, {".s4p", FileKind::FourPort}};
    for (const auto& [end, kind] : kinds) {
        const std::size_t first = fileName.find(end);
        if (first != std::string_view::npos && fileName.substr(first) == end)
            return kind;
    }
    return FileKind::TwoPort;
}

Complex FromMagnitude(double magnitude, double degrees)
{
    return Polar(magnitude, degrees * kRadiansPerDegree);
}

Complex FromDecibels(double level, double degrees)
{
    return FromMagnitude(FromLevel(level), degrees);
}

Complex FromPair(PairFormat format, double a, double b)
{
    switch (format) {
        case PairFormat::Decibel: return FromDecibels(a, b);
        case PairFormat::Magnitude: return FromMagnitude(a, b);
        case PairFormat::RealImaginary: break;
    }
    return {a, b};
}

Complex DifferentialTransmission(std::span<const Complex, 16> matrix, PortPairs pairs)
{
    // (S31 - S41 - S32 + S42)/2, with ports 1, 2 and 3, 4 for the pairs.
    const std::size_t positive = pairs == PortPairs::Alternate ? 1 : 2;
    constexpr std::size_t kPorts = 4;
    const auto across = [&](std::size_t column) {
        return matrix[kPorts * positive + column] - matrix[kPorts * 3 + column];
    };
    return 0.5 * across(0) - 0.5 * across(1);
}

Number NumberAtStart(std::string_view text)
{
    std::string_view number = text;
    while (!number.empty() && IsSpace(number.front()))
        number.remove_prefix(1);
    const bool isNegative = !number.empty() && number.front() == '-';
    if (isNegative || (!number.empty() && number.front() == '+'))
        number.remove_prefix(1);
    if (number.empty() || number.front() == '-')
        return {};
    const bool isHexadecimal = IsHexadecimal(number);
    if (isHexadecimal)
        number.remove_prefix(2);

    const char* const begin = number.data();
    double value = 0.0;
    const auto [end, error] = std::from_chars(begin, begin + number.size(), value,
                                              isHexadecimal ? std::chars_format::hex : std::chars_format::general);
    if (error == std::errc::invalid_argument)
        return {};
    const auto length = static_cast<std::size_t>(end - text.data());
    // Standard libraries differ in what they report as out of range, so the value is checked as well.
    const bool isLiteral = !IsHexDigit(*begin) && *begin != '.';  // infinity or NaN
    const bool isTooLarge = std::isinf(value) && !isLiteral;
    const bool isTooSmall = value == 0.0 ? HasDigits({begin, static_cast<std::size_t>(end - begin)}, isHexadecimal)
                                         : std::fpclassify(value) == FP_SUBNORMAL;
    if (error != std::errc() || isTooLarge || isTooSmall)
        return {value, NumberStatus::OutOfRange, length};
    return {isNegative ? -value : value, NumberStatus::Number, length};
}

bool IsBlank(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), IsSpace);
}

std::string UpperCase(std::string_view text)
{
    std::string upper(text);
    // Not std::toupper, which depends on the locale.
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return upper;
}

Tokens Split(std::string_view line, std::string_view delimiters)
{
    Tokens tokens;
    const auto add = [&tokens](std::string_view token) {
        if (tokens.count < Tokens::kMostStored)
            tokens.stored[tokens.count] = token;
        ++tokens.count;
    };
    const auto isDelimiter = [first = delimiters.front(), last = delimiters.back()](char c) {
        return c == first || c == last;  // of one or two
    };
    const char* const end = line.data() + line.size();
    for (const char* at = line.data(); at != end;) {
        const char* const begin = std::find_if_not(at, end, isDelimiter);
        at = std::find_if(begin, end, isDelimiter);
        if (begin != at)
            add({begin, static_cast<std::size_t>(at - begin)});
    }
    if (line.empty() || isDelimiter(line.back()))
        add({});
    return tokens;
}

double UnitOf(std::string_view name)
{
    const std::string upper = UpperCase(name);
    if (upper == "GHZ")
        return 1e9;
    if (upper == "MHZ")
        return 1e6;
    return upper == "KHZ" ? 1e3 : 1.0;
}

std::optional<PairFormat> FormatOf(std::string_view name)
{
    const std::string upper = UpperCase(name);
    if (upper == "DB")
        return PairFormat::Decibel;
    if (upper == "MA")
        return PairFormat::Magnitude;
    return upper == "RI" ? std::optional(PairFormat::RealImaginary) : std::nullopt;
}

namespace {

// The numbers of a line, up to the first token that is not one.
class NumbersOf {
public:
    explicit NumbersOf(const Tokens& tokens) : tokens_(tokens) {}
    double At(std::size_t token)
    {
        if (failure_)
            return 0.0;
        const Number number = NumberAtStart(tokens_.stored[token]);
        if (number.status != NumberStatus::Number)
            Fail(number.status == NumberStatus::Invalid ? LineFailure::Reason::InvalidNumber
                                                        : LineFailure::Reason::NumberOutOfRange,
                 token);
        return number.value;
    }
    double FrequencyAt(std::size_t token)
    {
        const double frequency = At(token);
        // The result is ordered by frequency, and NaN cannot be.
        if (std::isnan(frequency))
            Fail(LineFailure::Reason::FrequencyNotANumber, token);
        return frequency;
    }
    const std::optional<LineFailure>& Failure() const { return failure_; }

private:
    void Fail(LineFailure::Reason reason, std::size_t token)
    {
        failure_ = LineFailure{reason, token, tokens_.count, 0, false};
    }

    const Tokens& tokens_;
    std::optional<LineFailure> failure_;
};

std::optional<LineFailure> FailureIfFewerThan(std::size_t needed, const Tokens& tokens, bool isOptions)
{
    if (tokens.count >= needed)
        return std::nullopt;
    return LineFailure{LineFailure::Reason::TooFewTokens, tokens.count, tokens.count, needed, isOptions};
}

}  // namespace

std::string RefusalOf(const LineFailure& failure, std::string_view reader, std::string_view fileName, std::size_t line)
{
    using Reason = LineFailure::Reason;
    const std::string place = " in line " + std::to_string(line) + " of " + std::string(fileName);
    const std::string prefix = std::string(reader) + ": ";
    switch (failure.reason) {
        case Reason::InvalidNumber: return "invalid stod argument";
        case Reason::NumberOutOfRange: return "stod argument out of range";
        case Reason::FrequencyNotANumber: return prefix + "frequency" + place + " is nan; expected a number";
        case Reason::TooFewTokens: break;
    }
    return prefix + "number of tokens" + place + " is " + std::to_string(failure.found) + "; expected at least " +
           std::to_string(failure.needed) + (failure.isOptions ? " in an option line" : " in a data line");
}

std::optional<LineFailure> TouchstoneReader::Take(std::string_view line)
{
    if (IsBlank(line))
        return std::nullopt;
    if (kind_ == FileKind::Table)
        return TakeTableRow(line);
    if (line.front() == '!')
        return std::nullopt;
    return line.front() == '#' ? TakeOptions(line) : TakeData(line);
}

std::optional<LineFailure> TouchstoneReader::TakeTableRow(std::string_view line)
{
    const Tokens tokens = Split(line, ",");
    if (tokens.count < 2)
        return std::nullopt;
    NumbersOf numbers(tokens);
    const double frequency = numbers.FrequencyAt(0);
    const double level = numbers.At(1);
    // In radians, where Touchstone files have degrees. Deliberate.
    const double phase = tokens.count > 2 ? numbers.At(2) : 0.0;
    if (!numbers.Failure())
        Set(frequency, Polar(FromLevel(level), phase));
    return numbers.Failure();
}

std::optional<LineFailure> TouchstoneReader::TakeOptions(std::string_view line)
{
    const Tokens tokens = Split(line, " ");
    if (const auto failure = FailureIfFewerThan(4, tokens, true))
        return failure;
    multiplier_ = UnitOf(tokens.stored[1]);
    format_ = FormatOf(tokens.stored[3]).value_or(format_);
    return std::nullopt;
}

std::optional<LineFailure> TouchstoneReader::TakeData(std::string_view line)
{
    const Tokens tokens = Split(line, " \t");
    const std::size_t needed = kind_ == FileKind::OnePort ? 3 : kind_ == FileKind::TwoPort ? 5 : 8;
    if (const auto failure = FailureIfFewerThan(needed, tokens, false))
        return failure;
    NumbersOf numbers(tokens);
    // A line of any other length has no frequency of its own; a two-port's value then goes to 0 Hz. Deliberate.
    const bool hasFrequency = tokens.count == kRecordTokens;
    const double frequency = hasFrequency || kind_ == FileKind::OnePort ? numbers.FrequencyAt(0) * multiplier_ : 0.0;
    const auto valueAt = [&](std::size_t token) {
        const double a = numbers.At(token);
        const double b = numbers.At(token + 1);
        return FromPair(format_, a, b);
    };
    if (kind_ != FileKind::FourPort) {
        const Complex value = valueAt(kind_ == FileKind::OnePort ? 1 : 3);
        if (!numbers.Failure())
            Set(frequency, value);
        return numbers.Failure();
    }
    std::array<Complex, 4> row;
    for (std::size_t column = 0; column < row.size(); ++column)
        row[column] = valueAt((hasFrequency ? 1 : 0) + 2 * column);
    if (!numbers.Failure()) {
        if (hasFrequency)
            frequencies_.push_back(frequency);
        AddRow(row);
    }
    return numbers.Failure();
}

void TouchstoneReader::AddRow(std::array<Complex, 4> row)
{
    if (pairs_ == PortPairs::Alternate)
        std::swap(row[1], row[2]);
    std::copy(row.begin(), row.end(), matrix_.begin() + static_cast<std::ptrdiff_t>(filled_));
    filled_ += row.size();
    if (filled_ == matrix_.size()) {
        differential_.push_back(DifferentialTransmission(matrix_, pairs_));
        filled_ = 0;
    }
}

void TouchstoneReader::Set(double frequency, Complex value)
{
    transmission_.insert_or_assign(transmission_.end(), frequency, value);
}

Transmission TouchstoneReader::Finish()
{
    for (std::size_t k = 0; k < std::min(frequencies_.size(), differential_.size()); ++k)
        Set(frequencies_[k], differential_[k]);
    return std::move(transmission_);
}

bool AddDcPoint(Transmission& transmission)
{
    if (transmission.size() < 2 || transmission.contains(0.0))
        return false;
    const auto& [lowest, value] = *transmission.begin();
    if (std::next(transmission.begin())->first != 2.0 * lowest)
        return false;
    transmission.emplace(0.0, std::abs(value));
    return true;
}

void AddDifferentialTransmission(Transmission& transmission, std::span<const Complex> values,
                                 std::span<const double> frequencies, PortPairs pairs)
{
    for (std::size_t k = 0; k < std::min(frequencies.size(), values.size() / 16); ++k)
        transmission.insert_or_assign(
            transmission.end(), frequencies[k],
            DifferentialTransmission(std::span<const Complex, 16>(values.data() + 16 * k, 16), pairs));
}

}  // namespace Tarnwick::DSO::Maths
