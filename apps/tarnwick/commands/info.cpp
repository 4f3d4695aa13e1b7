// tarnwick info: what a capture holds.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture.h"
#include "commands/commands.h"
#include "printing.h"
#include "workbench/acquisition.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;
using nlohmann::ordered_json;
using Workbench::Estimate;

struct Options {
    CaptureOptions capture;
    bool json = false;
};

struct CaptureContent {
    std::size_t sampleCount = 0;
    double interval = 0.0;  // [s] 0: not in the file
    Workbench::SampleStatistics statistics;
    std::optional<Estimate> samplesPerUi;
    double symbolRateGBd = 0.0;  // 0: not found
    std::optional<Estimate> period;
    std::vector<double> levels;
};

ordered_json ToJson(const std::optional<Estimate>& estimate)
{
    if (!estimate)
        return nullptr;
    return {{"value", estimate->value}, {"confidence", NameOf(estimate->confidence)}};
}

ordered_json ToJson(const CaptureContent& content)
{
    return {{"samples", content.sampleCount},
            {"interval", content.interval > 0.0 ? ordered_json(content.interval) : ordered_json()},
            {"min", content.statistics.low},
            {"max", content.statistics.high},
            {"mean", content.statistics.mean},
            {"rms", content.statistics.rms},
            {"samplesPerUi", ToJson(content.samplesPerUi)},
            {"symbolRateGBd", content.symbolRateGBd > 0.0 ? ordered_json(content.symbolRateGBd) : ordered_json()},
            {"period", ToJson(content.period)},
            {"levels", content.levels}};
}

std::string PeriodText(const CaptureContent& content)
{
    if (!content.period)
        return "not found: the record holds one repetition or less, or none";
    const double period = content.period->value;
    std::string text = fmt::format("{} samples", period);
    if (content.samplesPerUi)
        text += fmt::format(" = {:.6g} UI", period / content.samplesPerUi->value);
    return text + fmt::format(" ({}), {:.6g} repetitions", NameOf(content.period->confidence),
                              static_cast<double>(content.sampleCount) / period);
}

void Print(const CaptureContent& content)
{
    const auto row = [](const char* name, const std::string& value) {
        constexpr int kNameWidth = 18;
        PrintRow(kNameWidth, name, value);
    };
    const Workbench::SampleStatistics& statistics = content.statistics;
    row("samples", fmt::format("{}", content.sampleCount));
    row("sample interval", content.interval > 0.0 ? fmt::format("{:.6g} s", content.interval) : "not in the file");
    row("range", fmt::format("{:.6g} to {:.6g} V", statistics.low, statistics.high));
    row("mean, rms", fmt::format("{:.6g} V, {:.6g} V", statistics.mean, statistics.rms));
    row("samples per UI", content.samplesPerUi ? fmt::format("{:.6g} ({})", content.samplesPerUi->value,
                                                             NameOf(content.samplesPerUi->confidence))
                                               : "not found");
    row("symbol rate", content.symbolRateGBd > 0.0 ? fmt::format("{:.6g} GBd", content.symbolRateGBd) : "not found");
    row("pattern period", PeriodText(content));
    row("levels", content.levels.empty()
                      ? "not found: no level stands apart from the next"
                      : fmt::format("{}: {:.5g} V", content.levels.size(), fmt::join(content.levels, ", ")));
}

void Run(const Options& options)
{
    const Workbench::Waveform capture = ReadCapture(options.capture);
    CaptureContent content;
    content.sampleCount = capture.samples.size();
    content.interval = capture.interval;
    content.statistics = Workbench::StatisticsOf(capture.samples);
    content.samplesPerUi = Workbench::FindSamplesPerUi(capture.samples);
    const double samplesPerUi = content.samplesPerUi ? content.samplesPerUi->value : 0.0;
    content.period = Workbench::FindPeriod(capture.samples, samplesPerUi);
    if (content.samplesPerUi) {
        content.levels = Workbench::FindLevels(capture.samples, samplesPerUi);
        if (capture.interval > 0.0)
            content.symbolRateGBd = 1e-9 / (capture.interval * samplesPerUi);
    }
    if (options.json)
        fmt::print("{}\n", ToJson(content).dump(2));
    else
        Print(content);
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
