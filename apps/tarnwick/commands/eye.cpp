// tarnwick eye: the eye of any capture; nothing about it needs to be known.
#include "workbench/eye.h"

#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "facts.h"
#include "framework/filenames.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/bathtubplot.h"
#include "pictures/eyeplot.h"
#include "pictures/gnuplot.h"
#include "progress.h"
#include "reports.h"
#include "workbench/chaininput.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/htmlreport.h"
#include "workbench/lock.h"
#include "workbench/runreport.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct EyeOptions {
    CaptureOptions capture;
    FactOptions facts;
    std::string prefix;
    std::string report;
    std::string mask;
    bool json = false;
};

// What a page shows, of a chain without filters.
Workbench::RunReport PageOf(const EyeOptions& options, const Workbench::Waveform& capture,
                            const Workbench::LockedCapture& locked)
{
    const auto chain = Workbench::ChainFile::FromText(R"({"filters": []})", "no chain");
    const std::string name = NameOf(options.capture);
    return RunForReport(InputFor(chain, locked, name), capture, name);
}

void Draw(const EyeOptions& options, const Workbench::LockedCapture& locked, const Workbench::EyeReport& report)
{
    const std::string name = DSO::FileNameOf(NameOf(options.capture));
    DrawEye(DSO::PathOf(options.prefix + ".png"), locked.samples, locked.report.samplesPerUiOut, report,
            RangeOf(locked.samples), name);
    if (!report.bathtub.empty()) {
        const BathtubCurve curve{"as read", report};
        DrawBathtub(DSO::PathOf(options.prefix + "-bathtub.png"), {&curve, 1}, name);
    }
}

void Run(EyeOptions options)
{
    for (const char* const end : {".png", "-bathtub.png"})
        if (!options.prefix.empty())
            RequireApart("--output", options.prefix + end, {options.capture.name, options.capture.minus});
    // Without gnuplot a page takes the place of the pictures.
    const bool canDraw = !options.prefix.empty() && HasGnuplot();
    if (!options.prefix.empty() && !canDraw) {
        if (options.report.empty())
            options.report = options.prefix + ".html";
        PrintNote(
            fmt::format("gnuplot, which draws the pictures, is missing (Debian: gnuplot-nox); {} has the eye and the "
                        "bathtub instead",
                        options.report));
    }
    RequireApart("--report", options.report, {options.capture.name, options.capture.minus, options.mask});
    Workbench::ReportHead head = HeadOf(DSO::FileNameOf(NameOf(options.capture)), std::nullopt, options.mask);
    Workbench::LockedCapture locked;
    Workbench::EyeReport report;
    std::optional<Workbench::RunReport> page;
    {
        Progress progress(3);
        Workbench::Waveform capture = ReadCaptureToLock(options.capture, progress);
        locked = Lock(capture, With(options.facts), NameOf(options.capture));
        if (options.report.empty())
            capture = {};  // not held beside the record
        RequireLevels(locked.report, NameOf(options.capture));
        progress.Begin("eyes");
        if (options.report.empty()) {
            Workbench::EyeSettings settings = EyeSettingsOf(locked);
            settings.withBathtub = true;
            report = MeasureEyes(locked.samples, settings);
        } else {
            page = PageOf(options, capture, locked);
            report = page->stages.front().eye;
            head.captures = SourcesOf(options.capture, capture.samples.size());
        }
    }
    PrintNotes(locked.report.warnings);
    PrintReport(options.json ? EyeAsJson(locked, report) + "\n" : LockAsText(locked.report) + EyeAsText(report));
    if (page)
        Workbench::WriteWhole(DSO::PathOf(options.report), HtmlReport(*page, head));
    // Behind the table, which does not need gnuplot.
    if (canDraw)
        Draw(options, locked, report);
}

}  // namespace

void AddEye(const CommandLine& command)
{
    auto options = std::make_shared<EyeOptions>();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.AddOption("-o,--output", options->prefix, "Draw PREFIX.png and PREFIX-bathtub.png").TypeName("PREFIX");
    AddReportOptions(command, options->report, options->mask,
                     "Write a page with the eye and all plots of the capture, for any browser");
    command.AddFlag("--json", options->json, "Print as JSON; null where nothing was found");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
