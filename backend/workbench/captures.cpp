#include "workbench/captures.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>

#include <fmt/format.h>

#include "framework/filenames.h"
#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

Waveform ReadCapture(const CaptureSource& source)
{
    constexpr std::size_t kMostSamples = std::numeric_limits<std::int32_t>::max();
    Waveform capture = ReadWaveform(PathOf(source.name), source.options);
    if (!source.minus.empty()) {
        const Waveform minus = ReadWaveform(PathOf(source.minus), source.options);
        if (minus.samples.size() != capture.samples.size())
            throw DataFailure(fmt::format("{}: has {} samples; expected {}, as {} has", source.minus,
                                          minus.samples.size(), capture.samples.size(), source.name));
        std::transform(capture.samples.begin(), capture.samples.end(), minus.samples.begin(), capture.samples.begin(),
                       std::minus<>());
        if (capture.gap.empty())
            capture.gap = minus.gap;
        capture.notes.insert(capture.notes.end(), minus.notes.begin(), minus.notes.end());
    }
    if (capture.samples.size() > kMostSamples)
        throw DataFailure(
            fmt::format("{}: has {} samples; expected at most {}", source.name, capture.samples.size(), kMostSamples));
    return capture;
}

std::optional<std::string> KeepWholeRepetitions(std::vector<double>& samples, const Chain& chain,
                                                const std::string& name)
{
    const DeviceConfiguration& device = chain.Device();
    const std::int64_t period = std::int64_t{device.samplesPerUi} * device.patternLengthUi;
    if (device.useFractionalSampling || period < 1 || static_cast<std::int64_t>(samples.size()) < period)
        return std::nullopt;
    const std::size_t rest = samples.size() % static_cast<std::size_t>(period);
    if (rest == 0)
        return std::nullopt;
    samples.resize(samples.size() - rest);
    return fmt::format("{}: {} samples after the last whole repetition are left out", name, rest);
}

}  // namespace Tarnwick::DSO::Workbench
