// tarnwick info: what a capture holds.
#include <memory>

#include "capture.h"
#include "commands/commands.h"
#include "facts.h"
#include "notes.h"
#include "outputs.h"
#include "progress.h"
#include "workbench/capturereport.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct InfoOptions {
    CaptureOptions capture;
    FactOptions facts;
    bool json = false;
};

void Run(const InfoOptions& options)
{
    Workbench::CaptureContent content;
    {
        Progress progress(2);
        content =
            FindContent(ReadCaptureToLock(options.capture, progress), With(options.facts), NameOf(options.capture));
    }
    if (content.acquisition)
        PrintNotes(content.acquisition->warnings);
    PrintReport(options.json ? ContentAsJson(content) + "\n" : ContentAsText(content));
}

}  // namespace

void AddInfo(const CommandLine& command)
{
    auto options = std::make_shared<InfoOptions>();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.AddFlag("--json", options->json, "Print as JSON; null where nothing was found");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
