#include "filters/plumbing/repetitions.h"

#include <algorithm>

#include "framework/plumbing/error.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::NewArray;
using SystemFramework::OwnedArray;
using SystemFramework::Refuse;

std::span<const double> SamplesOf(const char* filter, const SystemFramework::SignalData* signal)
{
    if (signal == nullptr)
        Refuse(filter, "signal", "null", "a captured waveform");
    if (signal->sampleCount < 0)
        Refuse(filter, "sampleCount", signal->sampleCount, "0 or more samples");
    if (signal->samples == nullptr && signal->sampleCount > 0)
        Refuse(filter, "samples", "null", "an array of sampleCount values");
    return {signal->samples, static_cast<std::size_t>(signal->sampleCount)};
}

std::span<const double> ArrayOf(const char* filter, const char* name, const double* values, const char* countName,
                                int count)
{
    if (count < 0)
        Refuse(filter, countName, count, "0 or more values");
    if (values == nullptr && count > 0)
        Refuse(filter, name, "null", "an array of values");
    return {values, static_cast<std::size_t>(count)};
}

OwnedArray ConvolveRepetitions(std::span<const double> record, Repetitions cut, std::span<const double> taps,
                               SystemFramework::KernelConvolver& convolver, const RepetitionHooks& hooks)
{
    OwnedArray result = NewArray(record.size());
    const std::size_t written = cut.count * cut.length;
    if (written > 0)
        convolver.Prepare(taps, cut.length);
    for (std::size_t begin = 0; begin < written; begin += cut.length) {
        if (hooks.before)
            hooks.before();
        convolver.Convolve(record.subspan(begin, cut.length), {result.get() + begin, cut.length});
        if (hooks.after)
            hooks.after();
    }
    std::fill(result.get() + written, result.get() + record.size(), 0.0);
    return result;
}

}  // namespace Tarnwick::DSO::Filters
