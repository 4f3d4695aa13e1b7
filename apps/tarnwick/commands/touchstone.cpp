// tarnwick touchstone: an S-parameter file before a waveform is de-embedded with it.
#include "workbench/fixturefile.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "framework/plumbing/linereader.h"
#include "pictures/touchstoneplot.h"
#include "workbench/failure.h"
#include "workbench/touchstonenormal.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

namespace Maths = DSO::Maths;
using Maths::FileKind;
using Maths::PlainTouchstoneReader;
using Maths::Transmission;
using nlohmann::ordered_json;

namespace {

constexpr double kGiga = 1e9;
constexpr std::size_t kKindsTold = 20;
constexpr std::size_t kDifferencesTold = 10000;  // in JSON
constexpr std::size_t kRows = 9;                 // of the table of values
constexpr double kEvenStep = 1e-6;               // relative difference of steps that are one

struct Options {
    std::string file;
    std::string normalised;
    std::string prefix;
    bool json = false;
};

std::string ReadFixture(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();  // of an empty file, too, nothing comes
    std::error_code error;
    if (!file.is_open() || std::filesystem::is_directory(path, error))
        throw DataFailure(fmt::format("{}: cannot be read", path));
    return content.str();
}

const char* PortsName(std::optional<FileKind> kind)
{
    if (!kind)
        return "another number of ports than 1, 2 or 4";
    switch (*kind) {
        case FileKind::Table: return "table";
        case FileKind::OnePort: return "1 port";
        case FileKind::TwoPort: return "2 ports";
        case FileKind::FourPort: break;
    }
    return "4 ports";
}

ordered_json PortCount(std::optional<FileKind> kind)
{
    if (!kind || *kind == FileKind::Table)
        return nullptr;
    return *kind == FileKind::OnePort ? 1 : *kind == FileKind::TwoPort ? 2 : 4;
}

const char* QuantityOf(std::optional<FileKind> kind)
{
    if (kind == FileKind::OnePort)
        return "S11";
    return kind == FileKind::FourPort ? "Sdd21" : kind == FileKind::Table ? "H" : "S21";
}

const char* PairsText(int portOrder)
{
    return portOrder == 0 ? "pairs 1, 2 and 3, 4" : "pairs 1, 3 and 2, 4";
}

bool IsReadAsMeant(const FixtureFile& file)
{
    return file.differences.empty() && file.Report().plainFailure.empty() && file.Report().readFailure.empty();
}

// What is shown side by side: the port orders, or what is meant and, should they differ, what is read.
std::vector<TransmissionLine> LinesOf(const FixtureFile& file)
{
    std::vector<TransmissionLine> lines;
    using Role = TransmissionLine::Role;
    const auto add = [&](std::string name, const Transmission& transmission, Role role) {
        if (transmission.empty())
            return;
        lines.push_back(LineOf(std::move(name), transmission));
        lines.back().role = role;
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
    if (!IsReadAsMeant(file))
        add("as the filter reads it", file.Report().read, Role::AsRead);
    return lines;
}

struct Steps {
    double smallest = 0.0;
    double largest = 0.0;
};

Steps StepsOf(const Transmission& transmission)
{
    Steps steps;
    for (auto next = transmission.begin(); next != transmission.end() && std::next(next) != transmission.end();) {
        const double before = next->first;
        const double step = (++next)->first - before;
        steps.smallest = steps.largest == 0.0 ? step : std::min(steps.smallest, step);
        steps.largest = std::max(steps.largest, step);
    }
    return steps;
}

std::string RangeText(const Transmission& transmission)
{
    if (transmission.empty())
        return "no points";
    const double first = transmission.begin()->first / kGiga;
    if (transmission.size() == 1)
        return fmt::format("1 point at {:.6g} GHz; the filter needs two", first);
    std::string text = fmt::format("{} points from {:.6g} to {:.6g} GHz", transmission.size(), first,
                                   transmission.rbegin()->first / kGiga);
    const Steps steps = StepsOf(transmission);
    if (steps.largest > 0.0)
        text += steps.largest - steps.smallest <= kEvenStep * steps.largest
                    ? fmt::format(", steps of {:.6g} GHz", steps.largest / kGiga)
                    : fmt::format(", steps of {:.6g} to {:.6g} GHz", steps.smallest / kGiga, steps.largest / kGiga);
    return text;
}

std::string OptionText(const OptionLine& options)
{
    return fmt::format("{}: {}, {}-parameters, {}, reference {}",
                       options.line > 0 ? fmt::format("options in line {}", options.line)
                                        : std::string("no option line, so by default"),
                       UnitName(options.settings.unit), options.settings.parameter, FormatName(options.settings.format),
                       options.reference);
}

// Of the data as they are meant, whether or not the filter reads them so.
std::string AtZeroText(Transmission plain)
{
    if (plain.contains(0.0))
        return "at 0 Hz: in the data";
    if (Maths::AddDcPoint(plain))
        return fmt::format(
            "at 0 Hz: no data; the second frequency is twice the first, so the filter puts {:.6g} there, the magnitude "
            "at the first",
            plain.begin()->second.real());
    return "at 0 Hz: no data, and the second frequency is not exactly twice the first; the filter extrapolates";
}

std::string ThroughText(const ThroughPath& through)
{
    if (!through.order)
        return fmt::format("through path: not clear; port order 1 carries {:.2f} dB more than 0", through.leadDb);
    return fmt::format("through path: port order {} ({}), {:.1f} dB above the other", static_cast<int>(*through.order),
                       PairsText(*through.order), std::abs(through.leadDb));
}

// Evenly spaced among the frequencies, the first and the last among them.
std::vector<double> SampleFrequencies(const std::vector<TransmissionLine>& lines)
{
    if (lines.empty())
        return {};
    const std::vector<double>& all = lines.front().frequency;
    const std::size_t count = std::min(kRows, all.size());
    std::vector<double> chosen;
    for (std::size_t k = 0; k < count; ++k)
        chosen.push_back(all[count == 1 ? 0 : k * (all.size() - 1) / (count - 1)]);
    return chosen;
}

// Where a line has a value at just this frequency.
std::optional<std::size_t> IndexOf(const TransmissionLine& line, double frequency)
{
    const auto at = std::lower_bound(line.frequency.begin(), line.frequency.end(), frequency);
    if (at == line.frequency.end() || *at != frequency)
        return std::nullopt;
    return static_cast<std::size_t>(at - line.frequency.begin());
}

// Between -180 and 180 degrees; never "-0.000", whose sign is that of the last bit.
double Wrapped(double degrees)
{
    const double wrapped = std::remainder(degrees, 360.0);
    return std::abs(wrapped) < 0.0005 ? 0.0 : wrapped;
}

void PrintValues(const std::vector<TransmissionLine>& lines)
{
    if (lines.empty())
        return;
    fmt::print("\n{:>10}", "");
    for (const TransmissionLine& line : lines)
        fmt::print("  {:>23}", line.name);
    fmt::print("\n{:>10}", "GHz");
    for (std::size_t k = 0; k < lines.size(); ++k)
        fmt::print("  {:>12} {:>10}", "dB", "deg");
    fmt::print("\n");
    for (const double frequency : SampleFrequencies(lines)) {
        fmt::print("{:>10.5g}", frequency / kGiga);
        for (const TransmissionLine& line : lines) {
            if (const auto k = IndexOf(line, frequency))
                fmt::print("  {:>12.4f} {:>10.3f}", line.magnitudeDb[*k], Wrapped(line.phaseDeg[*k]));
            else
                fmt::print("  {:>12} {:>10}", "-", "-");
        }
        fmt::print("\n");
    }
}

void PrintText(const FixtureFile& file, const std::string& name)
{
    const TouchstoneReport& report = file.Report();
    fmt::print("{}: {}, {}\n", name, PortsName(file.kind), RangeText(report.plain));
    if (file.options)
        fmt::print("{}\n", Printable(OptionText(*file.options)));
    if (report.plain.size() > 1)
        fmt::print("{}\n", AtZeroText(report.plain));
    if (IsReadAsMeant(file)) {
        fmt::print("the filter reads it as it is meant\n");
    } else {
        fmt::print(
            "the filter {}reads it otherwise than it is meant:\n",
            report.readFailure.empty() ? "" : fmt::format("refuses it in line {}, and ", report.readFailureLine));
        const std::vector<DifferenceKind> kinds = KindsOf(file.differences);
        for (std::size_t k = 0; k < std::min(kinds.size(), kKindsTold); ++k)
            fmt::print("    {}\n", TextOf(kinds[k]));
        if (kinds.size() > kKindsTold)
            fmt::print("    {} more kinds of difference; --json lists them\n", kinds.size() - kKindsTold);
    }
    if (file.through)
        fmt::print("{}\n", ThroughText(*file.through));
    PrintValues(LinesOf(file));
}

ordered_json DifferencesToJson(const std::vector<TouchstoneDifference>& differences)
{
    ordered_json list = ordered_json::array();
    for (std::size_t k = 0; k < std::min(differences.size(), kDifferencesTold); ++k)
        list.push_back(
            {{"line", differences[k].line}, {"token", differences[k].token}, {"reason", differences[k].reason}});
    return list;
}

ordered_json KindsToJson(const std::vector<TouchstoneDifference>& differences)
{
    ordered_json list = ordered_json::array();
    for (const DifferenceKind& kind : KindsOf(differences))
        list.push_back({{"reason", kind.first.reason},
                        {"count", kind.count},
                        {"firstLine", kind.first.line},
                        {"lastLine", kind.lastLine}});
    return list;
}

ordered_json ValuesToJson(const std::vector<TransmissionLine>& lines)
{
    ordered_json list = ordered_json::array();
    for (const double frequency : SampleFrequencies(lines)) {
        ordered_json row = {{"frequencyHz", frequency}};
        for (const TransmissionLine& line : lines)
            if (const auto k = IndexOf(line, frequency))
                row[line.name] = {{"magnitudeDb", line.magnitudeDb[*k]}, {"phaseDeg", Wrapped(line.phaseDeg[*k])}};
        list.push_back(std::move(row));
    }
    return list;
}

ordered_json ToJson(const FixtureFile& file, const Options& options)
{
    const TouchstoneReport& report = file.Report();
    ordered_json json = {{"file", options.file}, {"ports", PortCount(file.kind)}, {"quantity", QuantityOf(file.kind)}};
    if (file.options)
        json["options"] = {{"line", file.options->line},
                           {"unit", UnitName(file.options->settings.unit)},
                           {"parameter", std::string(1, file.options->settings.parameter)},
                           {"format", FormatName(file.options->settings.format)},
                           {"reference", file.options->reference}};
    json["points"] = report.plain.size();
    if (!report.plain.empty()) {
        const Steps steps = StepsOf(report.plain);
        json["firstHz"] = report.plain.begin()->first;
        json["lastHz"] = report.plain.rbegin()->first;
        json["smallestStepHz"] = steps.smallest;
        json["largestStepHz"] = steps.largest;
    }
    json["atZeroHz"] = {{"inData", report.plain.contains(0.0)},
                        {"madeByFilter", file.madeAtZero ? ordered_json(*file.madeAtZero) : ordered_json()}};
    json["readAsMeant"] = IsReadAsMeant(file);
    json["plainFailure"] = report.plainFailure;
    json["readFailure"] = report.readFailure;
    json["readFailureLine"] = report.readFailureLine;
    json["differenceKinds"] = KindsToJson(file.differences);
    json["differences"] = DifferencesToJson(file.differences);
    json["differencesLeftOut"] = file.differences.size() - std::min(file.differences.size(), kDifferencesTold);
    if (file.through)
        json["throughPath"] = {
            {"portOrder", file.through->order ? ordered_json(static_cast<int>(*file.through->order)) : ordered_json()},
            {"leadDb", file.through->leadDb}};
    json["values"] = ValuesToJson(LinesOf(file));
    if (!options.normalised.empty())
        json["normalised"] = options.normalised;
    return json;
}

std::string Csv(const std::vector<TransmissionLine>& lines)
{
    std::set<double> frequencies;
    fmt::memory_buffer text;
    fmt::format_to(std::back_inserter(text), "frequencyHz");
    for (const TransmissionLine& line : lines) {
        fmt::format_to(std::back_inserter(text), ",\"{0} magnitude [dB]\",\"{0} phase [deg]\"", line.name);
        frequencies.insert(line.frequency.begin(), line.frequency.end());
    }
    for (const double frequency : frequencies) {
        fmt::format_to(std::back_inserter(text), "\n{}", frequency);
        for (const TransmissionLine& line : lines) {
            const auto k = IndexOf(line, frequency);
            const bool isFinite = k && std::isfinite(line.magnitudeDb[*k]);
            fmt::format_to(std::back_inserter(text), ",{},{}", isFinite ? fmt::to_string(line.magnitudeDb[*k]) : "",
                           isFinite ? fmt::to_string(line.phaseDeg[*k]) : "");
        }
    }
    text.push_back('\n');
    return fmt::to_string(text);
}

// The name says how many ports there are, so it has to say it in the filter's way.
void RequireSameKind(const std::string& output, const FixtureFile& file, const std::string& input)
{
    if (!file.kind)
        return;  // which normalising refuses, with the reason
    if (Maths::KindOf(output) != *file.kind || MeantKind(output) != file.kind)
        throw UsageFailure(
            fmt::format("{}: name of what is written from {}; expected one that ends in {}, lower case "
                        "and nowhere else in the path",
                        output, input, EndingOf(*file.kind)));
}

void Normalise(std::string_view text, const Options& options)
{
    const NormalisedFile normalised = NormaliseTouchstone(text, options.file);
    const FixtureFile check = DescribeFixture(normalised.text, options.normalised);
    if (!IsReadAsMeant(check))
        throw DataFailure(fmt::format("{}: cannot be mended; what would be written still has {}", options.file,
                                      check.differences.empty() ? "no meaning" : TextOf({check.differences[0], 1, 0})));
    WriteWhole(options.normalised, normalised.text);
    for (const std::string& note : normalised.notes)
        fmt::print(stderr, "tarnwick: {}\n", note);
}

void Show(const Options& options)
{
    const std::string text = ReadFixture(options.file);
    if (text.empty())
        throw DataFailure(fmt::format("{}: is empty", options.file));
    const FixtureFile file = DescribeFixture(text, options.file);
    if (!options.normalised.empty()) {
        RequireSameKind(options.normalised, file, options.file);
        Normalise(text, options);
    }
    if (!options.prefix.empty()) {
        const std::vector<TransmissionLine> lines = LinesOf(file);
        if (lines.empty())
            throw DataFailure(
                fmt::format("{}: holds nothing to draw; {}", options.file, Printable(file.Report().plainFailure)));
        WriteWhole(options.prefix + ".csv", Csv(lines));
        DrawTransmission(options.prefix + ".png", lines, std::filesystem::path(options.file).filename().string());
    }
    if (options.json)
        fmt::print("{}\n", ToJson(file, options).dump(2, ' ', false, ordered_json::error_handler_t::replace));
    else
        PrintText(file, options.file);
}

}  // namespace

void AddTouchstone(CLI::App& program)
{
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "touchstone",
        "Show an S-parameter file, and where the de-embedding filter reads it otherwise than it is meant");
    command->add_option("file", options->file, "Fixture: .s1p, .s2p, .s4p, or a table of dB and radians, .s21")
        ->required();
    command
        ->add_option("--normalise", options->normalised,
                     "Write the file anew, so that the filter reads it as it is meant")
        ->type_name("OUT");
    command->add_option("-o,--output", options->prefix, "Draw magnitude and phase in PREFIX.png, write PREFIX.csv")
        ->type_name("PREFIX");
    command->add_flag("--json", options->json, "Print the report as JSON");
    command->footer("Example: tarnwick touchstone fixture.s4p --normalise clean.s4p -o fixture");
    command->callback([options] { Show(*options); });
}

}  // namespace Tarnwick::App
