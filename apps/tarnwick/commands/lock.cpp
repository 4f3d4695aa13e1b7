// tarnwick lock: from whatever a scope saved to a record that filters can take.
#include "workbench/lock.h"

#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "facts.h"
#include "notes.h"
#include "options.h"
#include "outputs.h"
#include "progress.h"
#include "workbench/failure.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct Options {
    CaptureOptions capture;
    FactOptions facts;
    std::string output;
    std::string chain;
    std::string clock = "constant";
    int samplesPerUi = 0;
    double loopBandwidthMHz = 0.0;
    bool average = false;
    bool json = false;
};

void Run(const Options& options)
{
    if (!options.output.empty())
        Workbench::RequireWaveformName(options.output);
    const std::vector<std::string> inputs = {options.capture.name, options.capture.minus};
    RequireApart("--output", options.output, inputs);
    RequireApart("--chain", options.chain, inputs);
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
        progress.Begin("read");
        const Workbench::Waveform capture = ReadCapture(options.capture);
        progress.Begin("lock");
        locked = Lock(capture, facts, options.capture.name);
    }
    PrintNotes(locked.report.warnings);
    if (locked.report.coding == SIGNAL_CODING_UNKNOWN)
        throw Workbench::DataFailure(
            fmt::format("{}: no levels can be made out in it; give --coding", options.capture.name));
    if (!options.output.empty())
        Workbench::WriteWaveform(options.output, locked.samples, locked.interval, locked.start);
    if (!options.chain.empty())
        Workbench::WriteWhole(options.chain, ChainFileFor(locked));
    PrintReport(options.json ? LockAsJson(locked.report) + "\n" : LockAsText(locked.report));
}

}  // namespace

void AddLock(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.add_option("-o,--output", options->output, "Locked record: .csv, .txt or .npy; left out: only the report");
    command.add_option("--chain", options->chain, "Also write a chain file with the finished device and no filters");
    command
        .add_option("--spu", options->samplesPerUi,
                    "Samples per UI of the record; left out: its own where they are a "
                    "whole number, otherwise 16")
        ->check(WholeRange(1, 4096));
    command.add_option("--clock", options->clock, "Clock along which the capture is resampled")
        ->check(OneOf({"constant", "tracked"}))
        ->capture_default_str();
    command
        .add_option("--loop-bandwidth", options->loopBandwidthMHz,
                    "Loop bandwidth of the tracked clock [MHz]; left out: symbol rate / 1667")
        ->check(RealRange(1e-9, 1e9));
    command.add_flag("--average", options->average, "Mean of the repetitions in place of them");
    command.add_flag("--json", options->json, "Print the report as JSON; null where nothing was found");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
