// tarnwick apply: a capture through a chain of filters.
#include <algorithm>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "facts.h"
#include "framework/filenames.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/bathtubplot.h"
#include "pictures/eyeplot.h"
#include "pictures/tapsplot.h"
#include "progress.h"
#include "reports.h"
#include "workbench/chain.h"
#include "workbench/chaininput.h"
#include "workbench/eye.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/joined.h"
#include "workbench/lock.h"
#include "workbench/run.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct ApplyOptions {
    std::string chain;
    CaptureOptions capture;
    FactOptions facts;
    std::string output;
    std::string eyePrefix;
    std::string tapsPrefix;
    bool whole = false;
    bool json = false;
};

// Columns two blanks apart: the first to the left, the others to the right.
std::string ColumnsOf(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto& row : rows)
        for (std::size_t k = 0; k < row.size(); ++k)
            widths[k] = std::max(widths[k], row[k].size());
    std::string text;
    for (const auto& row : rows) {
        text += fmt::format("{:<{}}", row.front(), widths.front());
        for (std::size_t k = 1; k < row.size(); ++k)
            text += fmt::format("  {:>{}}", row[k], widths[k]);
        text += '\n';
    }
    return text;
}

std::string TableOf(const std::vector<Workbench::StageReport>& reports)
{
    // Three eyes are three numbers: a column is as wide as its longest text, or one would run into the next.
    std::vector<std::vector<std::string>> rows = {{"stage", "eye open %", "eye widths UI", "eye heights V", "BER",
                                                   "phase UI", "samples", "reps", "mean V", "rms V", "p-p V",
                                                   "seconds"}};
    for (const Workbench::StageReport& report : reports)
        rows.push_back({report.name, OpeningsText(report.eye), WidthsText(report.eye), HeightsText(report.eye),
                        Workbench::BerText(report.eye.ber), fmt::format("{:.3f}", report.eye.phaseUi),
                        fmt::format("{}", report.samples), fmt::format("{}", report.repetitions),
                        fmt::format("{:.4g}", report.mean), fmt::format("{:.4g}", report.rms),
                        fmt::format("{:.4g}", report.peakToPeak), fmt::format("{:.2g}", report.seconds)});
    std::string text = ColumnsOf(rows);
    std::vector<std::string> decided;
    for (const Workbench::StageReport& report : reports)
        if (!report.eye.eyes.empty() && !report.eye.symbolsKnown)
            decided.push_back(report.name);
    if (!decided.empty())
        text += fmt::format("eyes of {}: symbols decided from the samples, which flatters an eye that is closed\n",
                            DSO::Workbench::Joined(decided, ", "));
    for (const Workbench::StageReport& report : reports)
        text += FindingsAsText(report);
    return text;
}

// A chain that is run again must find what it read the first time.
void RequireOutputsApart(const std::vector<std::string>& inputs, const ApplyOptions& options)
{
    RequireApart("--output", options.output, inputs);
    if (!options.eyePrefix.empty())
        for (const char* const end : {"-before.png", "-after.png", "-bathtub.png"})
            RequireApart("--eye", options.eyePrefix + end, inputs);
}

// What the pictures that were asked for need.
void RequirePictures(Workbench::Chain& chain, const Workbench::ChainInput& input,
                     const std::vector<std::string>& inputs, const ApplyOptions& options)
{
    if (!options.eyePrefix.empty())
        RequireEyes(input, NameOf(options.capture), "--eye");
    if (options.tapsPrefix.empty())
        return;
    const std::vector<Workbench::Stage>& stages = chain.Stages();
    if (std::none_of(stages.begin(), stages.end(), [](const auto& stage) { return bool(stage.taps); }))
        throw Workbench::UsageFailure(
            fmt::format("--taps: {} has no filter with taps; expected an ffe or a dfe", options.chain));
    RequireEyes(input, NameOf(options.capture), "--taps");
    for (const Workbench::Stage& stage : stages)
        if (stage.taps)
            RequireApart("--taps", TapsPicture(options.tapsPrefix, stage.name, stage.index), inputs);
}

// The capture, locked for the chain.
Workbench::ChainInput ReadInput(const Workbench::ChainFile& file, const ApplyOptions& options)
{
    Progress progress(2);
    return InputFor(file, ReadCaptureToLock(options.capture, progress), With(options.facts), NameOf(options.capture));
}

void DrawEyes(const ApplyOptions& options, const Workbench::ChainInput& input, const Workbench::ChainResult& result)
{
    const auto& first = result.stages.front();
    const auto& last = result.stages.back();
    const std::span<const double> asRead = first.eye.valid.Of(input.samples);
    const std::span<const double> filtered = result.valid.Of(result.samples);
    const VoltageRange range = RangeOf(asRead, filtered);
    const std::string name = DSO::FileNameOf(NameOf(options.capture));
    const BathtubCurve curves[] = {{"as read", first.eye}, {"behind " + last.name, last.eye}};
    Progress progress(1);
    progress.Begin("eyes");
    const auto draw = [&](const char* end, std::span<const double> samples, const BathtubCurve& curve) {
        DrawEye(DSO::PathOf(options.eyePrefix + end), samples, input.eyes.samplesPerUi, curve.eye, range,
                name + " " + curve.name);
    };
    auto after = std::async(std::launch::async, draw, "-after.png", filtered, std::cref(curves[1]));
    draw("-before.png", asRead, curves[0]);
    after.get();
    DrawBathtub(DSO::PathOf(options.eyePrefix + "-bathtub.png"), curves, name);
}

void DrawStageTaps(const ApplyOptions& options, Workbench::Chain& chain, const Workbench::ChainResult& result)
{
    const std::string name = DSO::FileNameOf(NameOf(options.capture));
    std::size_t report = 0;  // of the capture; those of the stages follow
    for (const Workbench::Stage& stage : chain.Stages()) {
        const auto& figure = result.stages[++report].taps;
        if (!figure)
            continue;
        if (!figure->pulses)
            PrintNote(fmt::format(
                "{}: {}: no pulse response is drawn; its symbols are too few, repeat too soon, or cannot be made out",
                NameOf(options.capture), stage.place));
        DrawTaps(DSO::PathOf(TapsPicture(options.tapsPrefix, stage.name, stage.index)), *figure,
                 fmt::format("{}: filter {} {}", name, stage.index, stage.name));
    }
}

void Apply(const ApplyOptions& options)
{
    if (!options.output.empty())
        RequireRecordName(options.output);
    const Workbench::ChainFile file(DSO::PathOf(options.chain));
    std::vector<std::string> inputs = FilesOf(file);
    inputs.insert(inputs.end(), {options.chain, options.capture.name, options.capture.minus});
    RequireOutputsApart(inputs, options);
    Workbench::ChainInput input = ReadInput(file, options);
    PrintNotes(input.notes);
    input.eyes.withBathtub = !options.eyePrefix.empty();
    input.eyes.withPulses = !options.tapsPrefix.empty();
    Workbench::Chain chain(input.chain, input.samples.size());
    StageNotes stageNotes;
    stageNotes.Print(chain);
    RequirePictures(chain, input, inputs, options);

    Workbench::ChainResult result;
    {
        Progress progress(chain.Stages().size() + 2);
        // Pictures of the eyes show the record as it was read, too.
        std::vector<double> record = options.eyePrefix.empty() ? std::move(input.samples) : input.samples;
        result = RunChain(chain, std::move(record), input.eyes, NameOf(options.capture),
                          [&](const std::string& stage) { progress.Begin(stage); });
        progress.Begin("output");
        const Workbench::ValidPart written =
            options.whole ? Workbench::ValidPart{0, result.samples.size()} : result.valid;
        if (!options.output.empty())
            WriteRecord(options.output, written.Of(result.samples), input.interval,
                        input.start + static_cast<double>(written.first) * input.interval);
    }
    stageNotes.Print(chain);
    const std::string lockText = input.acquisition ? LockAsText(*input.acquisition) + "\n" : "";
    PrintReport(
        options.json ? ReportAsJson(result.stages, input.acquisition) + "\n" : lockText + TableOf(result.stages),
        options.output);
    // Behind the table, which does not need gnuplot.
    if (!options.eyePrefix.empty())
        DrawEyes(options, input, result);
    if (!options.tapsPrefix.empty())
        DrawStageTaps(options, chain, result);
}

}  // namespace

void AddApply(const CommandLine& command)
{
    auto options = std::make_shared<ApplyOptions>();
    command.AddOption("chain", options->chain, "Chain file (JSON): the device and the filters").Required();
    AddCaptureOptions(command, options->capture);
    AddFactOptions(command, options->facts);
    command.AddOption(
        "-o,--output", options->output,
        "Filtered capture: .csv, .txt or .npy, or - for CSV on standard output, the report then on standard "
        "error; left out: only the report");
    command.AddFlag("--whole", options->whole, "Write the ends of a single shot too, which the filters have spoilt");
    command.AddOption("--eye", options->eyePrefix, "Draw PREFIX-before.png, PREFIX-after.png and PREFIX-bathtub.png")
        .TypeName("PREFIX");
    command
        .AddOption("--taps", options->tapsPrefix,
                   "Draw PREFIX-ffe-N.png or PREFIX-dfe-N.png for each filter N with taps: the taps, and the pulse "
                   "response in front of it and behind it by linear fit")
        .TypeName("PREFIX");
    command.AddFlag("--json", options->json, "Print the stages as JSON");
    command.Footer("Filters are numbered as in the file, from 0. ");
    command.OnRun([options] { Apply(*options); });
}

}  // namespace Tarnwick::App
