#include "workbench/plumbing/reportdocument.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <numeric>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "framework/filenames.h"
#include "workbench/failure.h"
#include "workbench/plumbing/base64.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/reportquantities.h"
#include "workbench/plumbing/sha256.h"
#include "workbench/plumbing/text.h"
#include "workbench/plumbing/wholefile.h"
#include "workbench/symbols.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kMostPoints = 600;        // of a curve: more are not seen
constexpr double kPointsOfAllStages = 30000.0;  // of each kind of curve
constexpr std::size_t kFewestPoints = 64;
constexpr std::size_t kMostPointsOfCapture = 1200;
constexpr std::size_t kLongestChain =
    std::size_t{256} * 1024;           // [bytes] a pattern of a million symbols is not for reading
constexpr double kUiBeforePeak = 5.0;  // of an impulse response that are shown
constexpr double kUiBehindPeak = 15.0;

Json TextOrNull(const std::string& text)
{
    return text.empty() ? Json() : Json(text);
}

// Six digits, more than a curve can show, in as few letters.
double Rounded(double value)
{
    char text[32];
    double rounded = value;
    const char* const end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6).ptr;
    std::from_chars(text, end, rounded);
    return rounded;
}

// Every stride-th value, so that no more than `most` are left.
struct Curve {
    double first;
    double spacing;
    std::size_t count;
    std::function<double(std::size_t)> at;
};

Json SeriesOf(const Curve& curve, std::size_t most)
{
    const std::size_t stride = std::max<std::size_t>((curve.count + most - 1) / most, 1);
    std::vector<double> values;
    for (std::size_t k = 0; k < curve.count; k += stride)
        values.push_back(Rounded(curve.at(k)));
    return {{"first", curve.first}, {"spacing", curve.spacing * static_cast<double>(stride)}, {"values", values}};
}

Json SeriesOf(double first, double spacing, const std::vector<double>& values, std::size_t most)
{
    return SeriesOf({first, spacing, values.size(), [&](std::size_t k) { return values[k]; }}, most);
}

Json DensityOf(const EyeCounts& eye)
{
    if (eye.hits.empty())
        return nullptr;
    return {{"columns", eye.columns},
            {"rows", eye.rows},
            {"low", eye.range.low},
            {"high", eye.range.high},
            {"spanUi", kEyeSpanUi},
            {"counts", CodedCounts(eye.hits)},
            {"total", std::accumulate(eye.hits.begin(), eye.hits.end(), std::uint64_t{0})}};
}

Json OpeningsOf(const EyeReport& report)
{
    Json eyes = Json::List();
    for (const EyeOpening& eye : report.eyes)
        eyes.Add({{"height", eye.height},
                  {"openingPercent", eye.openingPercent},
                  {"widthUi", eye.widthUi},
                  {"widthPs", eye.widthPs},
                  {"leftUi", eye.widthUi ? Json(eye.leftUi) : Json()},
                  {"rightUi", eye.widthUi ? Json(eye.rightUi) : Json()},
                  {"threshold", eye.threshold},
                  {"heightAtBer", eye.heightAtBer},
                  {"q", eye.q}});
    return eyes;
}

// Of each eye what is left at the target error ratio, about the phase that leaves most.
Json ContoursOf(const EyeReport& report)
{
    if (report.bathtub.empty())
        return nullptr;
    const std::vector<BathtubPoint>& points = report.bathtub;
    Json contours = Json::List();
    for (std::size_t eye = 0; eye < report.eyes.size(); ++eye) {
        const auto heightAt = [&](std::size_t k) { return points[k].openings[eye].high - points[k].openings[eye].low; };
        std::size_t first = 0;
        for (std::size_t k = 1; k < points.size(); ++k)
            first = heightAt(k) > heightAt(first) ? k : first;
        std::size_t last = first;
        if (!(heightAt(first) > 0.0))
            continue;
        while (first > 0 && heightAt(first - 1) > 0.0)
            --first;
        while (last + 1 < points.size() && heightAt(last + 1) > 0.0)
            ++last;
        Json outline = Json::List();
        const auto add = [&](std::size_t k, double volt) {
            outline.Add(std::vector<double>{Rounded(points[k].offsetUi), Rounded(volt)});
        };
        for (std::size_t k = first; k <= last; ++k)
            add(k, points[k].openings[eye].high);
        for (std::size_t k = last + 1; k-- > first;)
            add(k, points[k].openings[eye].low);
        add(first, points[first].openings[eye].high);
        contours.Add(std::move(outline));
    }
    return contours;
}

Json BathtubOf(const EyeReport& report)
{
    if (report.bathtub.size() < 2)
        return nullptr;
    const double first = report.bathtub.front().offsetUi;
    const double spacing = (report.bathtub.back().offsetUi - first) / static_cast<double>(report.bathtub.size() - 1);
    return {
        {"ber", SeriesOf({first, spacing, report.bathtub.size(), [&](std::size_t k) { return report.bathtub[k].ber; }},
                         report.bathtub.size())}};
}

Json EyeOf(const EyeReport& report, const EyeCounts* counts)
{
    const bool hasEyes = !report.eyes.empty();
    const bool hasValid = report.valid.count > 0;
    return {{"density", counts != nullptr ? DensityOf(*counts) : Json()},
            {"levels", report.levels},
            {"eyes", OpeningsOf(report)},
            {"phaseUi", hasEyes ? Json(report.phaseUi) : Json()},
            {"valid", hasValid ? Json{{"first", report.valid.first}, {"count", report.valid.count}} : Json()},
            {"symbolsKnown", hasEyes ? Json(report.symbolsKnown) : Json()},
            {"ber", report.ber},
            {"noiseRms", report.noiseRms},
            {"targetBer", report.targetBer > 0.0 ? report.targetBer : EyeSettings().targetBer},
            {"contour", ContoursOf(report)},
            {"bathtub", BathtubOf(report)}};
}

Json ResponseToJson(const TransferFunction& function, const ChainResponse& chain, std::size_t most)
{
    const std::size_t bins = LastBinUpTo(function, chain.bandEnd) + 1;
    const double spacing = function.Spacing() / kGiga;
    const auto count = static_cast<std::ptrdiff_t>(function.impulse.size());
    const auto before = std::min(static_cast<std::ptrdiff_t>(kUiBeforePeak * chain.samplesPerUi), count / 2);
    const auto shown =
        std::min(static_cast<std::ptrdiff_t>((kUiBeforePeak + kUiBehindPeak) * chain.samplesPerUi) + 1, count);
    const auto first = function.peak - before;
    const auto impulseAt = [&](std::size_t k) {
        const auto n = (first + static_cast<std::ptrdiff_t>(k)) % count;
        return function.impulse[static_cast<std::size_t>((n + count) % count)] * chain.samplesPerUi;
    };
    return {
        {"magnitudeDb", SeriesOf({0.0, spacing, bins, [&](std::size_t k) { return function.magnitudeDb[k]; }}, most)},
        {"groupDelayPs",
         SeriesOf({0.0, spacing, bins, [&](std::size_t k) { return function.groupDelay[k] * kPicoPerUnit; }}, most)},
        {"impulse", SeriesOf({static_cast<double>(first) / chain.samplesPerUi, 1.0 / chain.samplesPerUi,
                              static_cast<std::size_t>(shown), impulseAt},
                             most)}};
}

Json TapsToJson(const std::optional<TapFigure>& figure)
{
    if (!figure || figure->taps.values.empty())
        return nullptr;
    return {{"kind", figure->taps.kind == StageTaps::Kind::Feedback ? "feedback" : "feed-forward"},
            {"values", figure->taps.values},
            {"offsetsUi", figure->taps.offsetsUi}};
}

Json PulsesToJson(const std::optional<TapFigure>& figure, std::size_t most)
{
    if (!figure || !figure->pulses)
        return nullptr;
    constexpr const char* kSources[] = {"known symbols", "decided symbols", "ideal symbol"};
    const PulseResponses& pulses = *figure->pulses;
    const double spacing = 1.0 / static_cast<double>(pulses.valuesPerUi);
    return {{"source", kSources[static_cast<std::size_t>(pulses.source)]},
            {"before", SeriesOf(pulses.firstUi, spacing, pulses.before, most)},
            {"after", pulses.after.empty() ? Json() : SeriesOf(pulses.firstUi, spacing, pulses.after, most)},
            {"valuesPerUi", pulses.valuesPerUi}};
}

Json AcquisitionOf(const std::optional<LockReport>& acquisition)
{
    Json rows = Json::List();
    if (!acquisition)
        return rows;
    const LockReport& report = *acquisition;
    const auto add = [&](const char* name, Json value, const char* unit, const std::string& confidence) {
        Json row = QuantityOf(name, std::move(value), unit);
        row.Set("confidence", TextOrNull(confidence));
        rows.Add(std::move(row));
    };
    const auto known = [](bool isGiven) { return std::string(isGiven ? "given" : "found"); };
    add("samples per UI", report.samplesPerUi, "",
        known(report.samplesPerUiGiven) +
            (report.clockScore > 0.0
                 ? fmt::format(", the clock's line {:.3g} times its neighbourhood", report.clockScore)
                 : ""));
    add("symbol rate", report.symbolRateGBd > 0.0 ? Json(report.symbolRateGBd) : Json(), "GBd",
        report.symbolRateGBd > 0.0 ? "" : "not known: the file has no times");
    if (!report.phaseUi.empty())
        add("clock phase about a constant clock, rms", report.phaseResidualUi, "UI", "");
    if (report.trackedUi > 0.0) {
        add("clock phase that was tracked, rms", report.trackedUi, "UI", "");
        add("clock phase left, rms", report.trackedResidualUi, "UI", "");
    }
    add("line coding", report.coding == SIGNAL_CODING_UNKNOWN ? Json() : Json(NameOf(report.coding)), "",
        report.coding == SIGNAL_CODING_UNKNOWN ? "no levels can be made out" : known(report.codingGiven));
    add("levels", report.levels.empty() ? Json() : Json(Joined(report.levels, "{:.5g}", " ")), "V",
        report.levels.empty()
            ? "no symbols can be made out"
            : fmt::format("squared distance to the level {:.2g} of the squared spacing; 0 is ideal, 0.14 noise",
                          report.symbolQuality));
    add("pattern", TextOrNull(report.pattern), "", report.pattern.empty() ? "not recognised" : "");
    const bool isPeriodic = report.mode == RecordKind::Periodic;
    add("kind of record", isPeriodic ? "periodic" : "single shot", "",
        isPeriodic ? known(report.periodGiven) +
                         (report.seamRatio > 0.0
                              ? fmt::format(", rms at the seam {:.2g} times the interior's", report.seamRatio)
                              : "")
                   : "no period is proven");
    if (isPeriodic) {
        add("pattern length", report.periodUi, "UI", "");
        add("repetitions", report.repetitions, "", "");
    }
    add("record", report.samples, "samples",
        fmt::format("from sample {} on, {} per UI, {}", report.firstSample, report.samplesPerUiOut,
                    report.resampled ? "resampled" : "as they were read"));
    if (report.leftOut > 0)
        add("left out at the end", report.leftOut, "samples", "");
    if (report.removedNoiseRms > 0.0)
        add("noise that averaging took off, rms", report.removedNoiseRms, "V", "");
    return rows;
}

Json ChainHeadOf(const std::optional<ChainFile>& chain)
{
    if (!chain)
        return nullptr;
    std::error_code error;
    const std::filesystem::path file = PathOf(chain->Name());
    const bool isFile = std::filesystem::is_regular_file(Openable(file), error);
    std::string text = isFile ? ReadWholeFile(file) : chain->Text();
    const Json digest = isFile ? Json(HexOf(Sha256(text))) : Json();
    if (text.size() > kLongestChain)
        text = fmt::format("{} bytes: too long for a report", text.size());
    return {{"name", chain->Name()}, {"text", text}, {"sha256", digest}};
}

Json HeadOf(const ReportHead& head, Json device, Json acquisition)
{
    Json captures = Json::List();
    for (const ReportSource& source : head.captures)
        captures.Add({{"name", source.name},
                      {"samples", source.samples ? Json(*source.samples) : Json()},
                      {"sha256", TextOrNull(source.sha256)}});
    return {{"title", head.title},
            {"program", "tarnwick"},
            {"version", head.version},
            {"date", head.date},
            {"command", TextOrNull(head.command)},
            {"captures", captures},
            {"chain", ChainHeadOf(head.chain)},
            {"device", std::move(device)},
            {"acquisition", std::move(acquisition)}};
}

Json MaskOf(const std::optional<ReportMask>& mask)
{
    if (!mask)
        return nullptr;
    Json polygons = Json::List();
    for (const auto& polygon : mask->polygons) {
        Json points = Json::List();
        for (const auto& [offset, volt] : polygon)
            points.Add(std::vector<double>{offset, volt});
        polygons.Add(std::move(points));
    }
    return {{"name", mask->name}, {"polygons", std::move(polygons)}};
}

Json UnitIntervalOf(double symbolRateGBd)
{
    constexpr double kPsPerGBd = kPicoPerUnit / kGiga;
    return symbolRateGBd > 0.0 ? Json(kPsPerGBd / symbolRateGBd) : Json();
}

class Warnings {
public:
    void Add(const char* kind, const std::string& text) { list_.Add({{"kind", kind}, {"text", text}}); }
    void AddAll(const char* kind, const std::vector<std::string>& texts)
    {
        for (const std::string& text : texts)
            Add(kind, text);
    }
    Json Take() { return std::move(list_); }

private:
    Json list_ = Json::List();
};

Json WarningsOf(const RunReport& report, const std::vector<std::string>& names)
{
    Warnings warnings;
    if (report.acquisition)
        warnings.AddAll("contradiction", report.acquisition->warnings);
    warnings.AddAll("clipped", report.clipping);
    if (report.acquisition && report.acquisition->mode == RecordKind::SingleShot && report.samplesPerUi >= 1.0) {
        const ValidPart valid = report.stages.back().eye.valid;
        const double ends = static_cast<double>(report.stages.back().samples - valid.count) / report.samplesPerUi;
        warnings.Add("ends",
                     fmt::format("The record is a single shot, whose ends do not join: {:.5g} UI of them give no "
                                 "figure behind the last stage.",
                                 ends));
    }
    if (!report.hasEyes)
        warnings.Add("question", "Line coding or samples per UI are not known, so that there are no eyes.");
    else if (report.symbolRateGBd <= 0.0)
        warnings.Add("question", "The symbol rate is not known, so that nothing is told in ps or GHz.");
    std::vector<std::string> decided;
    std::vector<std::string> closed;
    for (std::size_t k = 0; k < report.stages.size(); ++k) {
        const EyeReport& eye = report.stages[k].eye;
        if (!eye.eyes.empty() && !eye.symbolsKnown)
            decided.push_back(names[k]);
        if (report.hasEyes && eye.eyes.empty())
            closed.push_back(names[k]);
    }
    if (!decided.empty())
        warnings.Add("question", fmt::format("The symbols of {} were decided from the samples, which flatters an eye "
                                             "that is closed.",
                                             Joined(decided, ", ")));
    if (!closed.empty())
        warnings.Add("question", fmt::format("The samples of {} do not fall into levels: there are no eyes to measure.",
                                             Joined(closed, ", ")));
    if (!report.whyNoResponse.empty())
        warnings.Add("question", "No response is shown: " + report.whyNoResponse);
    if (report.response && !report.response->leftOut.empty())
        warnings.Add("note", fmt::format("The chain's response is without {}: what decides has no response.",
                                         Joined(report.response->leftOut, ", ")));
    warnings.AddAll("note", report.notes);
    return warnings.Take();
}

// A number behind those types that come more than once.
std::vector<std::string> StageNamesOf(std::span<const StageReport> stages)
{
    std::map<std::string, std::size_t> totals;
    std::map<std::string, std::size_t> counts;
    for (const StageReport& stage : stages)
        ++totals[stage.name];
    std::vector<std::string> names;
    for (const StageReport& stage : stages)
        names.push_back(totals[stage.name] > 1 ? fmt::format("{} {}", stage.name, ++counts[stage.name]) : stage.name);
    return names;
}

Json StagesOf(const RunReport& report, const std::vector<std::string>& names, std::size_t most)
{
    Json stages = Json::List();
    for (std::size_t k = 0; k < report.stages.size(); ++k) {
        const StageReport& stage = report.stages[k];
        const FilterResponse* response = nullptr;
        if (k > 0 && report.response)
            for (const FilterResponse& filter : report.response->filters)
                if (filter.index == report.places[k - 1])
                    response = &filter;
        stages.Add(
            {{"name", names[k]},
             {"settings", k > 0 ? SettingsOf(report.chain, report.places[k - 1]) : Json::List()},
             {"samples", stage.samples},
             {"repetitions", stage.repetitions},
             {"mean", stage.mean},
             {"rms", stage.rms},
             {"peakToPeak", stage.peakToPeak},
             {"eye", report.hasEyes ? EyeOf(stage.eye, &report.eyes[k]) : Json()},
             {"findings", FindingsOf(stage)},
             {"taps", TapsToJson(stage.taps)},
             {"pulses", PulsesToJson(stage.taps, most)},
             {"response", response != nullptr ? ResponseToJson(response->function, *report.response, most) : Json()}});
    }
    return stages;
}

Json ClockPhaseOf(const std::optional<LockReport>& report)
{
    if (!report || report->phaseUi.empty())
        return nullptr;
    const double first = (report->phaseFirst - static_cast<double>(report->firstSample)) / report->samplesPerUi;
    const double spacing = report->phaseSpacing / report->samplesPerUi;
    const auto series = [&](const std::vector<double>& values) {
        return values.empty() ? Json() : SeriesOf(first, spacing, values, kMostPointsOfCapture);
    };
    return {{"phase", series(report->phaseUi)}, {"tracked", series(report->trackedPhaseUi)}};
}

// The largest value of each stretch, so that no line is lost.
Json SpectrumOf(const std::optional<LockReport>& report)
{
    if (!report || report->spectrum.scoreDb.empty())
        return nullptr;
    const ClockSpectrum& spectrum = report->spectrum;
    const std::vector<double>& scores = spectrum.scoreDb;
    const double perCycle = report->symbolRateGBd > 0.0 ? report->symbolRateGBd * report->samplesPerUi : 1.0;
    const std::size_t stride = (scores.size() + kMostPointsOfCapture - 1) / kMostPointsOfCapture;
    std::vector<double> largest;
    for (std::size_t k = 0; k < scores.size(); k += stride)
        largest.push_back(
            *std::max_element(scores.begin() + static_cast<std::ptrdiff_t>(k),
                              scores.begin() + static_cast<std::ptrdiff_t>(std::min(k + stride, scores.size()))));
    const double first = spectrum.first + 0.5 * static_cast<double>(stride - 1) * spectrum.spacing;
    return {{"magnitudeDb", SeriesOf(first * perCycle, static_cast<double>(stride) * spectrum.spacing * perCycle,
                                     largest, kMostPointsOfCapture)},
            {"frequencyUnit", report->symbolRateGBd > 0.0 ? "GHz" : "cycles per sample"},
            {"quantity", "squared slope over its neighbourhood"},
            {"line", spectrum.line > 0.0 ? Json(spectrum.line * perCycle) : Json()},
            {"leastDb", spectrum.leastDb}};
}

Json LevelsToJson(const LevelsOverRecord& levels)
{
    if (levels.levels.empty())
        return nullptr;
    Json list = Json::List();
    for (const std::vector<double>& level : levels.levels)
        list.Add(SeriesOf(levels.firstUi, levels.blockUi, level, kMostPointsOfCapture));
    return {{"levels", list}};
}

Json ValueToJson(const TableReport::Value& value)
{
    if (const double* const number = std::get_if<double>(&value))
        return *number;
    const std::string* const text = std::get_if<std::string>(&value);
    return text != nullptr ? Json(*text) : Json();
}

void AppendNumber(std::vector<std::uint8_t>& bytes, std::uint64_t number)
{
    constexpr std::uint64_t kGroup = 0x7f;
    for (; number > kGroup; number >>= 7U)
        bytes.push_back(static_cast<std::uint8_t>((number & kGroup) | 0x80U));
    bytes.push_back(static_cast<std::uint8_t>(number));
}

}  // namespace

std::string CodedCounts(std::span<const std::uint32_t> hits)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t k = 0; k < hits.size();) {
        if (hits[k] > 0) {
            AppendNumber(bytes, hits[k++]);
            continue;
        }
        const std::size_t first = k;
        while (k < hits.size() && hits[k] == 0)
            ++k;
        bytes.push_back(0);
        AppendNumber(bytes, k - first);
    }
    return Base64(bytes);
}

Json DocumentOf(const RunReport& report, const ReportHead& head)
{
    const auto most =
        std::clamp(static_cast<std::size_t>(kPointsOfAllStages / static_cast<double>(report.stages.size())),
                   kFewestPoints, kMostPoints);
    const std::vector<std::string> names = StageNamesOf(report.stages);
    return {{"format", kReportFormat},
            {"kind", "run"},
            {"head", HeadOf(head, DeviceOf(report.chain), AcquisitionOf(report.acquisition))},
            {"warnings", WarningsOf(report, names)},
            {"stages", StagesOf(report, names, most)},
            {"chainResponse",
             report.response ? ResponseToJson(report.response->whole, *report.response, kMostPoints) : Json()},
            {"clockPhase", ClockPhaseOf(report.acquisition)},
            {"spectrum", SpectrumOf(report.acquisition)},
            {"levels", LevelsToJson(report.levels)},
            {"mask", MaskOf(head.mask)},
            {"unitIntervalPs", UnitIntervalOf(report.symbolRateGBd)}};
}

Json DocumentOf(const TableReport& report, const ReportHead& head, std::size_t eyes)
{
    Json columns = Json::List();
    for (const TableReport::Column& column : report.columns)
        columns.Add({{"key", column.key},
                     {"label", column.label},
                     {"unit", column.unit},
                     {"kind", column.isNumber ? "number" : "text"}});
    Warnings warnings;
    std::size_t failed = 0;
    Json rows = Json::List();
    for (const TableReport::Row& row : report.rows) {
        failed += row.failure.empty() ? 0 : 1;
        Json values = Json::List();
        for (const TableReport::Value& value : row.values)
            values.Add(ValueToJson(value));
        const bool hasEye = row.eye != nullptr && eyes > 0;
        eyes -= hasEye ? 1 : 0;
        rows.Add({{"label", row.label},
                  {"values", std::move(values)},
                  {"failure", TextOrNull(row.failure)},
                  {"eye", hasEye ? EyeOf(row.eye->report, &row.eye->counts) : Json()},
                  {"unitIntervalPs", UnitIntervalOf(row.symbolRateGBd)}});
    }
    if (failed > 0)
        warnings.Add("failure", fmt::format("{} of {} rows failed; each has its reason.", failed, report.rows.size()));
    warnings.AddAll("note", report.notes);
    return {{"format", kReportFormat},
            {"kind", "table"},
            {"head", HeadOf(head, head.chain ? DeviceOf(*head.chain) : Json::List(), Json::List())},
            {"warnings", warnings.Take()},
            {"columns", std::move(columns)},
            {"rows", std::move(rows)},
            {"mask", MaskOf(head.mask)},
            {"unitIntervalPs", nullptr}};
}

}  // namespace Tarnwick::DSO::Workbench
