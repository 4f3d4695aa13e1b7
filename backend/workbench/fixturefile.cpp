#include "workbench/fixturefile.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <utility>

#include <fmt/format.h>

#include "maths/touchstone/touchstone.h"
#include "maths/touchstone/touchstoneplain.h"
#include "workbench/failure.h"
#include "workbench/plumbing/text.h"
#include "workbench/plumbing/touchstonenames.h"
#include "workbench/plumbing/wholefile.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

using Maths::FileKind;
using Maths::PlainTouchstoneReader;

namespace {

constexpr double kClearLeadDb = 3.0;            // of one port order over the other: twice the power
constexpr std::size_t kLongestText = 300;       // [characters] shown of a text from a file
constexpr std::size_t kLowFrequencyShare = 10;  // a tenth of the points

// A reason without quoted words and with one 0 for each number: of one kind are those with the same outline.
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
    const auto optionLine = [](std::size_t line, const PlainTouchstoneReader::Options& settings,
                               std::string_view content) {
        return OptionLine{line, UnitName(settings.unit), settings.parameter, FormatName(settings.format),
                          ReferenceOf(content)};
    };
    LineCursor lines(text);
    PlainTouchstoneReader reader(kind, {});
    while (const auto line = lines.Next()) {
        const auto taken = reader.Take(*line);
        if (taken.kind == PlainTouchstoneReader::Line::Kind::Options)
            return optionLine(lines.Number(), reader.Settings(), *line);
        if (taken.problem)
            break;
    }
    return optionLine(0, {}, "");
}

// Over the lowest frequencies: a path carries most there, and coupling between the pairs least.
double LowFrequencyPower(const FixtureTransmission& transmission)
{
    const std::size_t count = std::min(transmission.size(), transmission.size() / kLowFrequencyShare + 1);
    double sum = 0.0;
    auto point = transmission.begin();
    for (std::size_t k = 0; k < count; ++k, ++point)
        sum += std::norm(point->second);
    return sum;
}

FixtureKind PublicKind(FileKind kind)
{
    switch (kind) {
        case FileKind::Table: return FixtureKind::Table;
        case FileKind::OnePort: return FixtureKind::OnePort;
        case FileKind::TwoPort: return FixtureKind::TwoPort;
        case FileKind::FourPort: break;
    }
    return FixtureKind::FourPort;
}

// In place of a reading that takes other parameters for S.
void TakeConverted(const Network& network, std::vector<TouchstoneReport>& reports)
{
    if (network.converted.empty())
        return;
    const std::size_t size = network.ports * network.ports;
    for (std::size_t order = 0; order < reports.size(); ++order) {
        FixtureTransmission& plain = reports[order].plain;
        plain.clear();
        for (std::size_t k = 0; k < network.frequency.size(); ++k)
            plain[network.frequency[k]] = Maths::TransmissionOf(std::span(network.s).subspan(k * size, size),
                                                                Maths::PairsOf(static_cast<int>(order)));
    }
}

}  // namespace

std::string ReadFixtureText(const std::filesystem::path& path)
{
    std::string text = ReadWholeFile(path);
    if (text.empty())
        throw DataFailure(fmt::format("{}: is empty", path.string()));
    return text;
}

std::string Printable(std::string text)
{
    if (text.size() > kLongestText) {
        text.resize(kLongestText);
        text += " ...";
    }
    std::replace_if(
        text.begin(), text.end(),
        [](char letter) {
            const auto code = static_cast<unsigned char>(letter);
            return code < 0x20 || code == 0x7f;
        },
        '?');
    return text;
}

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

std::optional<double> MadeAtZero(const FixtureTransmission& read)
{
    if (read.empty() || read.begin()->first != 0.0)
        return std::nullopt;
    FixtureTransmission rest(std::next(read.begin()), read.end());
    const bool isMade = Maths::AddDcPoint(rest) && rest.begin()->second == read.begin()->second;
    return isMade ? std::optional(read.begin()->second.real()) : std::nullopt;
}

ThroughPath FindThroughPath(const std::array<FixtureTransmission, 2>& plain)
{
    const double lead = 10.0 * std::log10(LowFrequencyPower(plain[1]) / LowFrequencyPower(plain[0]));
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

bool FixtureFile::IsReadAsMeant() const
{
    return differences.empty() && Report().plainFailure.empty() && Report().readFailure.empty();
}

FixtureFile DescribeFixture(std::string_view text, const std::string& name)
{
    FixtureFile file;
    const std::optional<FileKind> kind = MeantKind(name);
    if (kind)
        file.kind = PublicKind(*kind);
    if (kind != FileKind::Table)
        file.options = FindOptionLine(text, kind.value_or(FileKind::TwoPort));
    file.reports.push_back(CheckTouchstoneText(text, name, PORT_ORDER_12_34));
    file.network = ReadNetwork(text, name);
    if (kind == FileKind::FourPort) {
        file.reports.push_back(CheckTouchstoneText(text, name, PORT_ORDER_13_24));
        TakeConverted(file.network, file.reports);
        if (file.network.mixedModeLine == 0)
            file.through = FindThroughPath({file.reports[0].plain, file.reports[1].plain});
    } else {
        TakeConverted(file.network, file.reports);
    }
    const TouchstoneReport& report = file.Report();
    file.differences = report.differences;
    // A rule of the filter, reported by itself: it is the last difference and concerns the file as a whole.
    if (!report.plain.contains(0.0))
        file.madeAtZero = MadeAtZero(report.read);
    if (file.madeAtZero && !file.differences.empty() && file.differences.back().line == 0)
        file.differences.pop_back();
    return file;
}

TransmissionCurve CurveOf(std::string name, const FixtureTransmission& transmission)
{
    constexpr double kFullTurn = 2.0 * std::numbers::pi;
    TransmissionCurve curve;
    curve.name = std::move(name);
    double phase = 0.0;
    for (const auto& [frequency, value] : transmission) {
        // A zero has no phase of its own; the first value counts as it is.
        const double step = value == 0.0 ? 0.0 : std::arg(value) - phase;
        phase += curve.frequency.empty() ? step : std::remainder(step, kFullTurn);
        curve.frequency.push_back(frequency);
        curve.magnitudeDb.push_back(Decibels(std::abs(value)));
        curve.phaseDeg.push_back(phase * 360.0 / kFullTurn);
    }
    const std::size_t last = curve.frequency.size() - 1;
    for (std::size_t k = 0; k < curve.frequency.size(); ++k) {
        const std::size_t before = k == 0 ? 0 : k - 1;
        const std::size_t after = std::min(k + 1, last);
        curve.delay.push_back((curve.phaseDeg[before] - curve.phaseDeg[after]) / 360.0 /
                              (curve.frequency[after] - curve.frequency[before]));
    }
    return curve;
}

std::vector<TransmissionCurve> CurvesOf(const FixtureFile& file)
{
    using Role = TransmissionCurve::Role;
    std::vector<TransmissionCurve> curves;
    const auto add = [&](std::string name, const FixtureTransmission& transmission, Role role) {
        if (transmission.empty())
            return;
        curves.push_back(CurveOf(std::move(name), transmission));
        curves.back().role = role;
    };
    const std::string quantity = QuantityOf(file.kind);
    if (file.through) {
        for (std::size_t order = 0; order < file.reports.size(); ++order) {
            const bool isOther = file.through->order && static_cast<std::size_t>(*file.through->order) != order;
            add(fmt::format("{}, port order {}", quantity, order), file.reports[order].plain,
                isOther ? Role::OtherOrder : Role::Meant);
        }
    } else {
        add(quantity, file.Report().plain, Role::Meant);
    }
    if (!file.IsReadAsMeant())
        add("as the filter reads it", file.Report().read, Role::AsRead);
    return curves;
}

const char* QuantityOf(std::optional<FixtureKind> kind)
{
    if (kind == FixtureKind::OnePort)
        return "S11";
    return kind == FixtureKind::FourPort ? "Sdd21" : kind == FixtureKind::Table ? "H" : "S21";
}

}  // namespace Tarnwick::DSO::Workbench
