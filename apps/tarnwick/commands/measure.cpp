// tarnwick measure: levels, eyes and TDECQ of a capture.
#include <memory>

#include "capture.h"
#include "commandline.h"
#include "commands/commands.h"
#include "facts.h"
#include "notes.h"
#include "outputs.h"
#include "progress.h"
#include "workbench/capturereport.h"
#include "workbench/lock.h"
#include "workbench/signalquality.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct MeasureOptions {
    CaptureOptions capture;
    FactOptions facts;
    int numberOfTaps = 5;
    bool zeroIsDark = false;
    bool json = false;
};

void Run(const MeasureOptions& options)
{
    const std::string name = NameOf(options.capture);
    Workbench::LockedCapture locked;
    Workbench::SignalQuality quality;
    {
        Progress progress(3);
        locked = ReadLocked(options.capture, With(options.facts), progress);
        progress.Begin("measure");
        quality = MeasureSignalQuality(locked, options.numberOfTaps, name);
    }
    PrintNotes(locked.report.warnings);
    const auto zero = options.zeroIsDark ? Workbench::ZeroVolts::Dark : Workbench::ZeroVolts::Unknown;
    PrintReport(options.json ? QualityAsJson(locked, quality, zero) + "\n" : QualityAsText(locked, quality, zero));
}

}  // namespace

void AddMeasure(const CommandLine& command)
{
    auto options = std::make_shared<MeasureOptions>();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.AddOption("--taps", options->numberOfTaps, "Taps of the reference equaliser")
        .Check(WholeRange(1, 64))
        .ShowDefault();
    command.AddFlag("--extinction-ratio", options->zeroIsDark, "Tell the extinction ratio too: 0 V is a dark line");
    command.AddFlag("--json", options->json, "Print as JSON; null where nothing was found");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
