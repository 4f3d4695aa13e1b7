#include "workbench/touchstonenormal.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <utility>

#include <fmt/format.h>

#include "maths/touchstone/networkparameters.h"
#include "maths/touchstone/touchstone.h"
#include "maths/touchstone/touchstoneplain.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"
#include "workbench/plumbing/text.h"
#include "workbench/plumbing/touchstonenames.h"

namespace Tarnwick::DSO::Workbench {

using Complex = std::complex<double>;
using Maths::FileKind;
using Maths::PlainTouchstoneReader;

namespace {

constexpr std::string_view kBlanks = " \t\v\f\r";
constexpr std::size_t kNoiseNumbers = 5;  // frequency, minimum noise figure, source reflection (two), resistance
constexpr std::size_t kRowNumbers = 8;    // of a line of a four-port record, beside the frequency

[[noreturn]] void FailAt(const std::string& name, std::size_t line, std::size_t token, const std::string& reason)
{
    throw DataFailure(fmt::format("{}: line {}{}: {}", name, line, token > 0 ? fmt::format(", token {}", token) : "",
                                  Printable(reason)));
}

// "line 7", or "lines 7 and 30 more".
std::string LinesText(std::size_t first, std::size_t count)
{
    return count == 1 ? fmt::format("line {}", first) : fmt::format("lines {} and {} more", first, count - 1);
}

// Lines that were all treated alike.
struct LineTally {
    std::size_t first = 0;
    std::size_t count = 0;

    void Take(std::size_t line)
    {
        if (count++ == 0)
            first = line;
    }
};

class Normaliser {
public:
    Normaliser(FileKind kind, const std::string& name) : kind_(kind), name_(name), plain_(kind, {}) {}

    void Take(std::string_view line, std::size_t number)
    {
        using Kind = PlainTouchstoneReader::Line::Kind;
        number_ = number;
        const std::size_t open = words_.size();
        const std::size_t before = plain_.Values().size();
        const auto taken = plain_.Take(line);
        if (taken.problem)
            FailAt(name_, number_, taken.problem->token, taken.problem->reason);
        const std::size_t comment = std::min(line.find('!'), line.size());
        const std::string_view content = line.substr(0, comment);
        switch (taken.kind) {
            case Kind::Empty: break;
            case Kind::Options: TakeOptions(content); break;
            case Kind::FurtherOptions:
                AddComment(content);
                furtherOptions_.Take(number_);
                break;
            case Kind::Keyword: break;  // a problem, which has failed above
            case Kind::Data: TakeData(content, taken.numbers); break;
            case Kind::Noise: {
                // What comes before the noise on its line: the rest of the open record and the whole ones behind it.
                const std::size_t closed = plain_.Values().size() - before;
                const std::size_t data = closed * plain_.RecordSize() - (closed > 0 ? open : 0);
                TakeNoise(content, data, taken.numbers);
            }
        }
        if (taken.repeatsFrequency)
            FailAt(name_, number_, 0, "the frequency does not lie above the one before; which of them counts is open");
        if (comment < line.size())
            AddLine(line.substr(comment));
    }

    NormalisedFile Finish()
    {
        if (plain_.Missing() > 0)
            FailAt(name_, number_, 0,
                   fmt::format("the last record lacks {} of its {} numbers", plain_.Missing(), plain_.RecordSize()));
        if (records_ == 0)
            throw DataFailure(fmt::format("{}: holds no data", name_));
        if (noise_.count > 0)
            result_.notes.push_back(
                fmt::format("{}: {}: noise parameters, now comments", name_, LinesText(noise_.first, noise_.count)));
        if (furtherOptions_.count > 0)
            result_.notes.push_back(fmt::format("{}: {}: further options, which count for nothing, now comments", name_,
                                                LinesText(furtherOptions_.first, furtherOptions_.count)));
        if (Parameter() != 'S')
            result_.notes.push_back(
                fmt::format("{}: {}-parameters, taken as normalised to the reference, converted to S-parameters", name_,
                            Parameter()));
        return std::move(result_);
    }

private:
    char Parameter() const { return plain_.Settings().parameter; }

    void AddLine(std::string_view line)
    {
        result_.text.append(line);
        result_.text += '\n';
    }
    void AddComment(std::string_view content)
    {
        AddLine("! " + std::string(content.substr(std::min(content.find_first_not_of(kBlanks), content.size()))));
    }

    void AddOptions(const std::string& reference)
    {
        const auto& [unit, format, parameter] = plain_.Settings();
        AddLine(fmt::format("# {} S {} R {}", UnitName(unit), parameter == 'S' ? FormatName(format) : "RI", reference));
        hasOptions_ = true;
    }

    void TakeOptions(std::string_view content)
    {
        if (records_ > 0 || !words_.empty())
            FailAt(name_, number_, 0, "an option line behind data, which were in GHz and MA up to here");
        AddOptions(ReferenceOf(content));
    }

    void TakeData(std::string_view content, std::size_t count)
    {
        if (!hasOptions_)
            AddOptions(ReferenceOf(""));
        std::vector<std::string> words = WordsOf(content);
        words.resize(count);
        for (std::string& word : words) {
            words_.push_back(std::move(word));
            if (words_.size() == plain_.RecordSize())
                CloseRecord();
        }
    }

    void TakeNoise(std::string_view content, std::size_t dataCount, std::size_t count)
    {
        TakeData(content, dataCount);
        if ((count - dataCount) % kNoiseNumbers != 0)
            FailAt(name_, number_, dataCount + 1,
                   fmt::format("the frequency does not lie above the one before, which begins noise parameters; those "
                               "come {} a line, but here are {} numbers",
                               kNoiseNumbers, count - dataCount));
        const std::vector<std::string> words = WordsOf(content);
        std::string noise = "! noise parameters:";
        for (std::size_t k = dataCount; k < count; ++k)
            noise += " " + words[k];
        AddLine(noise);
        noise_.Take(number_);
    }

    void CloseRecord()
    {
        if (Parameter() != 'S')
            ConvertRecord();
        std::string line = words_.front();
        for (std::size_t k = 1; k < words_.size(); ++k) {
            const bool beginsRow = kind_ == FileKind::FourPort && k > 1 && (k - 1) % kRowNumbers == 0;
            line += (beginsRow ? "\n    " : " ") + words_[k];
        }
        AddLine(line);
        words_.clear();
        ++records_;
    }

    void ConvertRecord()
    {
        std::vector<Complex> values;
        for (std::size_t k = 1; k < words_.size(); k += 2)
            values.push_back(Maths::FromPair(plain_.Settings().format, Maths::NumberAtStart(words_[k]).value,
                                             Maths::NumberAtStart(words_[k + 1]).value));
        // The file lists those of a two-port column by column.
        if (kind_ == FileKind::TwoPort)
            std::swap(values[1], values[2]);
        auto converted = Maths::ScatteringFrom(Parameter(), values);
        const auto isFinite = [](Complex value) { return std::isfinite(value.real()) && std::isfinite(value.imag()); };
        if (!converted || !std::all_of(converted->begin(), converted->end(), isFinite))
            FailAt(name_, number_, 0, fmt::format("no S-parameters follow from these {}-parameters", Parameter()));
        if (kind_ == FileKind::TwoPort)
            std::swap((*converted)[1], (*converted)[2]);
        // The filter refuses subnormal numbers.
        const auto text = [](double value) {
            return fmt::format("{}", std::abs(value) < std::numeric_limits<double>::min() ? 0.0 : value);
        };
        for (std::size_t k = 0; k < converted->size(); ++k) {
            words_[1 + 2 * k] = text((*converted)[k].real());
            words_[2 + 2 * k] = text((*converted)[k].imag());
        }
    }

    FileKind kind_;
    const std::string& name_;
    PlainTouchstoneReader plain_;
    std::size_t number_ = 0;
    bool hasOptions_ = false;
    std::vector<std::string> words_;  // of the record that is open
    std::size_t records_ = 0;
    LineTally noise_;
    LineTally furtherOptions_;
    NormalisedFile result_;
};

class TableNormaliser {
public:
    explicit TableNormaliser(const std::string& name) : name_(name) {}

    void Take(std::string_view line, std::size_t number)
    {
        if (Maths::IsBlank(line))
            return;
        const Maths::Tokens tokens = Maths::Split(line, ",");
        std::vector<std::string> row;
        bool isWhole = true;
        for (std::size_t k = 0; k < std::min<std::size_t>(tokens.count, 3); ++k) {
            const Maths::Number found = Maths::NumberAtStart(tokens.stored[k]);
            isWhole = isWhole && found.status == Maths::NumberStatus::Number && !std::isnan(found.value) &&
                      Maths::IsBlank(tokens.stored[k].substr(found.length));
            if (found.status != Maths::NumberStatus::Invalid)
                row.push_back(WordsOf(tokens.stored[k].substr(0, found.length)).front());
        }
        if (row.empty()) {
            passedOver_.Take(number);
            return;
        }
        if (!isWhole || row.size() < 2)
            FailAt(name_, number, 0,
                   "is no row of a table: frequency in Hz, level in dB and phase in radians by commas");
        result_.text += Joined(row, ",") + "\n";
    }

    NormalisedFile Finish()
    {
        if (result_.text.empty())
            throw DataFailure(fmt::format("{}: holds no data", name_));
        if (passedOver_.count > 0)
            result_.notes.push_back(
                fmt::format("{}: {}: no numbers, left out", name_, LinesText(passedOver_.first, passedOver_.count)));
        return std::move(result_);
    }

private:
    const std::string& name_;
    LineTally passedOver_;
    NormalisedFile result_;
};

template <typename Taker>
NormalisedFile Normalised(Taker taker, std::string_view text)
{
    if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        text.remove_prefix(kByteOrderMark.size());
    LineCursor lines(text);
    while (const auto line = lines.Next())
        taker.Take(*line, lines.Number());
    return taker.Finish();
}

}  // namespace

NormalisedFile NormaliseTouchstone(std::string_view text, const std::string& name)
{
    const auto kind = MeantKind(name);
    if (!kind)
        throw DataFailure(fmt::format("{}: a file of this many ports has no single transmission", name));
    return kind == FileKind::Table ? Normalised(TableNormaliser(name), text)
                                   : Normalised(Normaliser(*kind, name), text);
}

NormalisedFile NormaliseFixture(std::string_view text, const std::string& name, const std::string& outputName)
{
    const auto kind = MeantKind(name);
    if (kind && (Maths::KindOf(outputName) != *kind || MeantKind(outputName) != kind))
        throw UsageFailure(
            fmt::format("{}: name of what is written from {}; expected one that ends in {}, lower case "
                        "and nowhere else in the path",
                        outputName, name, EndingOf(*kind)));
    NormalisedFile normalised = NormaliseTouchstone(text, name);
    const FixtureFile written = DescribeFixture(normalised.text, outputName);
    if (!written.IsReadAsMeant())
        throw DataFailure(
            fmt::format("{}: cannot be mended; what would be written still has {}", name,
                        written.differences.empty() ? "no meaning" : TextOf({written.differences[0], 1, 0})));
    return normalised;
}

}  // namespace Tarnwick::DSO::Workbench
