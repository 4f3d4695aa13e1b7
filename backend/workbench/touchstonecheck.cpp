#include "workbench/touchstonecheck.h"

#include <optional>
#include <utility>

#include <fmt/format.h>

#include "maths/touchstone/touchstone.h"
#include "maths/touchstone/touchstoneplain.h"
#include "workbench/plumbing/text.h"
#include "workbench/plumbing/touchstonenames.h"

namespace Tarnwick::DSO::Workbench {

using Maths::FileKind;
using Maths::LineFailure;
using Maths::PlainTouchstoneReader;
using Maths::TouchstoneReader;

namespace {

constexpr std::size_t kRecordTokens = 9;

const char* NameOf(FileKind kind)
{
    switch (kind) {
        case FileKind::Table: return "table";
        case FileKind::OnePort: return "one-port file";
        case FileKind::TwoPort: return "two-port file";
        case FileKind::FourPort: break;
    }
    return "four-port file";
}

std::string NameOf(double unit)
{
    if (unit < 0.0)
        return "-1 Hz";
    return UnitName(unit);
}

std::string TokenText(std::string_view line, FileKind kind, std::size_t token)
{
    const Maths::Tokens tokens = Maths::Split(line, kind == FileKind::Table ? "," : " \t");
    const std::string_view text = tokens.stored[token];
    constexpr std::size_t kLongest = 60;  // a word may be as long as the file
    return text.empty() ? "the empty token behind a blank at the end"
                        : fmt::format("\"{}{}\"", text.substr(0, kLongest), text.size() > kLongest ? "..." : "");
}

class Comparison {
public:
    Comparison(const std::string& fileName, PortOrderS4P portOrder)
        : fileName_(fileName),
          kind_(Maths::KindOf(fileName)),
          plainKind_(MeantKind(fileName)),
          reader_(kind_, Maths::PairsOf(portOrder)),
          plain_(plainKind_.value_or(FileKind::TwoPort), Maths::PairsOf(portOrder)),
          plainTable_(FileKind::Table, Maths::PairsOf(portOrder))
    {
        if (!plainKind_)
            FailPlainly(0, 0, "a file of this many ports has no single transmission; it is read as a two-port file");
        else if (*plainKind_ != kind_)
            Note(0, 0,
                 std::string("the name says ") + NameOf(*plainKind_) + ", but it is read as a " + NameOf(kind_) +
                     ": its end has to be in lower case and stand in the whole name once");
    }

    void Take(std::string_view line, std::size_t number)
    {
        number_ = number;
        const std::size_t told = report_.differences.size();
        const Options before{reader_.Multiplier(), reader_.Format()};
        const auto failure = reader_.Take(line);
        if (plainKind_ == FileKind::Table)
            TakePlainRow(line, failure.has_value());
        else if (report_.plainFailure.empty())
            TakePlainLine(line, before, failure && failure->reason == LineFailure::Reason::TooFewTokens);
        // A line with another difference does not need this one too, but that the file is refused is always reported.
        if (failure && (report_.readFailure.empty() || report_.differences.size() == told))
            NoteFailure(line, *failure);
    }

    TouchstoneReport Finish()
    {
        if (number_ == 0)
            Note(0, 0, "the file is empty or cannot be read");
        if (plainKind_ == FileKind::Table) {
            report_.plain = plainTable_.Finish();
        } else if (plainKind_) {
            if (report_.plainFailure.empty() && plain_.Missing() > 0)
                FailPlainly(number_, 0,
                            "the last record lacks " + std::to_string(plain_.Missing()) + " of its " +
                                std::to_string(plain_.RecordSize()) + " numbers");
            report_.plain = plain_.Values();
        }
        if (report_.readFailure.empty()) {
            report_.read = reader_.Finish();
            if (Maths::AddDcPoint(report_.read))
                Note(0, 0,
                     "the magnitude of the lowest frequency is put at 0 Hz, since the second frequency is twice the "
                     "first");
        }
        if (report_.differences.empty() && report_.plain != report_.read)
            Note(0, 0, "the values are read differently");
        return std::move(report_);
    }

private:
    struct Options {
        double unit;
        Maths::PairFormat format;
    };

    void Note(std::size_t line, std::size_t token, std::string reason)
    {
        report_.differences.push_back({line, token, std::move(reason)});
    }

    // Ends the plain reading, and with it the comparison of lines; what was read before stays.
    void FailPlainly(std::size_t line, std::size_t token, const std::string& reason)
    {
        report_.plainFailure = line > 0 ? "line " + std::to_string(line) + ": " + reason : reason;
        Note(line, token, reason);
    }

    void NoteFailure(std::string_view line, const LineFailure& failure)
    {
        const std::string text = Maths::RefusalOf(failure, "DeEmbeddingFilter", fileName_, number_);
        if (report_.readFailure.empty()) {
            report_.readFailure = text;
            report_.readFailureLine = number_;
        }
        if (failure.reason == LineFailure::Reason::TooFewTokens)
            Note(number_, 0,
                 "the file is refused: " + std::to_string(failure.found) + " tokens of at least " +
                     std::to_string(failure.needed));
        else
            Note(number_, failure.token + 1,
                 "the file is refused at " + TokenText(line, kind_, failure.token) + ": " + text);
    }

    void TakePlainRow(std::string_view line, bool isRefused)
    {
        if (kind_ == FileKind::Table && !isRefused && !Maths::IsBlank(line) && Maths::Split(line, ",").count < 2)
            Note(number_, 0, "a line of fewer than two values is passed over");
        (void)plainTable_.Take(line);  // one that it does not take is passed over
    }

    void TakePlainLine(std::string_view line, const Options& before, bool isTooShort)
    {
        std::string_view text = line;
        if (number_ == 1 && text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
            text.remove_prefix(kByteOrderMark.size());
            Note(number_, 1, "a byte order mark makes a data line of the first line");
        }
        const auto plain = plain_.Take(text);
        if (plain.problem)
            FailPlainly(number_, plain.problem->token, plain.problem->reason);
        else
            Compare(line, plain, before, isTooShort);
    }

    void Compare(std::string_view line, const PlainTouchstoneReader::Line& plain, const Options& before,
                 bool isTooShort)
    {
        using Kind = PlainTouchstoneReader::Line::Kind;
        const bool isPassedOver = Maths::IsBlank(line) || line.front() == '!';
        const bool isOptions = !isPassedOver && line.front() == '#';
        const bool isPlainOptions = plain.kind == Kind::Options || plain.kind == Kind::FurtherOptions;
        if (isOptions && !isTooShort) {
            CompareOptions(plain, before);
        } else if (!isPassedOver && isPlainOptions) {
            Note(number_, 1, "an option line behind a blank is read as data");
        } else if (!isPassedOver && plain.kind == Kind::Empty) {
            Note(number_, 1, "a comment behind a blank is read as data");
        } else if (!isPassedOver && !isTooShort) {
            CompareData(line, plain);
        }
    }

    void CompareOptions(const PlainTouchstoneReader::Line& plain, const Options& before)
    {
        if (plain.kind == PlainTouchstoneReader::Line::Kind::FurtherOptions) {
            if (reader_.Multiplier() != before.unit || reader_.Format() != before.format)
                Note(number_, 0, "a further option line counts for the lines behind it");
            return;
        }
        const auto& [unit, format, parameter] = plain_.Settings();
        if (reader_.Multiplier() != unit)
            Note(number_, 2,
                 "frequencies are read in " + NameOf(reader_.Multiplier()) + ", not in " + NameOf(unit) +
                     ": the unit is looked for here alone");
        if (reader_.Format() != format)
            Note(number_, 4,
                 "pairs are read as " + FormatName(reader_.Format()) + ", not as " + FormatName(format) +
                     ": the format is looked for here alone");
        if (parameter != 'S')
            Note(number_, 0, fmt::format("parameters {} are read as S-parameters", parameter));
    }

    void CompareData(std::string_view line, const PlainTouchstoneReader::Line& plain)
    {
        if (!plain_.HasSettings() && !toldOfOptions_) {
            toldOfOptions_ = true;
            Note(number_, 0,
                 "data without an option line are read at negated frequencies in Hz as RI, not in GHz as MA");
        }
        if (plain.repeatsFrequency)
            Note(number_, 1, "the frequency does not lie above the one before; of equal ones the last counts");
        if (plainKind_ != kind_)
            return;
        const std::size_t tokens = Maths::Split(line, " \t").count;
        const std::string consequence = Consequence(tokens, plain);
        if (consequence.empty())
            return;
        if (plain.hasComment)
            Note(number_, plain.numbers + 1, "a comment behind the numbers counts as tokens; " + consequence);
        else if (line.back() == ' ' || line.back() == '\t')
            Note(number_, tokens, "a blank at the end counts as a token; " + consequence);
        else if (plain.kind == PlainTouchstoneReader::Line::Kind::Noise)
            Note(number_, 0, "noise parameters are read as transmission; " + consequence);
        else
            Note(number_, 0, std::to_string(tokens) + " tokens; " + consequence);
    }

    // What comes of a line that is not laid out as the rules expect; empty for one that is.
    std::string Consequence(std::size_t tokens, const PlainTouchstoneReader::Line& plain) const
    {
        const bool isNoise = plain.kind == PlainTouchstoneReader::Line::Kind::Noise;
        const bool hasFrequency = tokens == kRecordTokens;
        switch (kind_) {
            case FileKind::OnePort:
                return plain.startsRecord && plain.numbers == 3 ? "" : "the first three are read as a whole record";
            case FileKind::TwoPort:
                if (hasFrequency)
                    return plain.startsRecord && plain.numbers == kRecordTokens && !isNoise
                               ? ""
                               : "they are read as a whole record";
                return "their value is put at 0 Hz";
            case FileKind::FourPort:
                if (hasFrequency)
                    return plain.startsRecord && plain.numbers == kRecordTokens ? ""
                                                                                : "the first is read as a frequency";
                if (plain.startsRecord)
                    return "the frequency is read as a value";
                return tokens == kRecordTokens - 1 && plain.numbers == tokens ? ""
                                                                              : "the first eight are read as a row";
            case FileKind::Table: break;
        }
        return "";
    }

    std::string fileName_;
    FileKind kind_;
    std::optional<FileKind> plainKind_;
    TouchstoneReader reader_;
    PlainTouchstoneReader plain_;
    TouchstoneReader plainTable_;
    std::size_t number_ = 0;
    bool toldOfOptions_ = false;
    TouchstoneReport report_;
};

}  // namespace

TouchstoneReport CheckTouchstoneText(std::string_view text, const std::string& fileName, PortOrderS4P portOrder)
{
    LineCursor lines(text);
    Comparison comparison(fileName, portOrder);
    while (const auto line = lines.Next())
        comparison.Take(*line, lines.Number());
    return comparison.Finish();
}

}  // namespace Tarnwick::DSO::Workbench
