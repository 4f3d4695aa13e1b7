// tarnwick batch: captures by the thousand through one chain, with a table of the results.
#include "workbench/batch.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <map>
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
#include "pictures/batchpicture.h"
#include "progress.h"
#include "reports.h"
#include "workbench/eyecounts.h"
#include "workbench/failure.h"
#include "workbench/htmlreport.h"
#include "workbench/ranking.h"
#include "workbench/tablereport.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;
namespace Workbench = DSO::Workbench;
using Workbench::BatchColumn;
using Workbench::BatchJob;
using Workbench::BatchRow;

struct BatchOptions {
    std::string chain;
    std::vector<std::string> captures;
    CaptureOptions reading;
    FactOptions facts;
    std::string folder;
    std::string results;
    std::string report;
    std::string mask;
    unsigned jobs = 0;
    bool eyes = false;
    bool whole = false;
    bool resume = false;
    bool json = false;
};

// The rows of a batch: those of its captures in their order, and those that its table holds of other captures.
struct Rows {
    std::vector<std::optional<BatchRow>> ofJobs;
    std::vector<BatchRow> others;
    std::size_t kept = 0;  // of its captures, from an earlier batch

    std::string Table() const
    {
        std::string text = Workbench::BatchTableHead();
        for (const std::optional<BatchRow>& row : ofJobs)
            if (row)
                text += BatchTableRow(*row);
        for (const BatchRow& row : others)
            text += BatchTableRow(row);
        return text;
    }
};

// What is written must not be what is read; all names at once, for they are many.
void RequireOutputsApart(const BatchOptions& options, const Workbench::ChainFile& chain, std::span<const BatchJob> jobs)
{
    std::error_code error;
    const auto place = [&](const fs::path& path) { return fs::weakly_canonical(fs::absolute(path, error), error); };
    std::map<fs::path, std::string> inputs;
    for (const BatchJob& job : jobs)
        inputs.emplace(place(DSO::PathOf(job.capture)), job.capture);
    for (const std::string& file : FilesOf(chain))
        inputs.emplace(place(DSO::PathOf(file)), file);
    inputs.emplace(place(DSO::PathOf(options.chain)), options.chain);
    const auto require = [&](const char* option, const fs::path& output) {
        const fs::path at = place(output);
        const auto input = inputs.find(at);
        if (input != inputs.end())
            throw Workbench::UsageFailure(fmt::format(
                "{}: {} would be written, which this command reads; expected another", option, input->second));
    };
    for (const BatchJob& job : jobs) {
        require("--output", DSO::PathOf(options.folder) / DSO::PathOf(job.name + ".npy"));
        if (options.eyes)
            require("--output", BatchPictureFile(DSO::PathOf(options.folder), job.name));
    }
    require("--results", DSO::PathOf(options.results));
    if (options.report.empty())
        return;
    require("--report", DSO::PathOf(options.report));
    for (const std::string& other : {options.results, options.mask})
        if (!other.empty() && IsSameFile(options.report, other))
            throw Workbench::UsageFailure(
                fmt::format("--report: is {}, another file of this command; expected another", options.report));
}

void MakeFolder(const std::string& folder)
{
    const fs::path path = DSO::Openable(DSO::PathOf(folder));
    std::error_code error;
    fs::create_directories(path, error);
    if (!fs::is_directory(path))
        throw Workbench::DataFailure(
            fmt::format("--output: {} cannot be made a folder{}", folder, error ? ": " + error.message() : ""));
}

// What an earlier batch has done already.
Rows RowsOf(const BatchOptions& options, const GrowingTable& table, const Workbench::BatchInput& input,
            std::span<const BatchJob> jobs)
{
    Rows rows;
    rows.ofJobs.resize(jobs.size());
    if (!options.resume)
        return rows;
    std::map<std::string, std::size_t> jobOf;
    std::map<std::string, std::size_t> jobOfOutput;
    for (std::size_t k = 0; k < jobs.size(); ++k) {
        jobOf.emplace(jobs[k].capture, k);
        jobOfOutput.emplace(jobs[k].name + ".npy", k);
    }
    for (BatchRow& row : Workbench::ReadBatchTable(table.Text(), table.Path())) {
        const auto job = jobOf.find(row[BatchColumn::File]);
        if (job == jobOf.end()) {
            const auto same = jobOfOutput.find(row[BatchColumn::Output]);
            if (same != jobOfOutput.end())
                throw Workbench::UsageFailure(
                    fmt::format("{}: {} is {}, which {} would replace; expected another folder", table.Path(),
                                row[BatchColumn::Output], row[BatchColumn::File], jobs[same->second].capture));
            rows.others.push_back(std::move(row));
        } else if (IsUpToDate(row, input, jobs[job->second]) &&
                   (!options.eyes ||
                    fs::exists(DSO::Openable(BatchPictureFile(DSO::PathOf(options.folder), jobs[job->second].name))))) {
            rows.ofJobs[job->second] = std::move(row);
            ++rows.kept;
        }
    }
    return rows;
}

// Runs what has no row yet. Its row is added to the table as it ends, and read back when all have ended: rows that were kept
// between one capture's buffers and the next one's would hold the heap apart.
void RunMissing(const Workbench::BatchInput& input, std::span<const BatchJob> jobs, const GrowingTable& table,
                Rows& rows)
{
    std::vector<BatchJob> missing;
    std::map<std::string, std::size_t> indexOf;
    for (std::size_t k = 0; k < jobs.size(); ++k)
        if (!rows.ofJobs[k]) {
            missing.push_back(jobs[k]);
            indexOf.emplace(jobs[k].capture, k);
        }
    {
        Progress progress(missing.size());
        Workbench::BatchObserver observer;
        observer.end = [&](std::size_t, const BatchRow& row) {
            table.Add(BatchTableRow(row));
            progress.End();
        };
        observer.stop = InterruptionWatch::IsInterrupted;
        RunBatch(input, missing, observer);
    }
    for (BatchRow& row : Workbench::ReadBatchTable(table.Text(), table.Path()))
        if (const auto index = indexOf.find(row[BatchColumn::File]); index != indexOf.end())
            rows.ofJobs[index->second] = std::move(row);
}

std::string AsText(const Workbench::BatchSummary& summary, const Rows& rows, const std::string& results)
{
    std::string text =
        fmt::format("captures         {}\ndone             {}{}\nfailed           {}\n", summary.captures, summary.done,
                    rows.kept > 0 ? fmt::format(", {} of them before", rows.kept) : "", summary.failed);
    if (summary.worst != nullptr)
        text += fmt::format("smallest opening {:.1f} %, {}\n", *summary.worst->Number(BatchColumn::OpeningPercent),
                            (*summary.worst)[BatchColumn::File]);
    return text + fmt::format("table            {}\n", results);
}

void PrintFailures(const Rows& rows)
{
    constexpr std::size_t kMostPrinted = 10;
    std::size_t count = 0;
    for (const std::optional<BatchRow>& row : rows.ofJobs)
        if (row && !row->IsDone() && ++count <= kMostPrinted)
            PrintNote((*row)[BatchColumn::Reason]);
    if (count > kMostPrinted)
        PrintNote(fmt::format("and {} more", count - kMostPrinted));
}

void WriteReport(const BatchOptions& options, const Rows& rows, const Workbench::RowEyes& eyes,
                 const Workbench::ReportHead& head)
{
    std::vector<BatchRow> done;
    for (const std::optional<BatchRow>& row : rows.ofJobs)
        if (row)
            done.push_back(*row);
    Workbench::TableReport table = TableOf(done, eyes);
    if (done.size() < rows.ofJobs.size())
        table.notes.push_back(
            fmt::format("The batch was interrupted: {} of {} captures have a row.", done.size(), rows.ofJobs.size()));
    if (rows.kept > 0)
        table.notes.push_back(fmt::format(
            "{} of the captures were done before, by an earlier run: their eyes are not shown.", rows.kept));
    Workbench::WriteWhole(DSO::PathOf(options.report), HtmlReport(table, head));
}

void Run(BatchOptions options)
{
    if (options.results.empty())
        options.results = (DSO::PathOf(options.folder) / "results.csv").string();
    const Workbench::BatchPlan plan = Workbench::PlanBatch(options.captures);
    Workbench::BatchInput input{.chain = Workbench::ChainFile(DSO::PathOf(options.chain)),
                                .facts = With(options.facts),
                                .reading = ReadingOf(options.reading),
                                .whole = options.whole,
                                .folder = DSO::PathOf(options.folder),
                                .picture = options.eyes ? BatchPictureIn(DSO::PathOf(options.folder)) : nullptr,
                                .threads = options.jobs};
    Workbench::RowEyes eyes(plan.jobs.size(), Workbench::RowEyes::Keep::Worst);
    if (!options.report.empty())
        input.measured = [&](const BatchJob& job, std::span<const double> samples, double samplesPerUi,
                             const Workbench::EyeReport& report) {
            eyes.Add(job.capture, SmallestOf(report, &Workbench::EyeOpening::openingPercent), report, samples,
                     samplesPerUi);
        };
    input.chainChecksum = BatchChecksum(input);
    const Workbench::ReportHead head =
        HeadOf(fmt::format("Batch of {} captures through {}", plan.jobs.size(), DSO::FileNameOf(options.chain)),
               input.chain, options.mask);
    RequireOutputsApart(options, input.chain, plan.jobs);
    PrintNotes(plan.notes);
    MakeFolder(options.folder);
    const GrowingTable table(options.results);
    Rows rows = RowsOf(options, table, input, plan.jobs);
    table.Replace(rows.Table());
    bool isInterrupted = false;
    {
        const InterruptionWatch watch;
        RunMissing(input, plan.jobs, table, rows);
        // In the order of the captures, whichever ended first.
        table.Replace(rows.Table());
        isInterrupted = InterruptionWatch::IsInterrupted();
    }
    if (!options.report.empty())
        WriteReport(options, rows, eyes, head);
    const Workbench::BatchSummary summary = Workbench::SummaryOf(rows.ofJobs);
    PrintReport(options.json ? Workbench::SummaryAsJson(rows.ofJobs, rows.kept, options.results)
                             : AsText(summary, rows, options.results));
    PrintFailures(rows);
    if (isInterrupted && summary.done + summary.failed < summary.captures) {
        PrintNote(fmt::format("interrupted: {} of {} captures are done; --resume does the rest", summary.done,
                              summary.captures));
        EndInterrupted();
    }
    if (summary.failed > 0)
        throw Workbench::DataFailure(fmt::format("{} of {} captures failed; {} says why, --resume tries them again",
                                                 summary.failed, summary.captures, options.results));
}

}  // namespace

void AddBatch(const CommandLine& command)
{
    auto options = std::make_shared<BatchOptions>();
    command.AddOption("chain", options->chain, "Chain file (JSON): the device and the filters").Required();
    command
        .AddOption("captures", options->captures,
                   "Captures: text or CSV, .npy, or raw .f32, .f64, .i16; packed as .gz or not")
        .Required();
    AddReadingOptions(command, options->reading);
    AddFactOptions(command, options->facts);
    command
        .AddOption("-o,--output", options->folder,
                   "Folder for the filtered captures, NAME.npy for each; made when it is not there")
        .TypeName("FOLDER")
        .Required();
    command
        .AddOption("--results", options->results, "Table with a row for each capture; left out: results.csv in FOLDER")
        .TypeName("FILE.csv");
    AddReportOptions(command, options->report, options->mask,
                     "Also write a page with the table and the eyes, of many captures the worst");
    command.AddOption("-j,--jobs", options->jobs, "Captures side by side; left out: as many as there are processors")
        .Check(WholeRange(1, 1024));
    command.AddFlag("--eyes", options->eyes, "Draw the eye behind the chain into NAME.png for each capture");
    command.AddFlag("--whole", options->whole, "Write the ends of single shots too, which the filters have spoilt");
    command.AddFlag("--resume", options->resume,
                    "Go on with the table: captures that are done with this chain stay as they are");
    command.AddFlag("--json", options->json, "Print the summary as JSON");
    command.Footer("A capture that fails is a row with its reason; the others go on, and the exit status is 1. ");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
