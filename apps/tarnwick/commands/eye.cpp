// tarnwick eye: the eye of a capture of which nothing needs to be known.
#include "workbench/eye.h"

#include <filesystem>
#include <memory>
#include <string>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "facts.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/bathtubplot.h"
#include "pictures/eyeplot.h"
#include "progress.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/lock.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct Options {
    CaptureOptions capture;
    FactOptions facts;
    std::string prefix;
    bool json = false;
};

void Draw(const Options& options, const Workbench::LockedCapture& locked, const Workbench::EyeReport& report)
{
    const std::string name = std::filesystem::path(NameOf(options.capture)).filename().string();
    DrawEye(options.prefix + ".png", locked.samples, locked.report.samplesPerUiOut, report, RangeOf(locked.samples),
            name);
    if (!report.bathtub.empty()) {
        const BathtubCurve curve{"as read", report};
        DrawBathtub(options.prefix + "-bathtub.png", {&curve, 1}, name);
    }
}

void Run(const Options& options)
{
    for (const char* const end : {".png", "-bathtub.png"})
        if (!options.prefix.empty())
            RequireApart("--output", options.prefix + end, {options.capture.name, options.capture.minus});
    Workbench::LockedCapture locked;
    Workbench::EyeReport report;
    {
        Progress progress(3);
        locked = ReadLocked(options.capture, With(options.facts), progress);
        RequireLevels(locked.report, NameOf(options.capture));
        progress.Begin("eyes");
        Workbench::EyeSettings settings = EyeSettingsOf(locked);
        settings.withBathtub = true;
        report = MeasureEyes(locked.samples, settings);
    }
    PrintNotes(locked.report.warnings);
    PrintReport(options.json ? EyeAsJson(locked, report) + "\n" : LockAsText(locked.report) + EyeAsText(report));
    // Behind the table, which does not need gnuplot.
    if (!options.prefix.empty())
        Draw(options, locked, report);
}

}  // namespace

void AddEye(const CommandLine& command)
{
    auto options = std::make_shared<Options>();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.AddOption("-o,--output", options->prefix, "Draw PREFIX.png and PREFIX-bathtub.png").TypeName("PREFIX");
    command.AddFlag("--json", options->json, "Print as JSON; null where nothing was found");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
