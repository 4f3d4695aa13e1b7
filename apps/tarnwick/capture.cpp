#include "capture.h"

#include "notes.h"

namespace Tarnwick::App {

using DSO::Workbench::Chain;
using DSO::Workbench::Waveform;

void AddCaptureOptions(CLI::App& command, CaptureOptions& options)
{
    command.add_option("capture", options.name, "Capture: text with one value a line, CSV, or .npy")->required();
    command.add_option("--skip-lines", options.skipLines, "Lines to drop at the head of a text capture")
        ->check(CLI::Range(0, 1000000000));
}

void AddMinusOption(CLI::App& command, CaptureOptions& options)
{
    command.add_option("--minus", options.minus, "Second capture to subtract (differential pairs)");
}

Waveform ReadCapture(const CaptureOptions& options)
{
    Waveform capture =
        DSO::Workbench::ReadCapture({options.name, options.minus, static_cast<std::size_t>(options.skipLines)});
    PrintNotes(capture.notes);
    return capture;
}

void WarnOfInterval(const Waveform& capture, const Chain& chain, const CaptureOptions& options)
{
    PrintNote(IntervalNote(capture, chain, options.name));
}

void KeepWholeRepetitions(std::vector<double>& samples, const Chain& chain, const CaptureOptions& options)
{
    PrintNote(DSO::Workbench::KeepWholeRepetitions(samples, chain, options.name));
}

}  // namespace Tarnwick::App
