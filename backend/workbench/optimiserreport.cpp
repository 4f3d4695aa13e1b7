#include "workbench/optimiserreport.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/plumbing/checksum.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/reportrows.h"
#include "workbench/plumbing/text.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

std::string CtleText(const EqualiserPoint& point)
{
    return point.ctle.empty() ? "none" : fmt::format("{} {:g}", point.ctle, point.gain);
}

Json PointOf(const EqualiserPoint& point)
{
    return {{"ctle", point.ctle.empty() ? Json() : Json(point.ctle)},
            {"gain", point.ctle.empty() ? Json() : Json(point.gain)},
            {"ffeTaps", point.ffeTaps},
            {"dfeTaps", point.dfeTaps}};
}

// Throws json::exception for anything but a trial.
EqualiserTrial TrialOf(const json& row)
{
    const json& ctle = row.at("ctle");
    EqualiserTrial trial;
    trial.point = {ctle.is_null() ? "" : ctle.get<std::string>(), ctle.is_null() ? 0.0 : row.at("gain").get<double>(),
                   row.at("ffeTaps").get<int>(), row.at("dfeTaps").get<int>()};
    trial.error = row.value("error", "");
    trial.capture = row.value("capture", "");
    trial.figure = row.value("figure", trial.figure);
    trial.openingPercent = row.value("openingPercent", 0.0);
    trial.heightV = row.value("height", 0.0);
    if (row.contains("widthUi"))
        trial.widthUi = row["widthUi"].get<double>();
    if (row.contains("ber"))
        trial.ber = row["ber"].get<double>();
    return trial;
}

}  // namespace

std::string CaptionOf(const EqualiserPoint& point)
{
    return fmt::format("{}, FFE {}, DFE {}", point.ctle.empty() ? "no CTLE" : CtleText(point), point.ffeTaps,
                       point.dfeTaps);
}

std::vector<std::size_t> BestFirst(const OptimiserResult& result)
{
    std::vector<std::size_t> order(result.trials.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return result.trials[a].figure > result.trials[b].figure; });
    return order;
}

std::string OptimisedAsText(const OptimiserResult& result)
{
    const bool areSeveral = std::any_of(result.trials.begin(), result.trials.end(),
                                        [](const EqualiserTrial& trial) { return !trial.capture.empty(); });
    std::string text =
        fmt::format("{:>5}  {:<18}  {:>4}  {:>4}  {:>9}  {:>9}  {:>8}  {:>11}{}\n", "rank", "CTLE", "FFE", "DFE",
                    "opening %", "height V", "width UI", "BER", areSeveral ? "  worst capture" : "");
    std::size_t rank = 0;
    for (const std::size_t index : BestFirst(result)) {
        const EqualiserTrial& trial = result.trials[index];
        text += fmt::format("{:>5}  {:<18}  {:>4}  {:>4}  ", ++rank, CtleText(trial.point), trial.point.ffeTaps,
                            trial.point.dfeTaps);
        text += trial.error.empty()
                    ? fmt::format("{:>9.1f}  {:>9.4g}  {:>8}  {:>11}{}\n", trial.openingPercent, trial.heightV,
                                  WidthText(trial.widthUi), BerText(trial.ber), areSeveral ? "  " + trial.capture : "")
                    : trial.error + "\n";
    }
    return text;
}

std::string OptimisedAsJson(const OptimiserResult& result, RankBy rank)
{
    Json trials = Json::List();
    std::size_t place = 0;
    for (const std::size_t index : BestFirst(result)) {
        const EqualiserTrial& trial = result.trials[index];
        Json entry = {{"rank", ++place}};
        entry.SetAll(PointOf(trial.point));
        if (!trial.capture.empty())
            entry.Set("worstCapture", trial.capture);
        if (trial.error.empty())
            entry.SetAll({{"figure", trial.figure},
                          {"openingPercent", trial.openingPercent},
                          {"height", trial.heightV},
                          {"widthUi", trial.widthUi},
                          {"ber", trial.ber}});
        else
            entry.Set("error", trial.error);
        trials.Add(std::move(entry));
    }
    return Json{{"rank", NameOf(rank)}, {"stopped", result.stopped}, {"trials", trials}}.Text(2);
}

std::string TrialTableHead(const OptimiserInput& input)
{
    Checksum sum;
    std::string intervals;
    for (const NamedCapture& capture : input.captures) {
        sum.Add(capture.waveform.samples.data(), capture.waveform.samples.size() * sizeof(double));
        intervals += fmt::format("{} ", capture.waveform.interval);
    }
    const CaptureFacts& facts = input.facts;
    const std::string rest =
        fmt::format("{}\n{}\n{}{} {} {} {}", input.chain.Text(), NameOf(input.rank), intervals, facts.symbolRateGBd,
                    facts.samplesPerUi, static_cast<int>(facts.coding), facts.patternLengthUi);
    sum.Add(rest);
    return fmt::format("# trials, JSON objects, of the input with the checksum {:016x}\n", sum.Value());
}

std::string TrialTableRow(const EqualiserTrial& trial)
{
    Json row = PointOf(trial.point);
    if (!trial.capture.empty())
        row.Set("capture", trial.capture);
    if (!trial.error.empty()) {
        row.Set("error", trial.error);
    } else if (std::isfinite(trial.figure)) {  // JSON has no infinity: no figure
        row.Set("figure", trial.figure);
        row.Set("openingPercent", trial.openingPercent);
        row.Set("height", trial.heightV);
        if (trial.widthUi)
            row.Set("widthUi", *trial.widthUi);
        if (trial.ber)
            row.Set("ber", *trial.ber);
    }
    return row.SortedText() + "\n";
}

std::vector<EqualiserTrial> ReadTrialTable(std::string_view text, const OptimiserInput& input, const std::string& name)
{
    const std::string head = TrialTableHead(input);
    if (text.substr(0, head.size()) != head)
        throw UsageFailure(
            fmt::format("{}: is no table of trials of these captures, chain and ranking; expected another file", name));
    text.remove_prefix(head.size());
    std::vector<EqualiserTrial> trials;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        try {
            trials.push_back(TrialOf(JsonFrom(text.substr(0, end))));
        } catch (const json::exception&) {
            throw UsageFailure(fmt::format("{}: line {} is no trial", name, trials.size() + 2));
        }
        text.remove_prefix(end + 1);
    }
    return trials;
}

}  // namespace Tarnwick::DSO::Workbench
