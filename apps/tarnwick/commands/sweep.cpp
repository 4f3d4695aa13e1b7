// tarnwick sweep: which setting opens the eyes widest.
#include "workbench/sweep.h"

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commandline.h"
#include "commands/commands.h"
#include "facts.h"
#include "framework/filenames.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/contactsheet.h"
#include "progress.h"
#include "reports.h"
#include "workbench/eyecounts.h"
#include "workbench/failure.h"
#include "workbench/htmlreport.h"
#include "workbench/sweepreport.h"
#include "workbench/tablereport.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;
using Workbench::SweepInput;
using Workbench::SweepRun;

struct SweepOptions {
    std::string chain;
    CapturesOptions captures;
    FactOptions facts;
    std::vector<std::string> over;
    std::string prefix = "sweep";
    std::string rank = NameOf(Workbench::RankBy::Opening);
    std::string report;
    std::string mask;
    bool json = false;
};

void WriteReport(const SweepOptions& options, const SweepInput& input, const std::vector<SweepRun>& runs,
                 const Workbench::RowEyes& eyes, Workbench::ReportHead head, const std::vector<std::string>& notes)
{
    head.captures = SourcesOf(options.captures, input.captures);
    Workbench::TableReport table = TableOf(input.axes, runs, eyes);
    table.notes = notes;
    Workbench::WriteWhole(DSO::PathOf(options.report), HtmlReport(table, head));
}

void Run(const SweepOptions& options)
{
    std::vector<Workbench::SweepAxis> axes = Workbench::ReadSweepAxes(options.over);
    Workbench::ChainFile file(DSO::PathOf(options.chain));
    if (!options.report.empty()) {
        std::vector<std::string> inputs = FilesOf(options.captures);
        for (const std::string& name : FilesOf(file))
            inputs.push_back(name);
        inputs.insert(inputs.end(), {options.chain, options.mask, options.prefix + ".png"});
        RequireApart("--report", options.report, inputs);
    }
    const Workbench::ReportHead head = HeadOf("Sweep of " + DSO::FileNameOf(options.chain), file, options.mask);
    const SweepInput input{std::move(file), ReadCaptures(options.captures), With(options.facts), std::move(axes),
                           *Workbench::RankOf(options.rank)};
    ContactSheet sheet(input.axes);
    Workbench::RowEyes eyes(CombinationsOf(input.axes), Workbench::RowEyes::Keep::Best);
    std::vector<SweepRun> runs;
    std::vector<std::string> notes;
    {
        Progress progress(CombinationsOf(input.axes) * input.captures.size());
        Workbench::SweepObserver observer;
        observer.begin = [&](std::size_t, const std::vector<std::string>& values) {
            progress.Begin(Workbench::CaptionOf(Workbench::ShortNamesOf(input.axes), values));
        };
        observer.end = [&](std::size_t run, const SweepRun& result, std::span<const double> samples,
                           double samplesPerUi) {
            sheet.Add(run, result, samples, samplesPerUi);
            if (!options.report.empty())
                eyes.Add(Workbench::RowOf(run), result.figure, result.eye, samples, samplesPerUi);
        };
        observer.note = [&](const std::string& note) { notes.push_back(note); };
        runs = Sweep(input, observer);
    }
    PrintNotes(notes);
    if (Ranking(runs).empty()) {
        if (runs.front().hasUnknownKey)
            throw Workbench::UnknownKeyFailure(runs.front().error);
        throw Workbench::DataFailure(runs.front().error);
    }
    PrintReport(options.json ? SweepAsJson(input.axes, runs) + "\n" : SweepAsText(input.axes, runs));
    // In front of the sheet, which needs gnuplot.
    if (!options.report.empty())
        WriteReport(options, input, runs, eyes, head, notes);
    const std::size_t count = input.captures.size();
    if (count > 1 && !sheet.HoldsAll())
        PrintNote(fmt::format(
            "{}.png: is not drawn: the worst eyes of {} settings on {} captures are more than a sheet takes",
            options.prefix, runs.size(), count));
    else
        sheet.Draw(DSO::PathOf(options.prefix + ".png"), runs,
                   count == 1 ? input.captures.front().name : fmt::format("worst of {} captures", count));
}

}  // namespace

void AddSweep(const CommandLine& command)
{
    auto options = std::make_shared<SweepOptions>();
    command.AddOption("chain", options->chain, "Chain file (JSON): the device and the filters").Required();
    AddCapturesOptions(command, options->captures);
    AddFactOptions(command, options->facts);
    command
        .AddOption("--over", options->over,
                   "Key of the chain file with dots between, lists counted from 0, and its values: from, to "
                   "(included) and step, or a list. Given twice: every pair")
        .TypeName("PATH=FROM:TO:STEP | PATH=VALUE,VALUE...")
        .OneValueEach()
        .Required();
    command.AddOption("-o,--output", options->prefix, "Draw the eyes, at most 64, into PREFIX.png")
        .TypeName("PREFIX")
        .ShowDefault();
    command.AddOption("--rank", options->rank, "Figure that ranks the runs: of the smallest eye, or of all")
        .Check(OneOf(Workbench::RankNames()))
        .ShowDefault();
    AddReportOptions(command, options->report, options->mask, "Also write a page with the table and the eyes");
    command.AddFlag("--json", options->json, "Print the runs as JSON, best first");
    command.Footer("Of several captures the worst counts for each setting. ");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
