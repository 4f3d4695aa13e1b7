#include "maths/touchstone/touchstoneplain.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Tarnwick::DSO::Maths {

using Complex = std::complex<double>;

namespace {

// One character at a time: a search for any of several starts again at each.
bool IsBetweenWords(char c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

bool IsOfDecimals(char c)
{
    return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

std::vector<std::string_view> WordsOf(std::string_view text)
{
    std::vector<std::string_view> words;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at != end;) {
        const char* const begin = std::find_if_not(at, end, IsBetweenWords);
        at = std::find_if(begin, end, IsBetweenWords);
        if (begin != at)
            words.emplace_back(begin, static_cast<std::size_t>(at - begin));
    }
    return words;
}

// The beginning of a word, which may be as long as the file.
std::string Quoted(std::string_view word)
{
    constexpr std::size_t kLongest = 60;
    const char* const end = word.size() > kLongest ? "...\"" : "\"";
    return std::string("\"").append(word.substr(0, kLongest)).append(end);
}

// A word that is a decimal number as a whole.
std::optional<double> DecimalOf(std::string_view word)
{
    const Number number = NumberAtStart(word);
    if (!std::all_of(word.begin(), word.end(), IsOfDecimals) || number.status != NumberStatus::Number ||
        number.length != word.size())
        return std::nullopt;
    return number.value;
}

std::size_t PortsOf(FileKind kind)
{
    return kind == FileKind::OnePort ? 1 : kind == FileKind::TwoPort ? 2 : 4;
}

}  // namespace

Complex TransmissionOf(std::span<const Complex> matrix, PortPairs pairs)
{
    constexpr std::size_t kFourPorts = 16;
    if (matrix.size() < kFourPorts)
        return matrix.size() == 1 ? matrix[0] : matrix[2];
    std::array<Complex, kFourPorts> renumbered;
    std::copy_n(matrix.begin(), kFourPorts, renumbered.begin());
    for (std::size_t row = 0; row < kFourPorts && pairs == PortPairs::Alternate; row += 4)
        std::swap(renumbered[row + 1], renumbered[row + 2]);
    return DifferentialTransmission(renumbered, pairs);
}

PlainTouchstoneReader::PlainTouchstoneReader(FileKind kind, PortPairs pairs)
    : kind_(kind), pairs_(pairs), recordSize_(1 + 2 * PortsOf(kind) * PortsOf(kind))
{
}

PlainTouchstoneReader::Line PlainTouchstoneReader::Take(std::string_view line, const TakeRecord& takeRecord)
{
    Line taken;
    const std::size_t comment = line.find('!');
    const std::string_view text = line.substr(0, comment);
    const auto first =
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsBetweenWords) - text.begin());
    if (first == text.size())
        return taken;
    taken.hasComment = comment != std::string_view::npos;
    if (text[first] == '#') {
        taken.kind = hasOptions_ ? Line::Kind::FurtherOptions : Line::Kind::Options;
        if (!hasOptions_)
            taken.problem = TakeOptions(text.substr(first + 1));
        hasOptions_ = true;
    } else if (text[first] == '[') {
        taken.kind = Line::Kind::Keyword;
        taken.problem = Problem{1, Quoted(WordsOf(text).front()) + " is a keyword of version 2"};
    } else {
        TakeData(text, taken, takeRecord);
    }
    return taken;
}

std::optional<PlainTouchstoneReader::Problem> PlainTouchstoneReader::TakeOptions(std::string_view line)
{
    const std::vector<std::string_view> words = WordsOf(line);
    for (std::size_t k = 0; k < words.size(); ++k) {
        const std::string word = UpperCase(words[k]);
        if (word == "HZ" || UnitOf(word) != 1.0)
            options_.unit = UnitOf(word);
        else if (const auto format = FormatOf(word))
            options_.format = *format;
        else if (word == "S" || word == "Y" || word == "Z" || word == "G" || word == "H")
            options_.parameter = word.front();
        else if (word == "R")
            ++k;  // its value, on which a transmission does not depend
        else
            return Problem{k + 2, Quoted(words[k]) + " is no option"};
    }
    return std::nullopt;
}

void PlainTouchstoneReader::TakeData(std::string_view line, Line& taken, const TakeRecord& takeRecord)
{
    const std::vector<std::string_view> words = WordsOf(line);
    taken.kind = Line::Kind::Data;
    taken.numbers = words.size();
    taken.startsRecord = record_.empty();
    for (std::size_t k = 0; k < words.size(); ++k) {
        const auto number = DecimalOf(words[k]);
        if (!number) {
            taken.problem = Problem{k + 1, Quoted(words[k]) + " is no decimal number"};
            return;
        }
        if (record_.empty() && lastFrequency_ && *number * options_.unit <= *lastFrequency_) {
            // After the S-parameters of a two-port, a frequency that does not ascend begins its noise parameters.
            inNoise_ = inNoise_ || kind_ == FileKind::TwoPort;
            taken.repeatsFrequency = kind_ != FileKind::TwoPort;
        }
        if (inNoise_) {
            taken.kind = Line::Kind::Noise;
            return;
        }
        record_.push_back(*number);
        if (record_.size() == recordSize_)
            CloseRecord(takeRecord);
    }
}

void PlainTouchstoneReader::CloseRecord(const TakeRecord& takeRecord)
{
    const auto pairAt = [this](std::size_t number) {
        return FromPair(options_.format, record_[number], record_[number + 1]);
    };
    const double frequency = record_[0] * options_.unit;
    if (kind_ == FileKind::FourPort) {
        std::array<Complex, 16> matrix;
        for (std::size_t k = 0; k < matrix.size(); ++k)
            matrix[k] = pairAt(1 + 2 * k);
        transmission_.insert_or_assign(frequency, TransmissionOf(matrix, pairs_));
    } else {
        transmission_.insert_or_assign(frequency, pairAt(kind_ == FileKind::OnePort ? 1 : 3));
    }
    if (takeRecord) {
        std::vector<Complex> values;
        for (std::size_t k = 1; k < record_.size(); k += 2)
            values.push_back(pairAt(k));
        takeRecord(frequency, std::move(values));
    }
    lastFrequency_ = frequency;
    record_.clear();
}

}  // namespace Tarnwick::DSO::Maths
