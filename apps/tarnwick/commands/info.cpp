// tarnwick info: what a capture holds.
#include <memory>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "outputs.h"
#include "workbench/capturereport.h"

namespace Tarnwick::App {

namespace {

struct Options {
    CaptureOptions capture;
    bool json = false;
};

void Run(const Options& options)
{
    const DSO::Workbench::CaptureContent content = DSO::Workbench::FindContent(ReadCapture(options.capture));
    PrintReport(options.json ? ContentAsJson(content) + "\n" : ContentAsText(content));
}

}  // namespace

void AddInfo(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    AddCaptureOptions(command, options->capture);
    command.add_flag("--json", options->json, "Print as JSON; null where nothing was found");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
