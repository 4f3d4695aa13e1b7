#include "workbench/tablereport.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "framework/filenames.h"
#include "workbench/optimiserreport.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/ranking.h"
#include "workbench/sweepreport.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Value = TableReport::Value;

Value ValueOf(const std::optional<double>& figure)
{
    return figure && std::isfinite(*figure) ? Value(*figure) : Value();
}

Value ValueOf(const std::string& text)
{
    return text.empty() ? Value() : Value(text);
}

// A JSON text: numbers stay numbers.
Value ValueOfJson(const std::string& text)
{
    const auto value = NumberOrText(text);
    const double* const number = std::get_if<double>(&value);
    return number != nullptr ? Value(*number) : Value(std::get<std::string>(value));
}

template <typename Rows, typename Holds>
bool AnyOf(const Rows& rows, Holds holds)
{
    return std::any_of(rows.begin(), rows.end(), holds);
}

// Of the smallest eye, where a table ranks by the eyes.
const std::vector<TableReport::Column>& EyeColumns()
{
    static const std::vector<TableReport::Column> columns = {
        {"openingPercent", "opening", "%"}, {"height", "height", "V"}, {"widthUi", "width", "UI"}, {"ber", "BER", ""}};
    return columns;
}

}  // namespace

TableReport TableOf(std::span<const SweepAxis> axes, std::span<const SweepRun> runs, const RowEyes& eyes)
{
    const bool areSeveral = AnyOf(runs, [](const SweepRun& run) { return !run.capture.empty(); });
    const bool hasTdecq = AnyOf(runs, [](const SweepRun& run) { return run.tdecqDb.has_value(); });
    const std::vector<std::string> names = ShortNamesOf(axes);
    TableReport table;
    table.columns = {{"rank", "rank", ""}};
    for (std::size_t k = 0; k < axes.size(); ++k) {
        const bool areNumbers = std::all_of(axes[k].values.begin(), axes[k].values.end(), [](const std::string& text) {
            return std::holds_alternative<double>(ValueOfJson(text));
        });
        table.columns.push_back({axes[k].path, names[k], "", areNumbers});
    }
    table.columns.insert(table.columns.end(), EyeColumns().begin(), EyeColumns().end());
    table.columns.push_back({"heightAtBer", "height at target BER", "V"});
    table.columns.push_back({"noiseRms", "noise rms", "V"});
    if (hasTdecq)
        table.columns.push_back({"tdecqDb", "TDECQ", "dB"});
    if (areSeveral)
        table.columns.push_back({"worstCapture", "worst capture", "", false});

    const auto add = [&](std::size_t index, std::optional<double> rank) {
        const SweepRun& run = runs[index];
        TableReport::Row row;
        row.label = CaptionOf(names, run.values);
        row.values = {ValueOf(rank)};
        for (const std::string& value : run.values)
            row.values.push_back(ValueOfJson(value));
        const bool hasEyes = !run.eye.eyes.empty();
        const auto smallest = [&](double EyeOpening::*figure) {
            return hasEyes ? ValueOf(std::optional(SmallestOf(run.eye, figure))) : Value();
        };
        row.values.insert(row.values.end(),
                          {smallest(&EyeOpening::openingPercent), smallest(&EyeOpening::height),
                           ValueOf(SmallestOf(run.eye, &EyeOpening::widthUi)), ValueOf(run.eye.ber),
                           ValueOf(SmallestOf(run.eye, &EyeOpening::heightAtBer)), ValueOf(run.eye.noiseRms)});
        if (hasTdecq)
            row.values.push_back(ValueOf(run.tdecqDb));
        if (areSeveral)
            row.values.push_back(ValueOf(run.capture));
        row.failure = run.error;
        row.symbolRateGBd = run.eye.symbolRateGBd;
        // Of several captures an eye may have been kept of another one than the worst.
        const RowEyes::Eye* const eye = eyes.Find(RowOf(index));
        if (run.error.empty() && eye != nullptr && eye->figure == run.figure)
            row.eye = eye;
        table.rows.push_back(std::move(row));
    };
    double rank = 0.0;
    for (const std::size_t index : Ranking(runs))
        add(index, ++rank);
    for (std::size_t index = 0; index < runs.size(); ++index)
        if (!runs[index].error.empty())
            add(index, std::nullopt);
    return table;
}

TableReport TableOf(const OptimiserResult& result, const RowEyes& eyes)
{
    const bool areSeveral = AnyOf(result.trials, [](const EqualiserTrial& trial) { return !trial.capture.empty(); });
    TableReport table;
    table.columns = {{"rank", "rank", ""},
                     {"ctle", "CTLE", "", false},
                     {"gain", "gain", "dB or level"},
                     {"ffeTaps", "FFE taps", ""},
                     {"dfeTaps", "DFE taps", ""}};
    table.columns.insert(table.columns.end(), EyeColumns().begin(), EyeColumns().end());
    if (areSeveral)
        table.columns.push_back({"worstCapture", "worst capture", "", false});
    double rank = 0.0;
    for (const std::size_t index : BestFirst(result)) {
        const EqualiserTrial& trial = result.trials[index];
        const bool hasCtle = !trial.point.ctle.empty();
        const auto figure = [&](std::optional<double> value) {
            return trial.error.empty() && std::isfinite(trial.figure) ? ValueOf(value) : Value();
        };
        TableReport::Row row;
        row.label = CaptionOf(trial.point);
        row.values = {++rank,
                      ValueOf(trial.point.ctle),
                      hasCtle ? Value(trial.point.gain) : Value(),
                      static_cast<double>(trial.point.ffeTaps),
                      static_cast<double>(trial.point.dfeTaps),
                      figure(trial.openingPercent),
                      figure(trial.heightV),
                      figure(trial.widthUi),
                      figure(trial.ber)};
        if (areSeveral)
            row.values.push_back(ValueOf(trial.capture));
        row.failure = trial.error;
        if (trial.error.empty())
            row.eye = eyes.Find(row.label);
        if (row.eye != nullptr)
            row.symbolRateGBd = row.eye->report.symbolRateGBd;
        table.rows.push_back(std::move(row));
    }
    return table;
}

TableReport TableOf(std::span<const BatchRow> rows, const RowEyes& eyes)
{
    static const std::vector<std::pair<BatchColumn, TableReport::Column>> columns = {
        {BatchColumn::File, {"file", "capture", "", false}},
        {BatchColumn::Status, {"status", "status", "", false}},
        {BatchColumn::OpeningPercent, {"openingPercent", "opening", "%"}},
        {BatchColumn::HeightV, {"height", "height", "V"}},
        {BatchColumn::WidthUi, {"widthUi", "width", "UI"}},
        {BatchColumn::HeightAtBerV, {"heightAtBer", "height at BER 1e-6", "V"}},
        {BatchColumn::Q, {"q", "Q", ""}},
        {BatchColumn::Ber, {"ber", "BER", ""}},
        {BatchColumn::NoiseRmsV, {"noiseRms", "noise rms", "V"}},
        {BatchColumn::Symbols, {"symbols", "symbols", "", false}},
        {BatchColumn::SymbolRateGBd, {"symbolRateGBd", "symbol rate", "GBd"}},
        {BatchColumn::SamplesPerUi, {"samplesPerUi", "samples per UI", ""}},
        {BatchColumn::Coding, {"coding", "coding", "", false}},
        {BatchColumn::Pattern, {"pattern", "pattern", "", false}},
        {BatchColumn::Mode, {"mode", "kind", "", false}},
        {BatchColumn::Repetitions, {"repetitions", "repetitions", ""}},
        {BatchColumn::Samples, {"samples", "samples", ""}},
        {BatchColumn::Output, {"output", "written", "", false}},
        {BatchColumn::Seconds, {"seconds", "time taken", "s"}},
        {BatchColumn::Notes, {"notes", "notes", "", false}},
    };
    TableReport table;
    for (const auto& [column, described] : columns)
        table.columns.push_back(described);
    for (const BatchRow& cells : rows) {
        TableReport::Row row;
        row.label = FileNameOf(cells[BatchColumn::File]);
        for (const auto& [column, described] : columns)
            row.values.push_back(described.isNumber ? ValueOf(cells.Number(column)) : ValueOf(cells[column]));
        if (!cells.IsDone())
            row.failure = cells[BatchColumn::Reason].empty() ? "failed" : cells[BatchColumn::Reason];
        row.eye = cells.IsDone() ? eyes.Find(cells[BatchColumn::File]) : nullptr;
        row.symbolRateGBd = cells.Number(BatchColumn::SymbolRateGBd).value_or(0.0);
        table.rows.push_back(std::move(row));
    }
    return table;
}

}  // namespace Tarnwick::DSO::Workbench
