// tarnwick apply: a capture through a chain of filters.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <numeric>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture.h"
#include "commands/commands.h"
#include "pictures/eyeplot.h"
#include "progress.h"
#include "workbench/chain.h"
#include "workbench/eye.h"
#include "workbench/eyereport.h"
#include "workbench/pattern.h"
#include "workbench/run.h"
#include "workbench/symbols.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

namespace {

struct Options {
    std::string chain;
    CaptureOptions capture;
    std::string output;
    std::string eyePrefix;
    bool json = false;
};

// What is known of the waveform behind a stage.
struct StageReport {
    std::string name;
    std::size_t samples = 0;
    int repetitions = 0;
    double mean = 0.0;
    double rms = 0.0;
    double peakToPeak = 0.0;
    EyeReport eye;
    double seconds = 0.0;
    std::shared_ptr<const nlohmann::json> found;  // what the filter has found; null: nothing
};

StageReport Describe(const std::string& name, std::span<const double> samples, const Chain& chain, double seconds)
{
    StageReport report;
    report.name = name;
    report.samples = samples.size();
    report.repetitions = chain.Device().patternRepeats;
    const auto count = static_cast<double>(samples.size());
    report.mean = std::accumulate(samples.begin(), samples.end(), 0.0) / count;
    report.rms = std::sqrt(std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0) / count);
    const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
    report.peakToPeak = *high - *low;
    const int levels = LevelCount(chain.Device().signalCoding);
    if (levels > 1 && chain.SamplesPerUi() >= 1.0)
        report.eye = MeasureEyes(samples, chain.SamplesPerUi(), levels);
    report.seconds = seconds;
    return report;
}

nlohmann::ordered_json ToJson(const std::vector<StageReport>& reports)
{
    nlohmann::ordered_json stages = nlohmann::ordered_json::array();
    for (const StageReport& report : reports) {
        stages.push_back({{"name", report.name},
                          {"samples", report.samples},
                          {"repetitions", report.repetitions},
                          {"mean", report.mean},
                          {"rms", report.rms},
                          {"peakToPeak", report.peakToPeak},
                          {"levels", report.eye.levels},
                          {"eyes", EyesToJson(report.eye)},
                          {"phaseUi", report.eye.phaseUi},
                          {"seconds", report.seconds}});
        if (report.found)
            stages.back().update(*report.found);
    }
    return {{"stages", stages}};
}

// Five digits are more than any of it is good for.
std::string FoundText(const nlohmann::json& value)
{
    if (value.is_number_float())
        return fmt::format("{:.5g}", value.get<double>());
    if (!value.is_array())
        return value.is_string() ? value.get<std::string>() : value.dump();
    std::string text;
    for (const nlohmann::json& each : value)
        text += (text.empty() ? "" : " ") + FoundText(each);
    return text;
}

void PrintTable(const std::vector<StageReport>& reports)
{
    fmt::print("{:<16} {:>9} {:>5} {:>10} {:>10} {:>10}  {:<26} {:<22} {:>8} {:>9}\n", "stage", "samples", "reps",
               "mean V", "rms V", "p-p V", "eye heights V", "eye widths UI", "phase UI", "seconds");
    for (const StageReport& report : reports)
        fmt::print("{:<16} {:>9} {:>5} {:>10.4g} {:>10.4g} {:>10.4g}  {:<26} {:<22} {:>8.3f} {:>9.2g}\n", report.name,
                   report.samples, report.repetitions, report.mean, report.rms, report.peakToPeak,
                   HeightsText(report.eye), WidthsText(report.eye), report.eye.phaseUi, report.seconds);
    for (const StageReport& report : reports)
        if (report.found)
            for (const auto& [name, value] : report.found->items())
                fmt::print("{} {}: {}\n", report.name, name, FoundText(value));
}

void Apply(const Options& options)
{
    RequireWaveformName(options.output);
    Waveform capture = ReadCapture(options.capture);
    Chain chain(WithSymbols(ReadChainFile(options.chain), options.chain, capture.samples, options.capture.name),
                options.chain, capture.samples.size());
    if (!options.eyePrefix.empty())
        RequireEyes(chain, options.chain, "--eye");
    WarnOfInterval(capture, chain, options.capture, options.chain);
    KeepWholeRepetitions(capture.samples, chain, options.capture);
    for (const Stage& stage : chain.Stages())
        for (const std::string& note : stage.notes)
            fmt::print(stderr, "tarnwick: {}\n", note);

    std::vector<double> samples = capture.samples;
    std::vector<StageReport> reports;
    {
        Progress progress(chain.Stages().size() + (options.eyePrefix.empty() ? 2 : 4));
        progress.Begin("capture");
        reports.push_back(Describe("capture", samples, chain, 0.0));
        for (Stage& stage : chain.Stages()) {
            progress.Begin(stage.name);
            const auto start = std::chrono::steady_clock::now();
            samples = RunStage(stage, samples, options.chain, options.capture.name);
            const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
            reports.push_back(Describe(stage.name, samples, chain, taken.count()));
            if (stage.found)
                reports.back().found = std::make_shared<const nlohmann::json>(stage.found(samples));
        }
        progress.Begin("output");
        WriteWaveform(options.output, samples, capture.interval, capture.start);
        if (!options.eyePrefix.empty()) {
            const VoltageRange range = RangeOf(capture.samples, samples);
            progress.Begin("eye before");
            DrawEye(options.eyePrefix + "-before.png", capture.samples, chain.SamplesPerUi(), reports.front().eye,
                    range, "Capture as read");
            progress.Begin("eye after");
            DrawEye(options.eyePrefix + "-after.png", samples, chain.SamplesPerUi(), reports.back().eye, range,
                    "Behind " + reports.back().name);
        }
    }
    if (options.json)
        fmt::print("{}\n", ToJson(reports).dump(2));
    else
        PrintTable(reports);
}

}  // namespace

void AddApply(CLI::App& program)
{
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand("apply", "Run a capture through a chain of filters");
    command->add_option("chain", options->chain, "Chain file (JSON): the device and the filters")->required();
    AddCaptureOptions(*command, options->capture);
    command->add_option("-o,--output", options->output, "Filtered capture: .csv, .txt or .npy")->required();
    AddMinusOption(*command, options->capture);
    command->add_option("--eye", options->eyePrefix, "Draw PREFIX-before.png and PREFIX-after.png")
        ->type_name("PREFIX");
    command->add_flag("--json", options->json, "Print the stages as JSON");
    command->footer("Example: tarnwick apply chain.json capture.csv -o filtered.csv --eye eye");
    command->callback([options] { Apply(*options); });
}

}  // namespace Tarnwick::App
