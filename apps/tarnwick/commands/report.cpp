// tarnwick report: a capture through a chain, as one page that opens anywhere.
#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "facts.h"
#include "framework/filenames.h"
#include "notes.h"
#include "outputs.h"
#include "progress.h"
#include "reports.h"
#include "workbench/chain.h"
#include "workbench/htmlreport.h"
#include "workbench/runreport.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct ReportOptions {
    std::string chain;
    CaptureOptions capture;
    FactOptions facts;
    std::string output;
    std::string mask;
};

void Run(const ReportOptions& options)
{
    const Workbench::ChainFile file(DSO::PathOf(options.chain));
    std::vector<std::string> inputs = FilesOf(file);
    inputs.insert(inputs.end(), {options.chain, options.capture.name, options.capture.minus, options.mask});
    RequireApart("--output", options.output, inputs);
    const std::string name = NameOf(options.capture);
    Workbench::ReportHead head =
        HeadOf(fmt::format("{} through {}", DSO::FileNameOf(name), DSO::FileNameOf(options.chain)), file, options.mask);
    std::string page;
    {
        constexpr std::size_t kStepsBesideFilters = 5;
        Progress progress(kStepsBesideFilters + Workbench::FilterCount(file));
        progress.Begin("read");
        const Workbench::Waveform capture = ReadCapture(options.capture);
        progress.Begin("lock");
        const Workbench::RunReport report = RunForReport(file, capture, With(options.facts), name,
                                                         [&](const std::string& step) { progress.Begin(step); });
        if (report.acquisition)
            PrintNotes(report.acquisition->warnings);
        PrintNotes(report.clipping);
        for (const std::string& note : report.notes)  // those of the capture were printed as it was read
            if (std::find(capture.notes.begin(), capture.notes.end(), note) == capture.notes.end())
                PrintNote(note);
        progress.Begin("report");
        head.captures = SourcesOf(options.capture, capture.samples.size());
        page = HtmlReport(report, head);
    }
    Workbench::WriteWhole(DSO::PathOf(options.output), page);
    PrintReport(fmt::format("report           {}\nsize             {:.0f} kB\n", options.output,
                            1e-3 * static_cast<double>(page.size())));
}

}  // namespace

void AddReport(const CommandLine& command)
{
    auto options = std::make_shared<ReportOptions>();
    command.AddOption("chain", options->chain, "Chain file (JSON): the device and the filters").Required();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.AddOption("-o,--output", options->output, "Page that a browser opens without a network or a server")
        .TypeName("REPORT.html")
        .Required();
    AddMaskOption(command, options->mask);
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
