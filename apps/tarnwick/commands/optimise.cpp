// tarnwick optimise: the best equaliser for a capture, or for several together.
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commandline.h"
#include "commands/commands.h"
#include "facts.h"
#include "framework/filenames.h"
#include "growingtable.h"
#include "interruption.h"
#include "notes.h"
#include "outputs.h"
#include "progress.h"
#include "reports.h"
#include "workbench/eyecounts.h"
#include "workbench/failure.h"
#include "workbench/htmlreport.h"
#include "workbench/optimiser.h"
#include "workbench/optimiserreport.h"
#include "workbench/tablereport.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

constexpr const char* kAll = "all";
constexpr const char* kNone = "none";

struct OptimiseOptions {
    std::string chain;
    CapturesOptions captures;
    FactOptions facts;
    std::string output;
    std::string table;
    std::string ctle = kAll;
    std::string rank = NameOf(Workbench::RankBy::Opening);
    int ffeTaps = 5;
    int dfeTaps = 0;
    std::string report;
    std::string mask;
    bool json = false;
};

std::vector<std::string> TypesOf(const std::string& ctle)
{
    if (ctle == kNone)
        return {};
    return ctle == kAll ? Workbench::OptimisedCtleTypes() : std::vector<std::string>{ctle};
}

// Reads what an earlier search has left in its table, of which what was cut off by the end of that program goes.
void GoOnWith(const GrowingTable& table, Workbench::OptimiserInput& input)
{
    if (table.Path().empty())
        return;
    const std::string text = table.Text();
    std::string whole = TrialTableHead(input);
    if (!text.empty())
        input.known = ReadTrialTable(text, input, table.Path());
    for (const Workbench::EqualiserTrial& trial : input.known)
        whole += TrialTableRow(trial);
    if (whole != text)
        table.Replace(whole);
}

void Run(const OptimiseOptions& options)
{
    Workbench::ChainFile file(DSO::PathOf(options.chain));
    std::vector<std::string> inputs = FilesOf(file);
    inputs.push_back(options.chain);
    for (const std::string& capture : FilesOf(options.captures))
        inputs.push_back(capture);
    RequireApart("--output", options.output, inputs);
    if (!options.table.empty()) {
        RequireApart("--tried", options.table, inputs);
        if (IsSameFile(options.table, options.output))
            throw Workbench::UsageFailure(
                fmt::format("--tried: is {}, as the best chain; expected another file", options.table));
    }
    inputs.push_back(options.mask);
    if (!options.report.empty()) {
        RequireApart("--report", options.report, inputs);
        for (const std::string& other : {options.output, options.table})
            if (!other.empty() && IsSameFile(options.report, other))
                throw Workbench::UsageFailure(
                    fmt::format("--report: is {}, which is written too; expected another file", options.report));
    }
    Workbench::ReportHead head = HeadOf("Equalisers for " + DSO::FileNameOf(options.chain), file, options.mask);
    if (options.ffeTaps == 0 && options.dfeTaps == 0 && options.ctle == kNone)
        throw Workbench::UsageFailure("--ffe-taps: is 0, with no CTLE and no DFE; expected something to search");
    Workbench::OptimiserInput input{
        std::move(file), ReadCaptures(options.captures),  With(options.facts), TypesOf(options.ctle), options.ffeTaps,
        options.dfeTaps, *Workbench::RankOf(options.rank)};
    const GrowingTable table(options.table);
    GoOnWith(table, input);
    std::vector<std::string> notes;
    Workbench::OptimiserResult result;
    Workbench::RowEyes eyes(Workbench::kMostTrials, Workbench::RowEyes::Keep::Best);
    {
        const InterruptionWatch watch;
        Progress progress(Workbench::kMostTrials);
        Workbench::OptimiserObserver observer;
        observer.begin = [&](const Workbench::EqualiserPoint& point) { progress.Begin(Workbench::CaptionOf(point)); };
        observer.end = [&](const Workbench::EqualiserTrial& trial) { table.Add(TrialTableRow(trial)); };
        observer.note = [&](const std::string& note) { notes.push_back(note); };
        if (!options.report.empty())
            observer.measured = [&](const Workbench::EqualiserTrial& trial, const Workbench::EyeReport& eye,
                                    std::span<const double> samples, double samplesPerUi) {
                eyes.Add(Workbench::CaptionOf(trial.point), trial.figure, eye, samples, samplesPerUi);
            };
        observer.stop = InterruptionWatch::IsInterrupted;
        result = Optimise(input, observer);
    }
    PrintNotes(notes);
    if (result.stopped)
        PrintNote(fmt::format("interrupted: the best of {} trials is written", result.trials.size()));
    Workbench::WriteWhole(DSO::PathOf(options.output), OptimisedChain(input, result.trials[result.best].point,
                                                                      DSO::PathOf(options.output).parent_path()));
    if (!options.report.empty()) {
        head.captures = SourcesOf(options.captures, input.captures);
        Workbench::TableReport report = TableOf(result, eyes);
        report.notes = notes;
        Workbench::WriteWhole(DSO::PathOf(options.report), HtmlReport(report, head));
    }
    PrintReport(options.json ? OptimisedAsJson(result, input.rank) + "\n" : OptimisedAsText(result));
}

}  // namespace

void AddOptimise(const CommandLine& command)
{
    auto options = std::make_shared<OptimiseOptions>();
    command.AddOption("chain", options->chain, "Chain file (JSON): its CTLE, FFE and DFE are searched, the rest stays")
        .Required();
    AddCapturesOptions(command, options->captures);
    AddFactOptions(command, options->facts);
    command.AddOption("-o,--output", options->output, "Chain file with the best equaliser found").Required();
    command.AddOption("--ffe-taps", options->ffeTaps, "Most taps of the FFE; 0: none")
        .Check(WholeRange(0, 64))
        .ShowDefault();
    command.AddOption("--dfe-taps", options->dfeTaps, "Most taps of the DFE; 0: none")
        .Check(WholeRange(0, 32))
        .ShowDefault();
    std::vector<std::string> types = Workbench::OptimisedCtleTypes();
    types.insert(types.begin(), {kAll, kNone});
    command.AddOption("--ctle", options->ctle, "Type of CTLE, tried beside none").Check(OneOf(types)).ShowDefault();
    command.AddOption("--rank", options->rank, "Figure to be made best: of the smallest eye, or of all")
        .Check(OneOf(Workbench::RankNames()))
        .ShowDefault();
    command.AddOption("--tried", options->table, "Table of what was tried: written as it goes, and gone on with");
    AddReportOptions(command, options->report, options->mask, "Also write a page with the table and the eyes");
    command.AddFlag("--json", options->json, "Print the trials as JSON, best first");
    command.Footer("Of several captures the worst counts: the chain is the best for all of them together. ");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
