// tarnwick response: what the filters of a chain do to a spectrum.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "commands/commands.h"
#include "framework/filenames.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/responseplot.h"
#include "pictures/tapsplot.h"
#include "progress.h"
#include "reports.h"
#include "workbench/chainresponse.h"
#include "workbench/responsereport.h"
#include "workbench/units.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct ResponseOptions {
    std::string chain;
    std::string prefix;
    bool json = false;
};

std::string ChannelName(const ResponseOptions& options, std::size_t index)
{
    return fmt::format("{}-sirc-{}", options.prefix, index);
}

void RequireOutputsApart(const Workbench::ChainFile& file, Workbench::Chain& chain, const ResponseOptions& options)
{
    if (options.prefix.empty())
        return;
    std::vector<std::string> inputs = FilesOf(file);
    inputs.push_back(options.chain);
    std::vector<std::string> outputs = {options.prefix + ".png", options.prefix + "-frequency.csv",
                                        options.prefix + "-impulse.csv"};
    for (const Workbench::Stage& stage : chain.Stages()) {
        if (stage.channel)
            outputs.insert(outputs.end(),
                           {ChannelName(options, stage.index) + ".png", ChannelName(options, stage.index) + ".csv"});
        if (stage.taps)
            outputs.push_back(TapsPicture(options.prefix, stage.name, stage.index));
    }
    for (const std::string& output : outputs)
        RequireApart("--output", output, inputs);
}

Workbench::ChainResponse Measure(const ResponseOptions& options)
{
    const Workbench::ChainFile file(DSO::PathOf(options.chain));
    const Workbench::ImpulseRecord record = Workbench::ImpulseRecordFor(file);
    Workbench::Chain chain(file, record.sampleCount);
    RequireOutputsApart(file, chain, options);
    StageNotes notes;
    notes.Print(chain);
    Workbench::ChainResponse response;
    {
        Progress progress(chain.Stages().size() + 1);
        response = Workbench::MeasureResponse(chain, record, chain.Device().baudRateGBd * Workbench::kGiga,
                                              [&](const std::string& what) { progress.Begin(what); });
    }
    notes.Print(chain);
    return response;
}

void WriteColumns(const ResponseOptions& options, const Workbench::ChainResponse& response)
{
    Workbench::WriteWhole(DSO::PathOf(options.prefix + "-frequency.csv"), Workbench::FrequencyColumns(response));
    Workbench::WriteWhole(DSO::PathOf(options.prefix + "-impulse.csv"), Workbench::ImpulseColumns(response));
    for (const Workbench::FilterResponse& filter : response.filters)
        if (filter.channel)
            Workbench::WriteWhole(DSO::PathOf(ChannelName(options, filter.index) + ".csv"),
                                  Workbench::ChannelColumns(*filter.channel));
}

void Draw(const ResponseOptions& options, const Workbench::ChainResponse& response)
{
    const std::string chain = DSO::FileNameOf(options.chain);
    DrawResponse(DSO::PathOf(options.prefix + ".png"), response, "Response of " + chain);
    for (const Workbench::FilterResponse& filter : response.filters)
        if (filter.channel)
            DrawChannel(DSO::PathOf(ChannelName(options, filter.index) + ".png"), *filter.channel,
                        fmt::format("Channel corrected to a Bessel-Thomson response of {:.4g} GHz: filter {} of {}",
                                    filter.channel->cutoff / Workbench::kGiga, filter.index, chain));
    for (const Workbench::FilterTaps& taps : response.taps)
        DrawTaps(DSO::PathOf(TapsPicture(options.prefix, taps.type, taps.index)), taps.figure,
                 fmt::format("{}: filter {} {}", chain, taps.index, taps.type));
}

void Run(const ResponseOptions& options)
{
    const Workbench::ChainResponse response = Measure(options);
    for (const std::string& label : response.leftOut)
        PrintNote(
            fmt::format("{}: filter {} has no response of its own: it decides, or fits itself to a capture; the "
                        "whole is without it",
                        options.chain, label));
    if (!options.prefix.empty())
        WriteColumns(options, response);
    PrintReport(options.json ? Workbench::ResponseAsJson(response) + "\n" : Workbench::ResponseAsText(response));
    if (!options.prefix.empty())
        Draw(options, response);  // behind the table, which does not need gnuplot
}

}  // namespace

void AddResponse(const CommandLine& command)
{
    auto options = std::make_shared<ResponseOptions>();
    command.AddOption("chain", options->chain, "Chain file (JSON): the device and the filters").Required();
    command
        .AddOption("-o,--output", options->prefix,
                   "Write PREFIX.png, PREFIX-frequency.csv and PREFIX-impulse.csv, for SiRC filter N also "
                   "PREFIX-sirc-N.png and .csv, for an FFE or DFE whose taps the file gives PREFIX-ffe-N.png or "
                   "PREFIX-dfe-N.png")
        .TypeName("PREFIX");
    command.AddFlag("--json", options->json, "Print the figures as JSON");
    command.Footer("Filters are numbered as in the file, from 0. ");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
