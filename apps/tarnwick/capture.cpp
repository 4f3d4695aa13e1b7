#include "capture.h"

#include <fmt/format.h>

#include "commandline.h"
#include "notes.h"
#include "outputs.h"
#include "workbench/failure.h"
#include "workbench/units.h"

namespace Tarnwick::App {

using DSO::Workbench::Waveform;

void AddReadingOptions(const CommandLine& command, CaptureOptions& options)
{
    constexpr double kMost = 1e12;
    command
        .AddOption("--skip-lines", options.reading.skipLines,
                   "Lines to drop at the head of a text capture; 0: numbers at its head are samples")
        .Check(WholeRange(0, 1000000000));
    command.AddOption("--column", options.reading.column, "Which column of a text capture holds the values")
        .TypeName("NAME|NUMBER");
    command.AddOption("--sample-rate", options.sampleRateGsps, "Sample rate, where the capture does not tell it [GS/s]")
        .Check(RealRange(1.0 / kMost, kMost))
        .TypeName("GSPS");
    command.AddOption("--scale", options.reading.scale, "Factor of every sample: for raw counts the volts of one")
        .Check(RealRange(-kMost, kMost));
}

void AddCaptureOptions(const CommandLine& command, CaptureOptions& options)
{
    command
        .AddOption(
            "capture", options.name,
            "Capture: text or CSV, .npy, or raw .f32, .f64, .i16; packed as .gz or not; - is text on standard input")
        .Required();
    command.AddOption("--minus", options.minus, "Second capture to subtract (differential pairs)");
    AddReadingOptions(command, options);
}

void AddCapturesOptions(const CommandLine& command, CapturesOptions& options)
{
    command
        .AddOption(
            "capture", options.names,
            "Capture, or several: text or CSV, .npy, or raw .f32, .f64, .i16; packed as .gz or not; - is text on "
            "standard input")
        .Required();
    command.AddOption("--minus", options.each.minus, "Capture to subtract from the one (differential pairs)");
    AddReadingOptions(command, options.each);
}

std::vector<std::string> FilesOf(const CapturesOptions& options)
{
    std::vector<std::string> files = options.names;
    files.push_back(options.each.minus);
    return files;
}

std::vector<DSO::Workbench::NamedCapture> ReadCaptures(const CapturesOptions& options)
{
    const bool areSeveral = options.names.size() > 1;
    if (areSeveral && !options.each.minus.empty())
        throw DSO::Workbench::UsageFailure(
            fmt::format("--minus: is {}; expected none for {} captures", options.each.minus, options.names.size()));
    std::vector<DSO::Workbench::NamedCapture> captures;
    for (const std::string& name : options.names) {
        if (areSeveral && name == kStandardStream)
            throw DSO::Workbench::UsageFailure(
                fmt::format("capture: is -, standard input, among {}; expected files", options.names.size()));
        CaptureOptions one = options.each;
        one.name = name;
        captures.push_back({NameOf(one), ReadCapture(one)});
    }
    return captures;
}

DSO::Workbench::WaveformOptions ReadingOf(const CaptureOptions& options)
{
    DSO::Workbench::WaveformOptions reading = options.reading;
    reading.sampleRate = options.sampleRateGsps * DSO::Workbench::kGiga;
    return reading;
}

std::string NameOf(const CaptureOptions& options)
{
    return options.name == kStandardStream ? "standard input" : options.name;
}

Waveform ReadCapture(const CaptureOptions& options)
{
    if (options.name == kStandardStream && options.minus == kStandardStream)
        throw DSO::Workbench::UsageFailure("--minus: is standard input, as the capture; expected a file");
    Waveform capture = DSO::Workbench::ReadCapture({options.name, options.minus, ReadingOf(options)});
    PrintNotes(capture.notes);
    return capture;
}

Waveform ReadCaptureToLock(const CaptureOptions& options, Progress& progress)
{
    progress.Begin("read");
    Waveform capture = ReadCapture(options);
    progress.Begin("lock");
    return capture;
}

DSO::Workbench::LockedCapture ReadLocked(const CaptureOptions& options, const DSO::Workbench::CaptureFacts& facts,
                                         Progress& progress)
{
    return Lock(ReadCaptureToLock(options, progress), facts, NameOf(options));
}

}  // namespace Tarnwick::App
