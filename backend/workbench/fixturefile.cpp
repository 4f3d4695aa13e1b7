#include "workbench/fixturefile.h"

#include <algorithm>
#include <set>
#include <sstream>

#include <fmt/format.h>

#include "framework/plumbing/linereader.h"
#include "workbench/touchstonenormal.h"

namespace Tarnwick::DSO::Workbench {

using Maths::FileKind;
using Maths::PlainTouchstoneReader;
using Maths::Transmission;

namespace {

constexpr double kClearLeadDb = 3.0;  // of one port order over the other

// What numbers and quoted words are left out of, to tell whether two reasons are one.
std::string Outline(const std::string& reason)
{
    std::string outline;
    bool quoted = false;
    for (const char letter : reason) {
        if (letter == '"')
            quoted = !quoted;
        const bool isDigit = letter >= '0' && letter <= '9';
        if (!quoted && !(isDigit && !outline.empty() && outline.back() == '0'))
            outline += isDigit ? '0' : letter;
    }
    return outline;
}

OptionLine FindOptionLine(std::string_view text, FileKind kind)
{
    std::istringstream source{std::string(text)};
    SystemFramework::LineReader lines(source);
    PlainTouchstoneReader reader(kind, {});
    while (const auto line = lines.Next()) {
        const auto taken = reader.Take(*line);
        if (taken.kind == PlainTouchstoneReader::Line::Kind::Options)
            return {lines.Number(), reader.Settings(), ReferenceOf(*line)};
        if (taken.problem)
            break;
    }
    return {0, {}, ReferenceOf("")};
}

// Over the lowest tenth of the frequencies: a path carries most there, and coupling between the pairs least.
double LowPower(const Transmission& transmission)
{
    const std::size_t count = std::min(transmission.size(), transmission.size() / 10 + 1);
    double sum = 0.0;
    auto point = transmission.begin();
    for (std::size_t k = 0; k < count; ++k, ++point)
        sum += std::norm(point->second);
    return sum;
}

}  // namespace

std::vector<DifferenceKind> KindsOf(std::span<const TouchstoneDifference> differences)
{
    std::vector<DifferenceKind> kinds;
    std::map<std::string, std::size_t> byOutline;
    for (const TouchstoneDifference& difference : differences) {
        const auto [place, isNew] = byOutline.try_emplace(Outline(difference.reason), kinds.size());
        if (isNew)
            kinds.push_back({difference, 0, 0});
        DifferenceKind& kind = kinds[place->second];
        ++kind.count;
        kind.lastLine = difference.line;
    }
    return kinds;
}

std::string TextOf(const DifferenceKind& kind)
{
    const auto& [line, token, reason] = kind.first;
    const std::string place = line > 0 ? fmt::format("line {}", line) : "";
    const std::string where = token > 0 ? fmt::format("{}, token {}", place, token) : place;
    const std::string more =
        kind.count > 1 ? fmt::format("; {} more like it, the last in line {}", kind.count - 1, kind.lastLine) : "";
    return (where.empty() ? "" : where + ": ") + Printable(reason) + more;
}

std::optional<double> MadeAtZero(const Transmission& read)
{
    if (read.empty() || read.begin()->first != 0.0)
        return std::nullopt;
    Transmission rest(std::next(read.begin()), read.end());
    const bool isMade = Maths::AddDcPoint(rest) && rest.begin()->second == read.begin()->second;
    return isMade ? std::optional(read.begin()->second.real()) : std::nullopt;
}

ThroughPath FindThroughPath(const std::array<Transmission, 2>& plain)
{
    const double lead = 10.0 * std::log10(LowPower(plain[1]) / LowPower(plain[0]));
    ThroughPath through;
    if (std::isnan(lead))  // neither carries anything
        return through;
    through.leadDb = lead;
    if (std::abs(lead) >= kClearLeadDb)
        through.order = lead > 0.0 ? PORT_ORDER_13_24 : PORT_ORDER_12_34;
    return through;
}

std::optional<ThroughPath> FindThroughPath(std::string_view text, const std::string& name)
{
    if (MeantKind(name) != FileKind::FourPort)
        return std::nullopt;
    return FindThroughPath({CheckTouchstoneText(text, name, PORT_ORDER_12_34).plain,
                            CheckTouchstoneText(text, name, PORT_ORDER_13_24).plain});
}

const TouchstoneReport& FixtureFile::Report() const
{
    return reports[through && through->order ? static_cast<std::size_t>(*through->order) : 0];
}

FixtureFile DescribeFixture(std::string_view text, const std::string& name)
{
    FixtureFile file;
    file.kind = MeantKind(name);
    if (file.kind != FileKind::Table)
        file.options = FindOptionLine(text, file.kind.value_or(FileKind::TwoPort));
    file.reports.push_back(CheckTouchstoneText(text, name, PORT_ORDER_12_34));
    if (file.kind == FileKind::FourPort) {
        file.reports.push_back(CheckTouchstoneText(text, name, PORT_ORDER_13_24));
        file.through = FindThroughPath({file.reports[0].plain, file.reports[1].plain});
    }
    const TouchstoneReport& report = file.Report();
    file.differences = report.differences;
    // A rule of the filter's, and told apart: it is the last difference, of the file as a whole.
    if (!report.plain.contains(0.0))
        file.madeAtZero = MadeAtZero(report.read);
    if (file.madeAtZero && !file.differences.empty() && file.differences.back().line == 0)
        file.differences.pop_back();
    return file;
}

}  // namespace Tarnwick::DSO::Workbench
