#include "workbench/plumbing/textcapture.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "workbench/failure.h"
#include "workbench/plumbing/text.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Fields = std::vector<std::string_view>;

constexpr double kEvenSpacing = 0.01;     // [intervals] by which times may be off: printed ones are rounded
constexpr double kGap = 0.5;              // [intervals] by which a step has to be off to be a gap
constexpr std::size_t kNameRows = 4;      // header lines before the data in which names and units are looked for
constexpr std::size_t kNumberHeader = 8;  // most numbers that may stand before the samples as a header
constexpr double kNoVoltage = 1e6;        // a number from here on, and that many times the others, is a rate
constexpr double kFarAbove = 1e3;
constexpr std::size_t kLongestQuote = 60;  // characters of a line in a message
constexpr std::size_t kMostNamed = 16;     // columns in a message
constexpr std::size_t kMostInPlace = 8;    // columns of a row that is read without being taken apart first
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// The whole token as a number, in the C locale whatever the process uses.
std::optional<double> Number(std::string_view token)
{
    if (token.size() > 1 && token.front() == '+' && token[1] != '-')
        token.remove_prefix(1);
    double value = 0.0;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (end != token.data() + token.size() || token.empty())
        return std::nullopt;
    if (error ==
        std::errc::result_out_of_range)  // too small is zero; too large is infinity, which a waveform must not hold
        return token.find("e-") != std::string_view::npos || token.find("E-") != std::string_view::npos
                   ? 0.0
                   : std::numeric_limits<double>::infinity();
    return error == std::errc() ? std::optional(value) : std::nullopt;
}

std::string_view Trimmed(std::string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    const std::size_t end = text.find_last_not_of(" \t");
    return text.substr(begin, end == std::string_view::npos ? 0 : end + 1 - begin);
}

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return lower;
}

bool IsAnyOf(std::string_view text, std::initializer_list<std::string_view> words)
{
    return std::find(words.begin(), words.end(), text) != words.end();
}

enum class Separator { Semicolon, Comma, Blanks };

// The strongest of those that stand outside quotes.
Separator SeparatorOf(std::string_view line)
{
    bool isQuoted = false;
    bool hasComma = false;
    for (const char letter : line) {
        isQuoted ^= letter == '"';
        if (!isQuoted && letter == ';')
            return Separator::Semicolon;
        hasComma |= !isQuoted && letter == ',';
    }
    return hasComma ? Separator::Comma : Separator::Blanks;
}

// The fields without their quotes; an empty one counts, but not between blanks. A quote that is not closed makes the rest
// of the line one field, which is not a number.
void Split(std::string_view line, Separator separator, Fields& fields)
{
    fields.clear();
    const char* const ends = separator == Separator::Semicolon ? ";" : separator == Separator::Comma ? "," : " \t";
    line = Trimmed(line);
    if (line.empty())
        return;
    while (true) {
        line = Trimmed(line);
        std::size_t end = 0;
        if (!line.empty() && line.front() == '"') {
            end = line.find('"', 1);
            while (end != std::string_view::npos && end + 1 < line.size() && line[end + 1] == '"')
                end = line.find('"', end + 2);
            fields.push_back(line.substr(1, end == std::string_view::npos ? end : end - 1));
            end = line.find_first_of(ends, std::min(end, line.size()));
        } else {
            end = line.find_first_of(ends);
            fields.push_back(Trimmed(line.substr(0, end)));
        }
        if (end == std::string_view::npos)
            return;
        line.remove_prefix(end + 1);
    }
}

std::optional<double> NumberIn(std::string_view field, Separator separator)
{
    std::array<char, 64> point{};
    const std::size_t comma = separator == Separator::Semicolon ? field.find(',') : std::string_view::npos;
    if (comma == std::string_view::npos || field.size() > point.size())
        return Number(field);
    std::copy(field.begin(), field.end(), point.begin());
    point[comma] = '.';
    return Number({point.data(), field.size()});
}

bool IsBlank(const Fields& fields)
{
    return std::all_of(fields.begin(), fields.end(), [](std::string_view field) { return field.empty(); });
}

bool HoldsNumbersOnly(const Fields& fields, Separator separator)
{
    return !IsBlank(fields) && std::all_of(fields.begin(), fields.end(), [separator](std::string_view field) {
        return field.empty() || NumberIn(field, separator);
    });
}

struct Unit {
    enum class Of { Time, Amplitude, Other };
    Of of;
    double factor;  // to the unit without a prefix
};

std::optional<Unit> UnitNamed(std::string_view text)
{
    const std::string lower = Lower(text);
    if (IsAnyOf(lower, {"s", "sec", "second", "seconds"}))
        return Unit{Unit::Of::Time, 1.0};
    if (IsAnyOf(lower, {"v", "volt", "volts", "a", "w"}))
        return Unit{Unit::Of::Amplitude, 1.0};
    constexpr std::pair<std::string_view, double> kPrefixes[] = {
        {"f", 1e-15},       {"p", 1e-12},   {"n", 1e-9}, {"u", 1e-6}, {"\xC2\xB5", 1e-6}, {"m", 1e-3},
        {"\xCE\xBC", 1e-6}, {"\xB5", 1e-6}, {"k", 1e3},  {"M", 1e6},  {"G", 1e9}};
    for (const auto& [prefix, factor] : kPrefixes) {
        if (text.substr(0, prefix.size()) != prefix)
            continue;
        const std::string base = lower.substr(prefix.size());
        if (base == "s" || base == "sec")
            return Unit{Unit::Of::Time, factor};
        if (IsAnyOf(base, {"v", "volt", "volts", "a", "w"}))
            return Unit{Unit::Of::Amplitude, factor};
    }
    if (lower.size() <= 3 && lower.size() >= 2 && lower.substr(lower.size() - 2) == "hz")
        return Unit{Unit::Of::Other, 1.0};
    return std::nullopt;
}

// What a header says of a column.
struct Column {
    std::string title;  // as the file has it; "" where it says nothing
    std::string name;   // without the unit
    std::string unitText;
    std::optional<Unit> unit;

    bool IsCalledTime() const
    {
        const std::string lower = Lower(name);
        return lower.substr(0, 4) == "time" || IsAnyOf(lower, {"t", "x-axis", "xaxis", "second", "seconds"});
    }
    bool IsIndex() const { return IsAnyOf(Lower(name), {"#", "n", "no", "no.", "index", "sample", "point"}); }
    bool IsTime() const { return unit ? unit->of == Unit::Of::Time : unitText.empty() && IsCalledTime(); }
};

Column ColumnTitled(std::string_view field)
{
    Column column;
    for (std::size_t k = 0; k < field.size(); ++k) {
        column.title += field[k];
        k += field.substr(k, 2) == "\"\"" ? 1 : 0;
    }
    column.name = column.title;
    const std::string& title = column.title;
    const char close = title.empty() ? ' ' : title.back();
    const std::size_t open = close == ']' ? title.rfind('[') : close == ')' ? title.rfind('(') : std::string::npos;
    if (open != std::string::npos) {
        column.name = Trimmed(std::string_view(title).substr(0, open));
        column.unitText = Trimmed(std::string_view(title).substr(open + 1, title.size() - open - 2));
        column.unit = UnitNamed(column.unitText);
    }
    return column;
}

class TextReader {
public:
    TextReader(std::string name, const WaveformOptions& options) : name_(std::move(name)), options_(options) {}

    Waveform Read(std::string_view content)
    {
        if (content.substr(0, 3) == "\xEF\xBB\xBF")
            content.remove_prefix(3);
        LineCursor lines(content);
        while (const auto line = lines.Next()) {
            line_ = lines.Number();
            if (line_ <= options_.skipLines.value_or(0))
                continue;
            const bool isFirst = columns_.empty();
            Take(*line);
            if (isFirst && !columns_.empty())
                Reserve(content.size() / (line->size() + 1));
            TakeNumbers(lines);
        }
        if (waveform_.samples.empty())
            throw DataFailure(fmt::format("{}: holds no number", name_));
        NotePassedOver();
        if (waveform_.samples.size() == 1 && columns_.size() > 1 && !isNamed_ && options_.column.empty()) {
            TakeWholeLine();
        } else {
            FindInterval();
            RefuseSeveralColumns();
        }
        RefuseNumberHeader();
        return std::move(waveform_);
    }

private:
    // Rows of numbers and nothing else, as nearly all are, up to a line of any other kind.
    void TakeNumbers(LineCursor& lines)
    {
        if (columns_.empty() || columns_.size() > kMostInPlace || firstTrailer_ != 0)
            return;
        const std::string_view rest = lines.Rest();
        const char* at = rest.data();
        const char* const end = at + rest.size();
        const char* behind = at;
        std::size_t count = 0;
        while (at != end && TakeNumbers(at, end)) {
            behind = at;
            ++count;
        }
        lines.Skip(static_cast<std::size_t>(behind - rest.data()), count);
    }

    // @param at  begins a line; when it is taken, the next one
    bool TakeNumbers(const char*& at, const char* end)
    {
        const std::size_t count = columns_.size();
        std::array<double, kMostInPlace> numbers{};
        const auto skipBlanks = [&] {
            while (at != end && (*at == ' ' || *at == '\t'))
                ++at;
        };
        for (std::size_t k = 0; k < count; ++k) {
            if (k > 0 && separator_ != Separator::Blanks) {
                if (at == end || *at != (separator_ == Separator::Comma ? ',' : ';'))
                    return false;
                ++at;
            }
            skipBlanks();
            const char* const begin = at;
            const auto [behind, error] = std::from_chars(begin, end, numbers[k]);
            if (error != std::errc() || !std::isfinite(numbers[k]))
                return false;
            at = behind;
            skipBlanks();
            if (at == behind && k + 1 < count && separator_ == Separator::Blanks)
                return false;
        }
        if (at != end && *at == '\r')
            ++at;
        if (at != end && *at++ != '\n')
            return false;
        const double sample = numbers[value_] * Factor(value_);
        if (!std::isfinite(sample))
            return false;
        ++line_;
        Add(sample, time_ == kNone ? 0.0 : numbers[time_]);
        return true;
    }

    void Add(double sample, double time)
    {
        if (waveform_.samples.size() < headLines_.size())
            headLines_[waveform_.samples.size()] = line_;
        waveform_.samples.push_back(sample);
        if (time_ != kNone)
            times_.push_back(time * Factor(time_));
    }

    void Reserve(std::size_t rows)
    {
        waveform_.samples.reserve(rows);
        if (time_ != kNone)
            times_.reserve(rows);
    }

    void Take(std::string_view line)
    {
        const Separator separator = columns_.empty() || firstTrailer_ ? SeparatorOf(line) : separator_;
        Split(line, separator, fields_);
        if (IsBlank(fields_))
            return;
        if (columns_.empty()) {
            if (!HoldsNumbersOnly(fields_, separator)) {
                TakeHeader(line);
                return;
            }
            Begin(line, separator);
        }
        if (firstTrailer_) {
            if (HoldsNumbersOnly(fields_, separator))
                throw DataFailure(
                    fmt::format("{}:{}: \"{}\" is no number, and numbers follow", name_, firstTrailer_, trailer_));
            ++trailers_;
            return;
        }
        if (!TakeRow()) {
            firstTrailer_ = line_;
            trailer_ = Trimmed(line).substr(0, kLongestQuote);
            trailers_ = 1;
        }
    }

    void TakeHeader(std::string_view line)
    {
        if (headers_++ == 0)
            firstHeader_ = line.substr(0, kLongestQuote);
        if (lastHeaders_.size() == kNameRows)
            lastHeaders_.erase(lastHeaders_.begin());
        lastHeaders_.push_back(line);
    }

    // What the columns are, as far as the lines up to the first row of numbers tell.
    void Begin(std::string_view line, Separator separator)
    {
        separator_ = separator;
        firstRow_ = line;
        for (const std::string_view field : fields_)
            isUsed_.push_back(!field.empty());
        columns_.resize(fields_.size());
        ReadHeaders();
        if (columns_.size() > 1) {
            const auto named =
                std::find_if(columns_.begin(), columns_.end(), [](const Column& column) { return column.IsTime(); });
            const auto called = std::find_if(columns_.begin(), columns_.end(),
                                             [](const Column& column) { return column.IsCalledTime(); });
            isTimeNamed_ = named != columns_.end();
            if (isTimeNamed_)
                time_ = static_cast<std::size_t>(named - columns_.begin());
            else if (called != columns_.end())
                strangeTime_ = static_cast<std::size_t>(called - columns_.begin());
            else if (isUsed_[0] && !columns_[0].IsIndex() && !columns_[0].unit)
                time_ = 0;
        }
        value_ = options_.column.empty() ? ValueColumns().back() : ChosenColumn();
        if (value_ == time_)
            time_ = kNone;
        fields_.clear();
        Split(line, separator, fields_);
    }

    void ReadHeaders()
    {
        for (auto line = lastHeaders_.rbegin(); line != lastHeaders_.rend(); ++line) {
            std::vector<Column> titles = Titles(*line);
            if (titles.size() != columns_.size())
                continue;
            const bool areUnits = std::all_of(titles.begin(), titles.end(), [](const Column& column) {
                return column.title.empty() || (column.name.empty() && column.unit) || UnitNamed(column.title);
            });
            for (std::size_t k = 0; k < titles.size(); ++k) {
                Column& column = columns_[k];
                if (areUnits) {
                    column.unitText = titles[k].unit ? titles[k].unitText : titles[k].title;
                    column.unit = UnitNamed(column.unitText);
                } else if (titles[k].unitText.empty()) {
                    column.title = column.name = titles[k].title;
                } else {
                    column = titles[k];
                }
            }
            isNamed_ = isNamed_ || columns_.size() > 1 || areUnits;
            if (!areUnits)
                return;
        }
    }

    std::vector<Column> Titles(std::string_view line)
    {
        line = Trimmed(line);
        line.remove_prefix(std::min(line.find_first_not_of("#% "), line.size()));
        if (columns_.size() == 1) {  // a sentence may be its title
            Split(line, SeparatorOf(line), fields_);
            return {ColumnTitled(fields_.size() == 1 ? fields_[0] : line)};
        }
        Split(line, separator_ == Separator::Blanks ? SeparatorOf(line) : separator_, fields_);
        std::vector<Column> titles;
        for (const std::string_view field : fields_) {
            // Between blanks, a unit belongs to the word before it.
            if (separator_ == Separator::Blanks && !titles.empty() && !field.empty() &&
                (field.front() == '[' || field.front() == '(') && fields_.size() > columns_.size())
                titles.back() = ColumnTitled(titles.back().title + " " + std::string(field));
            else
                titles.push_back(ColumnTitled(field));
        }
        return titles;
    }

    // Those that hold neither times nor numbers of samples; at least one.
    std::vector<std::size_t> ValueColumns() const
    {
        std::vector<std::size_t> values;
        for (std::size_t k = 0; k < columns_.size(); ++k)
            if (isUsed_[k] && k != time_ && k != strangeTime_ && !columns_[k].IsIndex())
                values.push_back(k);
        if (values.empty())
            values.push_back(static_cast<std::size_t>(std::find(isUsed_.rbegin(), isUsed_.rend(), true).base() -
                                                      isUsed_.begin() - 1));
        return values;
    }

    std::size_t ChosenColumn() const
    {
        const std::string& chosen = options_.column;
        for (const bool isExact : {true, false})
            for (std::size_t k = 0; k < columns_.size(); ++k)
                for (const std::string& title : {columns_[k].title, columns_[k].name})
                    if (!title.empty() && (title == chosen || (!isExact && Lower(title) == Lower(chosen))))
                        return k;
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(chosen.data(), chosen.data() + chosen.size(), number);
        if (error == std::errc() && end == chosen.data() + chosen.size() && number >= 1 && number <= columns_.size())
            return number - 1;
        std::vector<std::size_t> all(columns_.size());
        for (std::size_t k = 0; k < all.size(); ++k)
            all[k] = k;
        throw UsageFailure(fmt::format("{}: column is {}; expected one of {}", name_, Quotation(chosen), ListOf(all)));
    }

    // False for a line behind the data, which holds no number at its head.
    bool TakeRow()
    {
        const auto numberAt = [this](std::size_t column) -> std::optional<double> {
            return column < fields_.size() ? NumberIn(fields_[column], separator_) : std::nullopt;
        };
        const bool fits = fields_.size() == columns_.size();
        const auto value = numberAt(value_);
        const auto time = time_ == kNone ? value : numberAt(time_);
        if (!fits || !value || !time) {
            constexpr std::string_view kOfNumbers = "0123456789+-.,;";
            if (!fields_.front().empty() && kOfNumbers.find(fields_.front().front()) == std::string_view::npos &&
                !Number(fields_.front()))
                return false;
            if (!fits)
                Fail(fmt::format("has {} column{}; expected {}", fields_.size(), fields_.size() == 1 ? "" : "s",
                                 columns_.size()));
            Fail(fmt::format("\"{}\" is no number", fields_[!value ? value_ : time_]));
        }
        const double sample = *value * Factor(value_);
        if (!std::isfinite(sample) || !std::isfinite(*time))
            Fail(
                fmt::format("value is {}; expected a finite number", fields_[!std::isfinite(sample) ? value_ : time_]));
        Add(sample, *time);
        return true;
    }

    double Factor(std::size_t column) const { return columns_[column].unit ? columns_[column].unit->factor : 1.0; }

    void TakeWholeLine()
    {
        waveform_.samples.clear();
        Split(firstRow_, separator_, fields_);
        for (const std::string_view field : fields_) {
            if (field.empty())
                continue;
            waveform_.samples.push_back(*NumberIn(field, separator_));
            if (!std::isfinite(waveform_.samples.back()))
                throw DataFailure(fmt::format("{}: value is {}; expected a finite number", name_, field));
        }
    }

    void NotePassedOver()
    {
        const auto note = [&](std::size_t lines, const char* kind, const std::string& first) {
            if (lines > 0)
                waveform_.notes.push_back(fmt::format("{}: {} {} line{} passed over, the first is \"{}\"", name_, lines,
                                                      kind, lines == 1 ? "" : "s", first));
        };
        note(headers_, "header", firstHeader_);
        note(trailers_, "trailer", trailer_);
        for (const std::size_t column : {strangeTime_, value_})
            if (column != kNone && columns_.size() > 1 && !columns_[column].unitText.empty() && !columns_[column].unit)
                waveform_.notes.push_back(fmt::format("{}: the unit of \"{}\" is not known; its numbers are {}", name_,
                                                      columns_[column].title,
                                                      column == value_ ? "taken as they stand" : "not read as times"));
    }

    void FindInterval()
    {
        if (times_.size() < 2)
            return;
        const double interval = (times_.back() - times_.front()) / static_cast<double>(times_.size() - 1);
        const bool rises = std::isfinite(interval) && interval > 0.0;
        if (!rises || (!isTimeNamed_ && !std::is_sorted(times_.begin(), times_.end()))) {
            if (isTimeNamed_)
                waveform_.notes.push_back(fmt::format("{}: the times do not rise; they are not read", name_));
            else
                time_ = kNone;
            return;
        }
        const auto isOff = [&](std::size_t k) {
            const double expected = times_.front() + interval * static_cast<double>(k);
            return std::abs(times_[k] - expected) > std::max(kEvenSpacing * interval, 1e-9 * std::abs(expected));
        };
        waveform_.interval = interval;
        waveform_.start = times_.front();
        for (std::size_t k = 0; k < times_.size(); ++k) {
            if (isOff(k)) {
                NoteUneven(k);
                break;
            }
        }
    }

    // A gap moves the mean, so that times far from it are off: the common step shows where it is.
    void NoteUneven(std::size_t firstOff)
    {
        std::vector<double> steps(times_.size() - 1);
        std::transform(times_.begin() + 1, times_.end(), times_.begin(), steps.begin(), std::minus<>());
        std::vector<double> sorted = steps;
        const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
        std::nth_element(sorted.begin(), middle, sorted.end());
        const double common = *middle;
        const auto gap = std::find_if(steps.begin(), steps.end(),
                                      [&](double step) { return std::abs(step - common) > kGap * common; });
        const std::size_t at =
            gap != steps.end() ? static_cast<std::size_t>(gap - steps.begin()) : std::max<std::size_t>(firstOff, 1) - 1;
        const std::string where = fmt::format(
            "{}: the times are not evenly spaced: sample {}, at {:.10g} s, comes {:.6g} s after the one before, "
            "most do {:.6g} s",
            name_, at + 1, times_[at + 1], steps[at], common);
        if (gap == steps.end()) {
            waveform_.notes.push_back(fmt::format("{}; the mean, {:.6g} s, is used", where, waveform_.interval));
        } else {
            waveform_.gap = where;
            waveform_.interval = common;
        }
    }

    void RefuseSeveralColumns() const
    {
        const std::vector<std::size_t> values = ValueColumns();
        if (options_.column.empty() && values.size() > 1)
            throw DataFailure(
                fmt::format("{}: holds {} columns of values: {}; expected one, or the choice of one "
                            "(--column NAME or NUMBER)",
                            name_, values.size(), ListOf(values)));
    }

    // Some instruments put start, number of samples and sample rate before the samples, on lines of their own.
    void RefuseNumberHeader() const
    {
        const std::vector<double>& samples = waveform_.samples;
        if (options_.skipLines || columns_.size() > 1 || samples.size() < 2 * kNumberHeader)
            return;
        double largest = 0.0;
        for (std::size_t k = kNumberHeader; k < samples.size(); ++k)
            largest = std::max(largest, std::abs(samples[k]));
        std::size_t numbers = 0;
        for (std::size_t k = 0; k < kNumberHeader; ++k) {
            const double behind = static_cast<double>(samples.size()) - samples[k];  // of a count: the header's length
            if (samples[k] > largest && behind > static_cast<double>(k) && behind <= kNumberHeader &&
                behind == std::floor(behind))
                numbers = std::max(numbers, static_cast<std::size_t>(behind));
            if (largest > 0.0 && std::abs(samples[k]) > std::max(kNoVoltage, kFarAbove * largest))
                numbers = std::max(numbers, k + 1);
        }
        if (numbers == 0)
            return;
        const char* const them = numbers == 1 ? "it" : "them";
        throw DataFailure(fmt::format(
            "{}: begins with {} that look{} like a header, {}: leave {} out with --skip-lines {}, or "
            "take {} as samples with --skip-lines 0",
            name_, numbers == 1 ? "a number" : fmt::format("{} numbers", numbers), numbers == 1 ? "s" : "",
            Joined(std::span(samples).first(numbers), "{:.10g}", ", "), them, headLines_[numbers - 1], them));
    }

    static std::string Quotation(const std::string& text) { return '"' + text.substr(0, kLongestQuote) + '"'; }

    std::string ListOf(const std::vector<std::size_t>& columns) const
    {
        std::string list;
        for (std::size_t k = 0; k < columns.size() && k < kMostNamed; ++k) {
            const std::string& title = columns_[columns[k]].title;
            list +=
                fmt::format("{}{}{}", k == 0 ? "" : ", ", columns[k] + 1, title.empty() ? "" : " " + Quotation(title));
        }
        return list + (columns.size() > kMostNamed ? " ..." : "");
    }

    [[noreturn]] void Fail(const std::string& what) const
    {
        throw DataFailure(fmt::format("{}:{}: {}", name_, line_, what));
    }

    std::string name_;
    const WaveformOptions& options_;
    std::size_t line_ = 0;
    std::size_t headers_ = 0;
    std::string firstHeader_;
    std::vector<std::string_view> lastHeaders_;
    std::string_view firstRow_;
    std::size_t firstTrailer_ = 0;  // its line; 0: the data have not ended
    std::size_t trailers_ = 0;
    std::string trailer_;
    Separator separator_ = Separator::Blanks;
    Fields fields_;  // of the line in hand
    std::vector<Column> columns_;
    std::vector<bool> isUsed_;  // by column: the first row holds something there
    bool isNamed_ = false;
    bool isTimeNamed_ = false;
    std::size_t time_ = kNone;
    std::size_t strangeTime_ = kNone;  // called time, in a unit that is not one of time
    std::size_t value_ = 0;
    std::vector<double> times_;
    std::array<std::size_t, kNumberHeader> headLines_{};  // where the first samples stand
    Waveform waveform_;
};

}  // namespace

Waveform ReadTextCapture(std::string_view content, const std::string& name, const WaveformOptions& options)
{
    return TextReader(name, options).Read(content);
}

}  // namespace Tarnwick::DSO::Workbench
