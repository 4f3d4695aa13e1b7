// tarnwick sweep: which setting opens the eyes widest.
#include "workbench/sweep.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/contactsheet.h"
#include "progress.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/sweepreport.h"
#include "workbench/symbols.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;
using Workbench::SweepInput;
using Workbench::SweepRun;

struct Options {
    std::string chain;
    CaptureOptions capture;
    std::vector<std::string> over;
    std::string prefix = "sweep";
    bool json = false;
};

// The capture, cut to whole repetitions where the chain's device is known before anything runs.
SweepInput ReadInput(const Options& options)
{
    std::vector<Workbench::SweepAxis> axes = Workbench::ReadSweepAxes(options.over);
    Workbench::ChainFile file(options.chain);
    Workbench::Waveform capture = ReadCapture(options.capture);
    SweepInput input{std::move(file), options.capture.name, capture.samples, std::move(axes)};
    if (const auto device = FixedDevice(input)) {
        const Workbench::Chain chain(*device, input.samples.size());
        RequireEyes(chain, options.chain, "sweep");
        WarnOfInterval(capture, chain, options.capture);
        KeepWholeRepetitions(input.samples, chain, options.capture);
    }
    std::vector<std::string> notes;
    try {
        input.chain = WithSymbols(input.chain, input.samples, input.captureName, notes);
    } catch (const Workbench::UsageFailure&) {
        // Either the values complete the chain, or no value can: its runs will tell.
    }
    PrintNotes(notes);
    return input;
}

void Run(const Options& options)
{
    const SweepInput input = ReadInput(options);
    ContactSheet sheet(input.axes);
    std::vector<SweepRun> runs;
    {
        Progress progress(CombinationsOf(input.axes));
        Workbench::SweepObserver observer;
        observer.begin = [&](std::size_t, const std::vector<std::string>& values) {
            progress.Begin(Workbench::CaptionOf(Workbench::ShortNamesOf(input.axes), values));
        };
        observer.end = [&](std::size_t run, const SweepRun& result, std::span<const double> samples,
                           double samplesPerUi) { sheet.Add(run, result, samples, samplesPerUi); };
        runs = Sweep(input, observer);
    }
    if (Ranking(runs).empty()) {
        if (runs.front().hasUnknownKey)
            throw Workbench::UnknownKeyFailure(runs.front().error);
        throw Workbench::DataFailure(runs.front().error);
    }
    PrintReport(options.json ? SweepAsJson(input.axes, runs) + "\n" : SweepAsText(input.axes, runs));
    sheet.Draw(options.prefix + ".png", runs, input.captureName);
}

}  // namespace

void AddSweep(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    command.add_option("chain", options->chain, "Chain file (JSON): the device and the filters")->required();
    AddCaptureOptions(command, options->capture);
    command
        .add_option("--over", options->over,
                    "Key of the chain file with dots between, lists counted from 0, and its values: from, to "
                    "(included) and step, or a list. Given twice: every pair")
        ->type_name("PATH=FROM:TO:STEP | PATH=VALUE,VALUE...")
        ->allow_extra_args(false)
        ->required();
    command.add_option("-o,--output", options->prefix, "Draw the eyes, at most 64, into PREFIX.png")
        ->type_name("PREFIX")
        ->capture_default_str();
    command.add_flag("--json", options->json, "Print the runs as JSON, best first");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
