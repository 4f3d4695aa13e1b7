// tarnwick measure: levels, eyes and TDECQ of a capture.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture.h"
#include "commands/commands.h"
#include "options.h"
#include "printing.h"
#include "progress.h"
#include "workbench/acquisition.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/signalquality.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;
using nlohmann::ordered_json;
using Workbench::SignalQuality;

constexpr const char* kAssumptions[] = {
    "the capture is taken behind the reference receiver, a fourth-order Bessel-Thomson response of half the symbol "
    "rate",
    "noise behind that receiver is white; the capture's own noise counts as part of the signal",
    "the symbols are those decided from the capture, the levels evenly spaced between the outer ones",
    "target symbol error ratio 4.8e-4 in two time slices 0.1 UI apart; the taps sum to 1, the largest is tap 1, 2 or 3",
};

struct Options {
    CaptureOptions capture;
    std::string coding;
    double samplesPerUi = 0.0;
    int patternLengthUi = 0;
    int numberOfTaps = 5;
    bool json = false;
};

// What the options give, and where they give nothing, what is found in the capture.
struct Signal {
    double samplesPerUi = 0.0;
    E_SIGNAL_CODING coding = SIGNAL_CODING_UNKNOWN;
    int patternLengthUi = 0;  // 0: not known
};

Signal SignalOf(const Options& options, const std::vector<double>& samples)
{
    Signal signal{options.samplesPerUi, CodingNamed(options.coding), options.patternLengthUi};
    if (signal.samplesPerUi <= 0.0) {
        const auto found = Workbench::FindSamplesPerUi(samples);
        if (!found)
            throw Workbench::DataFailure(
                fmt::format("{}: the samples per UI cannot be told; give --samples-per-ui", options.capture.name));
        signal.samplesPerUi = found->value;
    }
    if (signal.coding == SIGNAL_CODING_UNKNOWN) {
        const auto found = Workbench::FindCoding(samples, signal.samplesPerUi);
        if (!found)
            throw Workbench::DataFailure(fmt::format(
                "{}: the number of levels cannot be told (closed eyes?); give --coding", options.capture.name));
        signal.coding = *found;
    }
    if (signal.patternLengthUi == 0)
        signal.patternLengthUi = Workbench::FindPatternLengthUi(samples, signal.samplesPerUi);
    return signal;
}

ordered_json ToJson(const SignalQuality& quality, const Signal& signal)
{
    ordered_json report = {{"coding", Workbench::NameOf(signal.coding)},
                           {"samplesPerUi", signal.samplesPerUi},
                           {"patternLengthUi", signal.patternLengthUi},
                           {"levels", quality.eye.levels},
                           {"eyes", ordered_json::array()},
                           {"phaseUi", quality.eye.phaseUi},
                           {"symbolQuality", nullptr},
                           {"rlm", nullptr},
                           {"tdecqDb", nullptr}};
    for (const Workbench::EyeOpening& eye : quality.eye.eyes)
        report["eyes"].push_back({{"height", eye.height}, {"widthUi", eye.widthUi}});
    if (quality.symbols)
        report["symbolQuality"] = quality.symbols->quality;
    if (quality.levelMismatchRatio)
        report["rlm"] = *quality.levelMismatchRatio;
    if (const auto& equaliser = quality.equaliser) {
        report["closed"] = equaliser->leavesEyeClosed;
        if (!equaliser->leavesEyeClosed)
            report["tdecqDb"] = equaliser->tdecqDb;
        report["taps"] = equaliser->taps;
        report["mainCursor"] = equaliser->mainCursor + 1;
        report["oma"] = equaliser->oma;
        report["noiseRms"] = equaliser->noiseRms;
        report["noiseGain"] = equaliser->noiseGain;
        report["assumptions"] = kAssumptions;
    } else {
        report["whyNoTdecq"] = quality.whyNoTdecq;
    }
    return report;
}

void Print(const SignalQuality& quality, const Signal& signal)
{
    const auto row = [](const char* name, const std::string& value) {
        constexpr int kNameWidth = 16;
        PrintRow(kNameWidth, name, value);
    };
    row("coding", Workbench::NameOf(signal.coding));
    row("samples per UI", fmt::format("{:.6g}", signal.samplesPerUi));
    row("pattern", signal.patternLengthUi > 0 ? fmt::format("{} UI", signal.patternLengthUi) : "length not known");
    row("symbols", quality.symbols ? quality.symbols->Description(signal.coding) : "not found");
    row("levels V", quality.eye.levels.empty() ? "-" : fmt::format("{:.4g}", fmt::join(quality.eye.levels, " ")));
    row("eye heights V", HeightsText(quality.eye));
    row("eye widths UI", WidthsText(quality.eye));
    if (quality.levelMismatchRatio)
        row("RLM", fmt::format("{:.4f}", *quality.levelMismatchRatio));
    if (!quality.equaliser) {
        row("TDECQ", "not measured: " + quality.whyNoTdecq);
        return;
    }
    const Workbench::ReferenceEqualiser& equaliser = *quality.equaliser;
    row("TDECQ", equaliser.leavesEyeClosed ? "the eye stays closed behind the reference equaliser"
                                           : fmt::format("{:.2f} dB", equaliser.tdecqDb));
    row("  taps", fmt::format("{:.5f}, main cursor {}", fmt::join(equaliser.taps, " "), equaliser.mainCursor + 1));
    row("  OMA, noise V",
        fmt::format("{:.4g}, {:.4g} (noise gain {:.4f})", equaliser.oma, equaliser.noiseRms, equaliser.noiseGain));
    const char* heading = "  assuming that";
    for (const char* const assumption : kAssumptions)
        row(std::exchange(heading, ""), assumption);
}

void Run(const Options& options)
{
    const Workbench::Waveform capture = ReadCapture(options.capture);
    const Signal signal = SignalOf(options, capture.samples);
    SignalQuality quality;
    {
        Progress progress(1);
        progress.Begin("measure");
        quality = Workbench::MeasureSignalQuality(capture.samples, signal.samplesPerUi, signal.patternLengthUi,
                                                  signal.coding, options.numberOfTaps, options.capture.name);
    }
    if (options.json)
        fmt::print("{}\n", ToJson(quality, signal).dump(2));
    else
        Print(quality, signal);
}

}  // namespace

void AddMeasure(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    AddCaptureOptions(command, options->capture);
    AddMinusOption(command, options->capture);
    command.add_option("--coding", options->coding, "Line coding; found from open eyes when left out")
        ->check(CLI::IsMember(CodingNames(Precoded::Yes)));
    command.add_option("--samples-per-ui", options->samplesPerUi, "Samples per UI; found when left out")
        ->check(RealRange(1.0, 1e6));
    command.add_option("--pattern-length", options->patternLengthUi, "UI in the pattern; found when left out")
        ->check(CLI::Range(1, 2147483647));
    command.add_option("--taps", options->numberOfTaps, "Taps of the reference equaliser")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    command.add_flag("--json", options->json, "Print as JSON; null where nothing was found");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
