#include "capture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>

#include <fmt/format.h>

#include "workbench/failure.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

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
    const auto skipLines = static_cast<std::size_t>(options.skipLines);
    Waveform capture = ReadWaveform(options.name, skipLines);
    if (!options.minus.empty()) {
        const Waveform minus = ReadWaveform(options.minus, skipLines);
        if (minus.samples.size() != capture.samples.size())
            throw DataFailure(fmt::format("{}: has {} samples; expected {}, as {} has", options.minus,
                                          minus.samples.size(), capture.samples.size(), options.name));
        std::transform(capture.samples.begin(), capture.samples.end(), minus.samples.begin(), capture.samples.begin(),
                       std::minus<>());
        capture.notes.insert(capture.notes.end(), minus.notes.begin(), minus.notes.end());
    }
    for (const std::string& note : capture.notes)
        fmt::print(stderr, "tarnwick: {}\n", note);
    if (capture.samples.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        throw DataFailure(
            fmt::format("{}: has {} samples; expected at most 2147483647", options.name, capture.samples.size()));
    return capture;
}

void WarnOfInterval(const Waveform& capture, const Chain& chain, const CaptureOptions& options,
                    const std::string& chainName)
{
    const double seen = 1e-9 / (chain.Device().baudRateGBd * capture.interval);
    if (std::isfinite(seen) && std::abs(seen - chain.SamplesPerUi()) > 0.01 * seen)
        fmt::print(stderr, "tarnwick: {}: its times give {:.4g} samples per UI at {} GBd; {} says {:.4g}\n",
                   options.name, seen, chain.Device().baudRateGBd, chainName, chain.SamplesPerUi());
}

void KeepWholeRepetitions(std::vector<double>& samples, const Chain& chain, const CaptureOptions& options)
{
    const DSO::DeviceConfiguration& device = chain.Device();
    const std::int64_t period = std::int64_t{device.samplesPerUi} * device.patternLengthUi;
    if (device.useFractionalSampling || period < 1 || static_cast<std::int64_t>(samples.size()) < period)
        return;
    const std::size_t rest = samples.size() % static_cast<std::size_t>(period);
    if (rest == 0)
        return;
    samples.resize(samples.size() - rest);
    fmt::print(stderr, "tarnwick: {}: {} samples behind the last whole repetition are left out\n", options.name, rest);
}

}  // namespace Tarnwick::App
