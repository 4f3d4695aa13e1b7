// tarnwick apply: a capture through a chain of filters.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture.h"
#include "commands/commands.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/eyeplot.h"
#include "progress.h"
#include "workbench/chain.h"
#include "workbench/eyereport.h"
#include "workbench/run.h"
#include "workbench/symbols.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct Options {
    std::string chain;
    CaptureOptions capture;
    std::string output;
    std::string eyePrefix;
    bool json = false;
};

// Five digits: more than the measurement is good for.
std::string FindingText(const nlohmann::json& value)
{
    if (value.is_number_float())
        return fmt::format("{:.5g}", value.get<double>());
    if (!value.is_array())
        return value.is_string() ? value.get<std::string>() : value.dump();
    std::string text;
    for (const nlohmann::json& each : value)
        text += (text.empty() ? "" : " ") + FindingText(each);
    return text;
}

std::string TableOf(const std::vector<Workbench::StageReport>& reports)
{
    // Three eyes are three numbers: their columns are as wide as the longest, or one would run into the next.
    std::size_t heights = std::string_view("eye heights V").size();
    std::size_t widths = std::string_view("eye widths UI").size();
    for (const Workbench::StageReport& report : reports) {
        heights = std::max(heights, HeightsText(report.eye).size());
        widths = std::max(widths, WidthsText(report.eye).size());
    }
    std::string text = fmt::format("{:<16} {:>9} {:>5} {:>10} {:>10} {:>10}  {:<{}}  {:<{}}  {:>8} {:>9}\n", "stage",
                                   "samples", "reps", "mean V", "rms V", "p-p V", "eye heights V", heights,
                                   "eye widths UI", widths, "phase UI", "seconds");
    for (const Workbench::StageReport& report : reports)
        text += fmt::format("{:<16} {:>9} {:>5} {:>10.4g} {:>10.4g} {:>10.4g}  {:<{}}  {:<{}}  {:>8.3f} {:>9.2g}\n",
                            report.name, report.samples, report.repetitions, report.mean, report.rms, report.peakToPeak,
                            HeightsText(report.eye), heights, WidthsText(report.eye), widths, report.eye.phaseUi,
                            report.seconds);
    for (const Workbench::StageReport& report : reports) {
        if (report.findings.empty())
            continue;
        const nlohmann::json findings = nlohmann::json::parse(report.findings);
        for (const auto& [name, value] : findings.items())
            if (name != "appliedTaps" || value != findings.value("taps", nlohmann::json()))
                text += fmt::format("{} {}: {}\n", report.name, name, FindingText(value));
    }
    return text;
}

// A chain that is run again must find what it read the first time.
void RequireOutputsApart(Workbench::Chain& chain, const Options& options)
{
    std::vector<std::string> inputs = {options.chain, options.capture.name, options.capture.minus};
    for (const Workbench::Stage& stage : chain.Stages())
        inputs.insert(inputs.end(), stage.files.begin(), stage.files.end());
    RequireApart("--output", options.output, inputs);
    if (!options.eyePrefix.empty())
        for (const char* const end : {"-before.png", "-after.png"})
            RequireApart("--eye", options.eyePrefix + end, inputs);
}

void Apply(const Options& options)
{
    Workbench::RequireWaveformName(options.output);
    Workbench::Waveform capture = ReadCapture(options.capture);
    std::vector<std::string> notes;
    const Workbench::ChainFile file =
        WithSymbols(Workbench::ChainFile(options.chain), capture.samples, options.capture.name, notes);
    PrintNotes(notes);
    Workbench::Chain chain(file, capture.samples.size());
    if (!options.eyePrefix.empty())
        RequireEyes(chain, options.chain, "--eye");
    WarnOfInterval(capture, chain, options.capture);
    KeepWholeRepetitions(capture.samples, chain, options.capture);
    StageNotes stageNotes;
    stageNotes.Print(chain);
    RequireOutputsApart(chain, options);

    Workbench::ChainResult result;
    {
        Progress progress(chain.Stages().size() + 2);
        result = RunChain(chain, capture.samples, options.capture.name,
                          [&](const std::string& stage) { progress.Begin(stage); });
        progress.Begin("output");
        Workbench::WriteWaveform(options.output, result.samples, capture.interval, capture.start);
    }
    stageNotes.Print(chain);
    PrintReport(options.json ? ReportAsJson(result.stages) + "\n" : TableOf(result.stages));
    if (options.eyePrefix.empty())
        return;
    // Behind the table, which does not need gnuplot.
    const VoltageRange range = RangeOf(capture.samples, result.samples);
    Progress progress(2);
    progress.Begin("eye before");
    DrawEye(options.eyePrefix + "-before.png", capture.samples, chain.SamplesPerUi(), result.stages.front().eye, range,
            "Capture as read");
    progress.Begin("eye after");
    DrawEye(options.eyePrefix + "-after.png", result.samples, chain.SamplesPerUi(), result.stages.back().eye, range,
            "Behind " + result.stages.back().name);
}

}  // namespace

void AddApply(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    command.add_option("chain", options->chain, "Chain file (JSON): the device and the filters")->required();
    AddCaptureOptions(command, options->capture);
    command.add_option("-o,--output", options->output, "Filtered capture: .csv, .txt or .npy")->required();
    command.add_option("--eye", options->eyePrefix, "Draw PREFIX-before.png and PREFIX-after.png")->type_name("PREFIX");
    command.add_flag("--json", options->json, "Print the stages as JSON");
    command.callback([options] { Apply(*options); });
}

}  // namespace Tarnwick::App
