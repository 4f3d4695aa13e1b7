// tarnwick lock: from whatever a scope saved to a record that filters can take.
#include "workbench/lock.h"

#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commandline.h"
#include "commands/commands.h"
#include "facts.h"
#include "framework/filenames.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/clockplot.h"
#include "progress.h"
#include "reports.h"
#include "workbench/failure.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

constexpr const char* kPhaseEnd = "-phase.png";
constexpr const char* kSpectrumEnd = "-spectrum.png";

struct LockOptions {
    CaptureOptions capture;
    FactOptions facts;
    std::string output;
    std::string chain;
    std::string picturePrefix;
    std::string clock = "constant";
    int samplesPerUi = 0;
    double loopBandwidthMHz = 0.0;
    bool average = false;
    bool whole = false;  // changes nothing: no sample of the record is held back
    bool json = false;
};

void Draw(const LockOptions& options, const Workbench::LockedCapture& locked)
{
    const std::string name = DSO::FileNameOf(NameOf(options.capture));
    const bool hasPhase = !locked.report.phaseUi.empty();
    const bool hasSpectrum = !locked.report.spectrum.scoreDb.empty();
    if (hasPhase)
        DrawClockPhase(DSO::PathOf(options.picturePrefix + kPhaseEnd), locked, name);
    if (hasSpectrum)
        DrawClockSpectrum(DSO::PathOf(options.picturePrefix + kSpectrumEnd), locked, name);
    if (!hasPhase || !hasSpectrum)
        throw Workbench::DataFailure(
            fmt::format("{}: has too few samples, or fewer than 2 per UI, to look for its clock; no {} is drawn",
                        NameOf(options.capture),
                        !hasPhase && !hasSpectrum ? "phase or spectrum"
                        : hasPhase                ? "spectrum"
                                                  : "phase"));
}

void Run(const LockOptions& options)
{
    if (!options.output.empty())
        RequireRecordName(options.output);
    const std::vector<std::string> inputs = {options.capture.name, options.capture.minus};
    RequireApart("--output", options.output, inputs);
    RequireApart("--chain", options.chain, inputs);
    for (const char* const end : {kPhaseEnd, kSpectrumEnd})
        if (!options.picturePrefix.empty())
            RequireApart("--picture", options.picturePrefix + end, inputs);
    if (!options.chain.empty() && IsSameFile(options.output, options.chain))
        throw Workbench::UsageFailure(
            fmt::format("--chain: is {}, as the record; expected another file", options.chain));
    Workbench::CaptureFacts facts = With(options.facts);
    facts.clock = options.clock == "tracked" ? Workbench::ClockKind::Tracked : Workbench::ClockKind::Constant;
    facts.loopBandwidthMHz = options.loopBandwidthMHz;
    facts.samplesPerUiOut = options.samplesPerUi;
    facts.average = options.average;
    Workbench::LockedCapture locked;
    {
        Progress progress(2);
        locked = ReadLocked(options.capture, facts, progress);
    }
    PrintNotes(locked.report.warnings);
    RequireLevels(locked.report, NameOf(options.capture));
    if (!options.output.empty())
        WriteRecord(options.output, locked.samples, locked.interval, locked.start);
    if (!options.chain.empty())
        Workbench::WriteWhole(DSO::PathOf(options.chain), ChainFileFor(locked));
    PrintReport(options.json ? LockAsJson(locked.report) + "\n" : LockAsText(locked.report), options.output);
    // Behind the table, which does not need gnuplot.
    if (!options.picturePrefix.empty())
        Draw(options, locked);
}

}  // namespace

void AddLock(const CommandLine& command)
{
    auto options = std::make_shared<LockOptions>();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.AddOption(
        "-o,--output", options->output,
        "Locked record: .csv, .txt or .npy; - writes CSV to standard output, and the report to standard error; "
        "left out: only the report");
    command.AddOption("--chain", options->chain, "Also write a chain file with the finished device and no filters");
    command
        .AddOption("--spu", options->samplesPerUi,
                   "Samples per UI of the record; left out: its own where they are a "
                   "whole number, otherwise 16")
        .Check(WholeRange(1, 4096));
    command.AddOption("--clock", options->clock, "Clock along which the capture is resampled")
        .Check(OneOf({"constant", "tracked"}))
        .ShowDefault();
    command
        .AddOption("--loop-bandwidth", options->loopBandwidthMHz,
                   "Loop bandwidth of the tracked clock [MHz]; left out: symbol rate / 1667")
        .Check(RealRange(1e-9, 1e9));
    command.AddFlag("--average", options->average, "Write the mean of the repetitions instead of all of them");
    command.AddFlag("--whole", options->whole,
                    "Write all of the record, as lock always does; here for scripts that say so to apply");
    command
        .AddOption("--picture", options->picturePrefix,
                   "Draw PREFIX-phase.png, the clock's phase over the record, and PREFIX-spectrum.png, in which it was "
                   "found")
        .TypeName("PREFIX");
    command.AddFlag("--json", options->json, "Print the report as JSON; null where nothing was found");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
