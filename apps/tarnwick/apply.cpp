// tarnwick apply: a capture through a chain of filters.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "chain.h"
#include "commands.h"
#include "eye.h"
#include "eyeplot.h"
#include "failure.h"
#include "pattern.h"
#include "progress.h"
#include "run.h"
#include "waveform.h"

namespace Tarnwick::App {

namespace {

struct Options {
    std::string chain;
    std::string capture;
    std::string output;
    std::string minus;
    std::string eyePrefix;
    int skipLines = 0;
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

std::vector<double> Subtract(std::vector<double> plus, const Waveform& minus, const Options& options)
{
    if (minus.samples.size() != plus.size())
        throw DataFailure(fmt::format("{}: has {} samples; expected {}, as {} has", options.minus, minus.samples.size(),
                                      plus.size(), options.capture));
    std::transform(plus.begin(), plus.end(), minus.samples.begin(), plus.begin(), std::minus<>());
    return plus;
}

nlohmann::ordered_json ToJson(const std::vector<StageReport>& reports)
{
    nlohmann::ordered_json stages = nlohmann::ordered_json::array();
    for (const StageReport& report : reports) {
        nlohmann::ordered_json eyes = nlohmann::ordered_json::array();
        for (const EyeOpening& eye : report.eye.eyes)
            eyes.push_back({{"height", eye.height}, {"widthUi", eye.widthUi}});
        stages.push_back({{"name", report.name},
                          {"samples", report.samples},
                          {"repetitions", report.repetitions},
                          {"mean", report.mean},
                          {"rms", report.rms},
                          {"peakToPeak", report.peakToPeak},
                          {"levels", report.eye.levels},
                          {"eyes", eyes},
                          {"phaseUi", report.eye.phaseUi},
                          {"seconds", report.seconds}});
    }
    return {{"stages", stages}};
}

template <typename Value, typename Get>
std::string Joined(const std::vector<Value>& values, Get get)
{
    std::string text;
    for (const Value& value : values)
        text += fmt::format("{}{:.4g}", text.empty() ? "" : " ", get(value));
    return text.empty() ? "-" : text;
}

void PrintTable(const std::vector<StageReport>& reports)
{
    fmt::print("{:<16} {:>9} {:>5} {:>10} {:>10} {:>10}  {:<26} {:<22} {:>8} {:>9}\n", "stage", "samples", "reps",
               "mean V", "rms V", "p-p V", "eye heights V", "eye widths UI", "phase UI", "seconds");
    for (const StageReport& report : reports)
        fmt::print("{:<16} {:>9} {:>5} {:>10.4g} {:>10.4g} {:>10.4g}  {:<26} {:<22} {:>8.3f} {:>9.2g}\n", report.name,
                   report.samples, report.repetitions, report.mean, report.rms, report.peakToPeak,
                   Joined(report.eye.eyes, [](const EyeOpening& eye) { return eye.height; }),
                   Joined(report.eye.eyes, [](const EyeOpening& eye) { return eye.widthUi; }), report.eye.phaseUi,
                   report.seconds);
}

void RequireEyes(const Chain& chain, const Options& options)
{
    if (options.eyePrefix.empty())
        return;
    if (LevelCount(chain.Device().signalCoding) < 2)
        throw UsageFailure(fmt::format("{}: device.signalCoding: is missing; --eye needs it", options.chain));
    if (chain.SamplesPerUi() < 1.0)
        throw UsageFailure(fmt::format("{}: device.samplesPerUi: is missing; --eye needs it", options.chain));
}

// A chain file made for another capture is the likeliest mistake of all.
void WarnOfInterval(const Waveform& capture, const Chain& chain, const Options& options)
{
    const double seen = 1e-9 / (chain.Device().baudRateGBd * capture.interval);
    if (std::isfinite(seen) && std::abs(seen - chain.SamplesPerUi()) > 0.01 * seen)
        fmt::print(stderr, "tarnwick: {}: its times give {:.4g} samples per UI at {} GBd; {} says {:.4g}\n",
                   options.capture, seen, chain.Device().baudRateGBd, options.chain, chain.SamplesPerUi());
}

void Apply(const Options& options)
{
    RequireWaveformName(options.output);
    Waveform capture = ReadWaveform(options.capture, static_cast<std::size_t>(options.skipLines));
    std::vector<std::string> notes = capture.notes;
    if (!options.minus.empty()) {
        const Waveform minus = ReadWaveform(options.minus, static_cast<std::size_t>(options.skipLines));
        notes.insert(notes.end(), minus.notes.begin(), minus.notes.end());
        capture.samples = Subtract(std::move(capture.samples), minus, options);
    }
    for (const std::string& note : notes)
        fmt::print(stderr, "tarnwick: {}\n", note);
    if (capture.samples.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        throw DataFailure(
            fmt::format("{}: has {} samples; expected at most 2147483647", options.capture, capture.samples.size()));
    Chain chain(options.chain, capture.samples.size());
    RequireEyes(chain, options);
    WarnOfInterval(capture, chain, options);

    std::vector<double> samples = capture.samples;
    std::vector<StageReport> reports;
    {
        Progress progress(chain.Stages().size() + (options.eyePrefix.empty() ? 2 : 4));
        progress.Begin("capture");
        reports.push_back(Describe("capture", samples, chain, 0.0));
        for (Stage& stage : chain.Stages()) {
            progress.Begin(stage.name);
            const auto start = std::chrono::steady_clock::now();
            samples = RunStage(stage, samples, options.chain, options.capture);
            const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
            reports.push_back(Describe(stage.name, samples, chain, taken.count()));
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
    command->add_option("capture", options->capture, "Capture: text with one value a line, CSV, or .npy")->required();
    command->add_option("-o,--output", options->output, "Filtered capture: .csv, .txt or .npy")->required();
    command->add_option("--minus", options->minus, "Second capture to subtract (differential pairs)");
    command->add_option("--skip-lines", options->skipLines, "Lines to drop at the head of a text capture")
        ->check(CLI::Range(0, 1000000000));
    command->add_option("--eye", options->eyePrefix, "Draw PREFIX-before.png and PREFIX-after.png")
        ->type_name("PREFIX");
    command->add_flag("--json", options->json, "Print the stages as JSON");
    command->footer("Example: tarnwick apply chain.json capture.csv -o filtered.csv --eye eye");
    command->callback([options] { Apply(*options); });
}

}  // namespace Tarnwick::App
