#include "workbench/fixturereport.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include <fmt/format.h>

#include "maths/touchstone/touchstone.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/text.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kMostKindsInText = 20;
constexpr std::size_t kMostDifferencesInJson = 10000;
constexpr std::size_t kTableRows = 9;
constexpr double kEqualSteps = 1e-6;  // steps that differ by less than this part of the largest count as equal

std::string PortsText(std::optional<FixtureKind> kind)
{
    if (!kind)
        return "another number of ports than 1, 2 or 4";
    switch (*kind) {
        case FixtureKind::Table: return "table";
        case FixtureKind::OnePort: return "1 port";
        case FixtureKind::TwoPort: return "2 ports";
        case FixtureKind::FourPort: break;
    }
    return "4 ports";
}

Json PortCount(std::optional<FixtureKind> kind)
{
    if (!kind || *kind == FixtureKind::Table)
        return nullptr;
    return *kind == FixtureKind::OnePort ? 1 : *kind == FixtureKind::TwoPort ? 2 : 4;
}

const char* PathText(int portOrder)
{
    return portOrder == 0 ? "port 1 to port 3, port 2 to port 4" : "port 1 to port 2, port 3 to port 4";
}

struct FrequencySteps {
    double smallest = 0.0;  // [Hz]
    double largest = 0.0;   // [Hz]
};

FrequencySteps StepsOf(const FixtureTransmission& transmission)
{
    FrequencySteps steps;
    for (auto next = transmission.begin(); next != transmission.end() && std::next(next) != transmission.end();) {
        const double before = next->first;
        const double step = (++next)->first - before;
        steps.smallest = steps.largest == 0.0 ? step : std::min(steps.smallest, step);
        steps.largest = std::max(steps.largest, step);
    }
    return steps;
}

std::string RangeText(const FixtureTransmission& transmission)
{
    if (transmission.empty())
        return "no points";
    const double first = transmission.begin()->first / kGiga;
    if (transmission.size() == 1)
        return fmt::format("1 point at {:.6g} GHz; the filter needs two", first);
    std::string text = fmt::format("{} points from {:.6g} to {:.6g} GHz", transmission.size(), first,
                                   transmission.rbegin()->first / kGiga);
    const FrequencySteps steps = StepsOf(transmission);
    if (steps.largest > 0.0)
        text += steps.largest - steps.smallest <= kEqualSteps * steps.largest
                    ? fmt::format(", steps of {:.6g} GHz", steps.largest / kGiga)
                    : fmt::format(", steps of {:.6g} to {:.6g} GHz", steps.smallest / kGiga, steps.largest / kGiga);
    return text;
}

std::string OptionText(const OptionLine& options)
{
    return fmt::format("{}: {}, {}-parameters, {}, reference {}",
                       options.line > 0 ? fmt::format("options in line {}", options.line)
                                        : std::string("no option line, so by default"),
                       options.frequencyUnit, options.parameter, options.numberFormat, options.reference);
}

// Of the data as they are meant, whether or not the filter reads them so.
std::string AtZeroText(FixtureTransmission plain)
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
    return fmt::format("through path: {} (port order {}), {:.1f} dB above the other", PathText(*through.order),
                       static_cast<int>(*through.order), std::abs(through.leadDb));
}

// Those asked for, or some evenly spread over the first curve's frequencies, its first and last among them.
std::vector<double> TableFrequencies(std::span<const TransmissionCurve> curves, std::span<const double> asked)
{
    if (curves.empty() || !asked.empty())
        return {asked.begin(), asked.end()};
    const std::vector<double>& all = curves.front().frequency;
    const std::size_t count = std::min(kTableRows, all.size());
    std::vector<double> chosen;
    for (std::size_t k = 0; k < count; ++k)
        chosen.push_back(all[count == 1 ? 0 : k * (all.size() - 1) / (count - 1)]);
    return chosen;
}

struct CurveValue {
    double magnitudeDb;
    double phaseDeg;
};

// Straight between the neighbours, in dB and degrees; nothing beyond the data.
std::optional<CurveValue> ValueAt(const TransmissionCurve& curve, double frequency)
{
    const auto next = std::lower_bound(curve.frequency.begin(), curve.frequency.end(), frequency);
    if (next == curve.frequency.end() || (next == curve.frequency.begin() && *next != frequency))
        return std::nullopt;
    const auto k = static_cast<std::size_t>(next - curve.frequency.begin());
    if (*next == frequency)
        return CurveValue{curve.magnitudeDb[k], curve.phaseDeg[k]};
    const double part = (frequency - curve.frequency[k - 1]) / (*next - curve.frequency[k - 1]);
    return CurveValue{std::lerp(curve.magnitudeDb[k - 1], curve.magnitudeDb[k], part),
                      std::lerp(curve.phaseDeg[k - 1], curve.phaseDeg[k], part)};
}

// Where a curve has a value at exactly this frequency.
std::optional<std::size_t> IndexOf(const TransmissionCurve& curve, double frequency)
{
    const auto at = std::lower_bound(curve.frequency.begin(), curve.frequency.end(), frequency);
    if (at == curve.frequency.end() || *at != frequency)
        return std::nullopt;
    return static_cast<std::size_t>(at - curve.frequency.begin());
}

// Between -180 and 180 degrees.
double Wrapped(double degrees)
{
    return WithoutNegativeZero(std::remainder(degrees, 360.0));
}

std::string ValueTable(std::span<const TransmissionCurve> curves, std::span<const double> asked)
{
    constexpr std::size_t kNarrowest = 23;  // characters of a curve's two columns
    if (curves.empty())
        return "";
    std::string text = fmt::format("\n{:>10}", "");
    for (const TransmissionCurve& curve : curves)
        text += fmt::format("  {:>{}}", curve.name, kNarrowest);
    text += fmt::format("\n{:>10}", "GHz");
    for (std::size_t k = 0; k < curves.size(); ++k)
        text += fmt::format("  {:>12} {:>10}", "dB", "deg");
    text += "\n";
    for (const double frequency : TableFrequencies(curves, asked)) {
        text += fmt::format("{:>10.5g}", frequency / kGiga);
        for (const TransmissionCurve& curve : curves) {
            if (const auto value = ValueAt(curve, frequency))
                text += fmt::format("  {:>12.4f} {:>10.3f}", value->magnitudeDb, Wrapped(value->phaseDeg));
            else
                text += fmt::format("  {:>12} {:>10}", "-", "-");
        }
        text += "\n";
    }
    return text;
}

Json DifferencesToJson(const std::vector<TouchstoneDifference>& differences)
{
    Json list = Json::List();
    for (std::size_t k = 0; k < std::min(differences.size(), kMostDifferencesInJson); ++k)
        list.Add({{"line", differences[k].line}, {"token", differences[k].token}, {"reason", differences[k].reason}});
    return list;
}

Json KindsToJson(const std::vector<TouchstoneDifference>& differences)
{
    Json list = Json::List();
    for (const DifferenceKind& kind : KindsOf(differences))
        list.Add({{"reason", kind.first.reason},
                  {"count", kind.count},
                  {"firstLine", kind.first.line},
                  {"lastLine", kind.lastLine}});
    return list;
}

Json ValuesToJson(std::span<const TransmissionCurve> curves, std::span<const double> asked)
{
    Json list = Json::List();
    for (const double frequency : TableFrequencies(curves, asked)) {
        Json row = {{"frequencyHz", frequency}};
        for (const TransmissionCurve& curve : curves)
            if (const auto value = ValueAt(curve, frequency))
                row.Set(curve.name, {{"magnitudeDb", value->magnitudeDb}, {"phaseDeg", Wrapped(value->phaseDeg)}});
        list.Add(std::move(row));
    }
    return list;
}

std::string QualityText(const NetworkQuality& quality)
{
    const auto row = [](const char* property, bool holds, const std::string& figure) {
        return fmt::format("{}{}: {}\n", holds ? "" : "NOT ", property, figure);
    };
    const auto at = [](const NetworkFigure& figure) { return fmt::format("at {:.5g} GHz", figure.frequency / kGiga); };
    std::string text = row("passive", quality.IsPassive(),
                           fmt::format("largest singular value {:.5f} {}", quality.largestSingularValue.value,
                                       at(quality.largestSingularValue)));
    if (quality.asymmetry)
        text += row("reciprocal", quality.IsReciprocal(),
                    fmt::format("largest |Sij - Sji| {:.2g} {}", quality.asymmetry->value, at(*quality.asymmetry)));
    if (quality.earlyEnergy)
        text +=
            row("causal", quality.IsCausal(),
                fmt::format("{:.2g} % of the through path's energy before time zero", 100.0 * *quality.earlyEnergy));
    if (quality.phaseStep)
        text +=
            row("smooth enough for its delay", quality.IsSmooth(),
                fmt::format("largest phase step {:.1f} degrees {}", quality.phaseStep->value, at(*quality.phaseStep)));
    return text;
}

Json QualityToJson(const NetworkQuality& quality)
{
    const auto figure = [](const std::optional<NetworkFigure>& found, bool holds) -> Json {
        if (!found)
            return nullptr;
        return {{"value", found->value}, {"frequencyHz", found->frequency}, {"holds", holds}};
    };
    Json json = {{"passive", figure(quality.largestSingularValue, quality.IsPassive())},
                 {"reciprocal", figure(quality.asymmetry, quality.IsReciprocal())},
                 {"causal", nullptr},
                 {"smooth", figure(quality.phaseStep, quality.IsSmooth())}};
    if (quality.earlyEnergy)
        json.Set("causal", {{"value", *quality.earlyEnergy}, {"holds", quality.IsCausal()}});
    return json;
}

}  // namespace

std::string FixtureAsText(const FixtureFile& file, const std::string& name, std::span<const double> frequencies)
{
    const TouchstoneReport& report = file.Report();
    std::string text = fmt::format("{}: {}, {}\n", name, PortsText(file.kind), RangeText(report.plain));
    if (file.options)
        text += Printable(OptionText(*file.options)) + "\n";
    if (!file.network.converted.empty())
        text += fmt::format("shown below: the S-parameters that --normalise writes, converted from {}\n",
                            file.network.converted);
    if (file.network.mixedModeLine > 0)
        text += fmt::format(
            "mixed-mode parameters, as line {} says; the filter takes single-ended ones, so nothing is "
            "advised on its paths\n",
            file.network.mixedModeLine);
    if (report.plain.size() > 1)
        text += AtZeroText(report.plain) + "\n";
    if (file.IsReadAsMeant()) {
        text += "the filter reads it as it is meant\n";
    } else {
        text += fmt::format(
            "the filter {}reads it differently from what was meant:\n",
            report.readFailure.empty() ? "" : fmt::format("refuses it in line {}, and ", report.readFailureLine));
        const std::vector<DifferenceKind> kinds = KindsOf(file.differences);
        for (std::size_t k = 0; k < std::min(kinds.size(), kMostKindsInText); ++k)
            text += fmt::format("    {}\n", TextOf(kinds[k]));
        if (kinds.size() > kMostKindsInText)
            text +=
                fmt::format("    {} more kinds of difference; --json lists them\n", kinds.size() - kMostKindsInText);
    }
    if (file.through)
        text += ThroughText(*file.through) + "\n";
    if (!file.network.frequency.empty())
        text += QualityText(JudgeNetwork(file.network));
    return text + ValueTable(CurvesOf(file), frequencies);
}

std::string FixtureAsJson(const FixtureFile& file, const std::string& name, const std::string& normalised,
                          std::span<const double> frequencies)
{
    const TouchstoneReport& report = file.Report();
    Json json = {{"file", name}, {"ports", PortCount(file.kind)}, {"quantity", QuantityOf(file.kind)}};
    if (file.options)
        json.Set("options", {{"line", file.options->line},
                             {"unit", file.options->frequencyUnit},
                             {"parameter", std::string(1, file.options->parameter)},
                             {"format", file.options->numberFormat},
                             {"reference", file.options->reference}});
    json.Set("points", report.plain.size());
    if (!report.plain.empty()) {
        const FrequencySteps steps = StepsOf(report.plain);
        json.Set("firstHz", report.plain.begin()->first);
        json.Set("lastHz", report.plain.rbegin()->first);
        json.Set("smallestStepHz", steps.smallest);
        json.Set("largestStepHz", steps.largest);
    }
    json.Set("atZeroHz", {{"inData", report.plain.contains(0.0)},
                          {"madeByFilter", file.madeAtZero ? Json(*file.madeAtZero) : Json()}});
    json.Set("readAsMeant", file.IsReadAsMeant());
    json.Set("plainFailure", report.plainFailure);
    json.Set("readFailure", report.readFailure);
    json.Set("readFailureLine", report.readFailureLine);
    json.Set("differenceKinds", KindsToJson(file.differences));
    json.Set("differences", DifferencesToJson(file.differences));
    json.Set("differencesLeftOut", file.differences.size() - std::min(file.differences.size(), kMostDifferencesInJson));
    if (file.through)
        json.Set("throughPath",
                 {{"portOrder", file.through->order ? Json(static_cast<int>(*file.through->order)) : Json()},
                  {"path", file.through->order ? Json(PathText(*file.through->order)) : Json()},
                  {"leadDb", file.through->leadDb}});
    json.Set("convertedFrom", file.network.converted.empty() ? Json() : Json(file.network.converted));
    json.Set("mixedModeLine", file.network.mixedModeLine > 0 ? Json(file.network.mixedModeLine) : Json());
    json.Set("quality", file.network.frequency.empty() ? Json() : QualityToJson(JudgeNetwork(file.network)));
    json.Set("values", ValuesToJson(CurvesOf(file), frequencies));
    if (!normalised.empty())
        json.Set("normalised", normalised);
    return json.Text(2);
}

std::string TransmissionColumns(std::span<const TransmissionCurve> curves)
{
    std::set<double> frequencies;
    std::string text = "frequency [Hz]";
    for (const TransmissionCurve& curve : curves) {
        text += fmt::format(",\"{0} magnitude [dB]\",\"{0} phase [deg]\",\"{0} delay [s]\"", curve.name);
        frequencies.insert(curve.frequency.begin(), curve.frequency.end());
    }
    for (const double frequency : frequencies) {
        text += fmt::format("\n{}", frequency);
        for (const TransmissionCurve& curve : curves) {
            const auto k = IndexOf(curve, frequency);
            const bool isFinite = k && std::isfinite(curve.magnitudeDb[*k]);
            const auto field = [](bool isKnown, double value) { return isKnown ? fmt::format("{}", value) : ""; };
            text += fmt::format(",{},{},{}", field(isFinite, k ? curve.magnitudeDb[*k] : 0.0),
                                field(isFinite, k ? curve.phaseDeg[*k] : 0.0),
                                field(isFinite && std::isfinite(curve.delay[*k]), k ? curve.delay[*k] : 0.0));
        }
    }
    text.push_back('\n');
    return text;
}

}  // namespace Tarnwick::DSO::Workbench
