#include "workbench/batch.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <exception>
#include <map>
#include <new>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "framework/filenames.h"
#include "workbench/captures.h"
#include "workbench/chaininput.h"
#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/checksum.h"
#include "workbench/plumbing/csvtable.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/text.h"
#include "workbench/plumbing/wholefile.h"
#include "workbench/plumbing/workers.h"
#include "workbench/ranking.h"
#include "workbench/run.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

namespace fs = std::filesystem;

namespace {

using Column = BatchColumn;

constexpr std::array<const char*, kBatchColumns> kColumnNames = {
    "file",    "status",  "reason",      "output",      "symbolRateGBd",   "samplesPerUi",
    "coding",  "pattern", "mode",        "repetitions", "samples",         "openingPercent",
    "height",  "widthUi", "heightAtBer", "q",           "openingsPercent", "heights",
    "symbols", "ber",     "noiseRms",    "seconds",     "notes",           "key"};
constexpr const char* kDone = "done";
constexpr const char* kFailed = "failed";
constexpr const char* kOutputEnding = ".npy";

std::string TextOf(const std::optional<double>& number)
{
    return number ? fmt::format("{}", *number) : "";
}

// The same on systems that tell large letters from small ones in file names and on those that do not.
std::string Folded(std::string name)
{
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return name;
}

std::string WithoutEnding(const fs::path& file)
{
    return (file.extension() == ".gz" ? file.stem() : file).stem().string();
}

// The output's name with this many folders before it; more than there are stand for the ending.
std::string OutputName(const fs::path& file, std::size_t folders)
{
    std::string name = WithoutEnding(file.filename());
    fs::path folder = file.parent_path();
    for (; folders > 0; --folders) {
        const std::string part = folder.filename().string();
        if (part.empty())
            return name + file.extension().string();
        if (part != "." && part != "..")
            name.insert(0, part + "-");
        folder = folder.parent_path();
    }
    return name;
}

void AddAcquisition(BatchRow& row, const LockReport& report)
{
    if (report.symbolRateGBd > 0.0)
        row[Column::SymbolRateGBd] = TextOf(report.symbolRateGBd);
    row[Column::SamplesPerUi] = TextOf(report.samplesPerUi);
    if (report.coding != SIGNAL_CODING_UNKNOWN)
        row[Column::Coding] = NameOf(report.coding);
    row[Column::Pattern] = report.pattern;
    row[Column::Mode] = report.mode == RecordKind::Periodic ? "periodic" : "single-shot";
    row[Column::Repetitions] = fmt::format("{}", report.repetitions);
}

void AddEyes(BatchRow& row, const EyeReport& report)
{
    if (report.eyes.empty())
        return;
    std::vector<double> openings;
    std::vector<double> heights;
    for (const EyeOpening& eye : report.eyes) {
        openings.push_back(eye.openingPercent);
        heights.push_back(eye.height);
    }
    row[Column::OpeningPercent] = TextOf(SmallestOf(report, &EyeOpening::openingPercent));
    row[Column::HeightV] = TextOf(SmallestOf(report, &EyeOpening::height));
    row[Column::WidthUi] = TextOf(SmallestOf(report, &EyeOpening::widthUi));
    row[Column::HeightAtBerV] = TextOf(SmallestOf(report, &EyeOpening::heightAtBer));
    row[Column::Q] = TextOf(SmallestOf(report, &EyeOpening::q));
    row[Column::OpeningsPercent] = Joined(openings, "{}", " ");
    row[Column::HeightsV] = Joined(heights, "{}", " ");
    row[Column::Symbols] = report.symbolsKnown ? "found" : "decided";
    row[Column::Ber] = TextOf(report.ber);
    row[Column::NoiseRmsV] = TextOf(report.noiseRms);
}

void AddNotes(BatchRow& row, const std::vector<std::string>& notes)
{
    for (const std::string& note : notes)
        row[Column::Notes] += (row[Column::Notes].empty() ? "" : "; ") + note;
}

ChainFile WithoutDisabledFilters(const ChainFile& file)
{
    nlohmann::json content = JsonOf(file);
    auto& filters = content["filters"];
    filters.erase(std::remove_if(filters.begin(), filters.end(),
                                 [](const nlohmann::json& filter) { return !filter.value("enabled", true); }),
                  filters.end());
    return ChainFileOf(std::move(content), file.Name());
}

// In a scope of its own: the capture as it was read is not needed beside the record.
ChainInput ReadRecord(const BatchInput& input, const BatchJob& job, BatchRow& row)
{
    const Waveform capture = ReadCapture({job.capture, "", input.reading});
    AddNotes(row, capture.notes);
    ChainInput record = InputFor(input.chain, capture, input.facts, job.capture);
    AddNotes(row, record.notes);
    if (record.acquisition)
        AddAcquisition(row, *record.acquisition);
    return record;
}

void Fill(BatchRow& row, const BatchInput& input, const BatchJob& job)
{
    ChainInput record = ReadRecord(input, job, row);
    if (input.picture)
        RequireEyes(record, job.capture, "a picture of the eyes");
    record.eyes.withBathtub = static_cast<bool>(input.picture);
    Chain chain(record.chain, record.samples.size());
    const ChainResult result = RunToEnd(chain, std::move(record.samples), record.eyes, job.capture);
    for (const Stage& stage : chain.Stages())
        AddNotes(row, stage.notes);
    const EyeReport& eyes = result.stages.back().eye;
    AddEyes(row, eyes);
    const ValidPart written = input.whole ? ValidPart{0, result.samples.size()} : result.valid;
    WriteWaveform(input.folder / PathOf(job.name + kOutputEnding), written.Of(result.samples));
    row[Column::Samples] = fmt::format("{}", written.count);
    if (input.picture)
        input.picture(job, result.valid.Of(result.samples), record.eyes.samplesPerUi, eyes);
    if (input.measured && !eyes.eyes.empty())
        input.measured(job, result.valid.Of(result.samples), record.eyes.samplesPerUi, eyes);
    row[Column::Output] = job.name + kOutputEnding;
}

}  // namespace

bool BatchRow::IsDone() const
{
    return (*this)[Column::Status] == kDone;
}

std::optional<double> BatchRow::Number(BatchColumn column) const
{
    const std::string& cell = (*this)[column];
    double value = 0.0;
    const auto end = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    return end.ec == std::errc() && end.ptr == cell.data() + cell.size() ? std::optional(value) : std::nullopt;
}

BatchPlan PlanBatch(const std::vector<std::string>& captures)
{
    if (captures.empty())
        throw UsageFailure("batch: there are no captures; expected at least one");
    BatchPlan plan;
    std::set<fs::path> known;
    for (const std::string& capture : captures) {
        if (capture == "-")
            throw UsageFailure("batch: a capture is -, standard input; expected files");
        std::error_code error;
        if (known.insert(fs::weakly_canonical(fs::absolute(PathOf(capture), error), error)).second)
            plan.jobs.push_back({capture, OutputName(PathOf(capture), 0)});
        else
            plan.notes.push_back(capture + ": is given twice; it is run once");
    }
    // One more folder for all that share a name, until none do. Whoever runs out of folders takes the ending, and a number at
    // last.
    std::vector<std::size_t> folders(plan.jobs.size(), 0);
    constexpr std::size_t kMostFolders = 64;
    for (std::size_t round = 0;; ++round) {
        std::map<std::string, std::vector<std::size_t>> jobsOf;
        for (std::size_t k = 0; k < plan.jobs.size(); ++k)
            jobsOf[Folded(plan.jobs[k].name)].push_back(k);
        if (jobsOf.size() == plan.jobs.size())
            return plan;
        for (const auto& [name, jobs] : jobsOf)
            for (const std::size_t k : jobs) {
                if (jobs.size() == 1)
                    continue;
                plan.jobs[k].name = OutputName(PathOf(plan.jobs[k].capture), ++folders[k]);
                if (round >= kMostFolders)
                    plan.jobs[k].name += fmt::format("-{}", k + 1);
            }
    }
}

std::uint64_t BatchChecksum(const BatchInput& input)
{
    CheckChain(input.chain);
    Checksum sum;
    sum.Add(input.chain.Text());
    for (const std::string& file : FilesOf(WithoutDisabledFilters(input.chain)))
        sum.Add(ReadWholeFile(PathOf(file)));
    const CaptureFacts& facts = input.facts;
    const WaveformOptions& reading = input.reading;
    sum.Add(fmt::format("\n{} {} {} {}\n{} {} {} {} {}", facts.symbolRateGBd, facts.samplesPerUi,
                        static_cast<int>(facts.coding), facts.patternLengthUi, input.whole,
                        reading.skipLines ? fmt::format("{}", *reading.skipLines) : "-", reading.column,
                        reading.sampleRate, reading.scale));
    return sum.Value();
}

std::string BatchKey(const BatchInput& input, const std::string& capture)
{
    const fs::path file = Openable(PathOf(capture));
    std::error_code error;
    const fs::file_time_type changed = fs::last_write_time(file, error);
    if (error)
        return "";
    const std::uintmax_t size = fs::file_size(file, error);
    Checksum sum;
    sum.Add(fmt::format("{} {} {}", input.chainChecksum, error ? 0 : size, changed.time_since_epoch().count()));
    return fmt::format("{:016x}", sum.Value());
}

BatchRow RunCapture(const BatchInput& input, const BatchJob& job)
{
    const auto start = std::chrono::steady_clock::now();
    BatchRow row;
    row[Column::File] = job.capture;
    row[Column::Key] = BatchKey(input, job.capture);
    try {
        Fill(row, input, job);
    } catch (const std::bad_alloc&) {
        row[Column::Reason] = "there is not enough memory for this";
    } catch (const std::exception& failure) {
        row[Column::Reason] = failure.what();
    }
    row[Column::Status] = row[Column::Reason].empty() ? kDone : kFailed;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    row[Column::Seconds] = fmt::format("{:.6f}", taken.count());
    return row;
}

void RunBatch(const BatchInput& input, std::span<const BatchJob> jobs, const BatchObserver& observer)
{
    CallsInTurn calls;
    RunOnThreads(
        jobs.size(), ThreadCount(input.threads),
        [&](std::size_t k) {
            const BatchRow row = RunCapture(input, jobs[k]);
            if (observer.end)
                calls.Tell([&] { observer.end(k, row); });
        },
        observer.stop);
}

std::string BatchTableHead()
{
    return CsvRow(std::vector<std::string>(kColumnNames.begin(), kColumnNames.end()));
}

std::string BatchTableRow(const BatchRow& row)
{
    return CsvRow(row.Cells());
}

std::vector<BatchRow> ReadBatchTable(std::string_view text, const std::string& name)
{
    const std::string head = BatchTableHead();
    // As much of the head as there is, when not even that was written whole.
    if (head.substr(0, text.size()) != text.substr(0, head.size()))
        throw UsageFailure(fmt::format("{}: is no table of a batch; expected another file", name));
    std::vector<BatchRow> rows;
    std::map<std::string, std::size_t> rowOf;
    std::size_t number = 0;
    for (std::vector<std::string>& cells : CsvRows(text)) {
        if (++number == 1)
            continue;
        if (cells.size() != kBatchColumns)
            throw UsageFailure(
                fmt::format("{}: row {} has {} cells; expected {}", name, number, cells.size(), kBatchColumns));
        BatchRow row;
        for (std::size_t k = 0; k < cells.size(); ++k)
            row[static_cast<BatchColumn>(k)] = std::move(cells[k]);
        const auto [known, isNew] = rowOf.emplace(row[Column::File], rows.size());
        if (isNew)
            rows.push_back(std::move(row));
        else
            rows[known->second] = std::move(row);
    }
    return rows;
}

BatchSummary SummaryOf(std::span<const std::optional<BatchRow>> rows)
{
    BatchSummary summary;
    summary.captures = rows.size();
    for (const std::optional<BatchRow>& row : rows) {
        if (!row)
            continue;
        ++(row->IsDone() ? summary.done : summary.failed);
        const auto opening = row->Number(BatchColumn::OpeningPercent);
        if (row->IsDone() && opening &&
            (summary.worst == nullptr || *opening < *summary.worst->Number(BatchColumn::OpeningPercent)))
            summary.worst = &*row;
    }
    return summary;
}

std::string SummaryAsJson(std::span<const std::optional<BatchRow>> rows, std::size_t kept, const std::string& results)
{
    const BatchSummary summary = SummaryOf(rows);
    Json failures = Json::List();
    for (const std::optional<BatchRow>& row : rows)
        if (row && !row->IsDone())
            failures.Add({{"file", (*row)[BatchColumn::File]}, {"reason", (*row)[BatchColumn::Reason]}});
    Json smallest;
    if (summary.worst != nullptr)
        smallest = {{"file", (*summary.worst)[BatchColumn::File]},
                    {"openingPercent", *summary.worst->Number(BatchColumn::OpeningPercent)}};
    const Json report = {
        {"captures", summary.captures},   {"done", summary.done}, {"kept", kept},
        {"failed", summary.failed},       {"results", results},   {"smallestOpening", std::move(smallest)},
        {"failures", std::move(failures)}};
    return report.Text(2) + "\n";
}

bool IsUpToDate(const BatchRow& row, const BatchInput& input, const BatchJob& job)
{
    std::error_code error;
    return row.IsDone() && row[Column::Output] == job.name + kOutputEnding && !row[Column::Key].empty() &&
           row[Column::Key] == BatchKey(input, job.capture) &&
           fs::exists(Openable(input.folder / PathOf(row[Column::Output])), error);
}

}  // namespace Tarnwick::DSO::Workbench
