// tarnwick apply: a capture through a chain of filters.
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture.h"
#include "commands/commands.h"
#include "notes.h"
#include "pictures/bathtubplot.h"
#include "pictures/eyeplot.h"
#include "progress.h"
#include "workbench/chain.h"
#include "workbench/eye.h"
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

void PrintTable(const std::vector<Workbench::StageReport>& reports)
{
    fmt::print("{:<16} {:<16} {:<22} {:<26} {:>11} {:>8} {:>9} {:>5} {:>10} {:>10} {:>10} {:>9}\n", "stage",
               "eye open %", "eye widths UI", "eye heights V", "BER", "phase UI", "samples", "reps", "mean V", "rms V",
               "p-p V", "seconds");
    for (const Workbench::StageReport& report : reports)
        fmt::print("{:<16} {:<16} {:<22} {:<26} {:>11} {:>8.3f} {:>9} {:>5} {:>10.4g} {:>10.4g} {:>10.4g} {:>9.2g}\n",
                   report.name, OpeningsText(report.eye), WidthsText(report.eye), HeightsText(report.eye),
                   BerText(report.eye), report.eye.phaseUi, report.samples, report.repetitions, report.mean, report.rms,
                   report.peakToPeak, report.seconds);
    std::vector<std::string> decided;
    for (const Workbench::StageReport& report : reports)
        if (!report.eye.eyes.empty() && !report.eye.symbolsKnown)
            decided.push_back(report.name);
    if (!decided.empty())
        fmt::print("eyes of {}: symbols decided from the samples, which flatters an eye that is closed\n",
                   fmt::join(decided, ", "));
    for (const Workbench::StageReport& report : reports) {
        if (report.findings.empty())
            continue;
        const nlohmann::json findings = nlohmann::json::parse(report.findings);
        for (const auto& [name, value] : findings.items())
            fmt::print("{} {}: {}\n", report.name, name, FindingText(value));
    }
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
    for (const Workbench::Stage& stage : chain.Stages())
        PrintNotes(stage.notes);

    Workbench::ChainResult result;
    {
        Progress progress(chain.Stages().size() + (options.eyePrefix.empty() ? 2 : 4));
        result = RunChain(chain, capture.samples, options.capture.name,
                          [&](const std::string& stage) { progress.Begin(stage); });
        progress.Begin("output");
        Workbench::WriteWaveform(options.output, result.samples, capture.interval, capture.start);
        if (!options.eyePrefix.empty()) {
            const VoltageRange range = RangeOf(capture.samples, result.samples);
            Workbench::EyeSettings settings = EyeSettingsOf(chain);
            settings.withBathtub = true;
            const std::string name = std::filesystem::path(options.capture.name).filename().string();
            progress.Begin("eye before");
            const BathtubCurve before{"as read", MeasureEyes(capture.samples, settings)};
            DrawEye(options.eyePrefix + "-before.png", capture.samples, chain.SamplesPerUi(), before.eye, range,
                    name + " as read");
            progress.Begin("eye after");
            const BathtubCurve after{"behind " + result.stages.back().name, MeasureEyes(result.samples, settings)};
            DrawEye(options.eyePrefix + "-after.png", result.samples, chain.SamplesPerUi(), after.eye, range,
                    name + " " + after.name);
            const BathtubCurve curves[] = {before, after};
            DrawBathtub(options.eyePrefix + "-bathtub.png", curves, name);
        }
    }
    if (options.json)
        fmt::print("{}\n", ReportAsJson(result.stages));
    else
        PrintTable(result.stages);
}

}  // namespace

void AddApply(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    command.add_option("chain", options->chain, "Chain file (JSON): the device and the filters")->required();
    AddCaptureOptions(command, options->capture);
    command.add_option("-o,--output", options->output, "Filtered capture: .csv, .txt or .npy")->required();
    command.add_option("--eye", options->eyePrefix, "Draw PREFIX-before.png, PREFIX-after.png and PREFIX-bathtub.png")
        ->type_name("PREFIX");
    command.add_flag("--json", options->json, "Print the stages as JSON");
    command.callback([options] { Apply(*options); });
}

}  // namespace Tarnwick::App
