// tarnwick measure: levels, eyes and TDECQ of a capture.
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "options.h"
#include "outputs.h"
#include "progress.h"
#include "workbench/acquisition.h"
#include "workbench/capturereport.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/signalquality.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;
using Workbench::SignalDescription;

struct Options {
    CaptureOptions capture;
    std::string coding;
    double samplesPerUi = 0.0;
    int patternLengthUi = 0;
    int numberOfTaps = 5;
    bool zeroIsDark = false;
    bool json = false;
};

// As the options say; what they leave out is found in the capture.
SignalDescription SignalOf(const Options& options, const Workbench::Waveform& capture)
{
    const std::vector<double>& samples = capture.samples;
    SignalDescription signal{.samplesPerUi = options.samplesPerUi,
                             .coding = Workbench::CodingOf(options.coding),
                             .patternLengthUi = options.patternLengthUi};
    if (signal.samplesPerUi <= 0.0) {
        const auto found = Workbench::FindSamplesPerUi(samples);
        if (!found)
            throw Workbench::DataFailure(
                fmt::format("{}: the samples per UI cannot be told; give --samples-per-ui", options.capture.name));
        signal.samplesPerUi = found->value;
    }
    if (capture.interval > 0.0)
        signal.symbolRateGBd = 1e-9 / (capture.interval * signal.samplesPerUi);
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

void Run(const Options& options)
{
    const Workbench::Waveform capture = ReadCapture(options.capture);
    const SignalDescription signal = SignalOf(options, capture);
    Workbench::SignalQuality quality;
    {
        Progress progress(1);
        progress.Begin("measure");
        quality = Workbench::MeasureSignalQuality(capture.samples, signal, options.numberOfTaps, options.capture.name);
    }
    const auto zero = options.zeroIsDark ? Workbench::ZeroVolts::Dark : Workbench::ZeroVolts::Unknown;
    PrintReport(options.json ? QualityAsJson(quality, signal, zero) + "\n" : QualityAsText(quality, signal, zero));
}

}  // namespace

void AddMeasure(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    AddCaptureOptions(command, options->capture);
    command.add_option("--coding", options->coding, "Line coding; found from open eyes when left out")
        ->check(OneOf(Workbench::CodingNames()));
    command.add_option("--samples-per-ui", options->samplesPerUi, "Samples per UI; found when left out")
        ->check(RealRange(1.0, 1e6));
    command.add_option("--pattern-length", options->patternLengthUi, "UI in the pattern; found when left out")
        ->check(WholeRange(1, 2147483647));
    command.add_option("--taps", options->numberOfTaps, "Taps of the reference equaliser")
        ->check(WholeRange(1, 64))
        ->capture_default_str();
    command.add_flag("--extinction-ratio", options->zeroIsDark, "Tell the extinction ratio too: 0 V is a dark line");
    command.add_flag("--json", options->json, "Print as JSON; null where nothing was found");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
