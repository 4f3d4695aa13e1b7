// The one loop that cuts a record into repetitions of the pattern and convolves each.
#pragma once

#include <cstddef>
#include <functional>
#include <span>

#include "framework/plumbing/kernelconvolver.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/signaldata.h"

namespace Tarnwick::DSO::Filters {

/// How a record falls into repetitions: `count` pieces of sampleCount / count samples each, one after the other. The
/// samples past the last piece belong to none.
struct Repetitions {
    Repetitions(int sampleCount, int repetitions)
        : count(repetitions > 0 ? static_cast<std::size_t>(repetitions) : 0),
          length(repetitions > 0 ? static_cast<std::size_t>(sampleCount / repetitions) : 0)
    {
    }
    std::size_t count;
    std::size_t length;
};

/// The samples of a signal.
/// @throws std::invalid_argument  signal is null, its sampleCount negative, or its samples null though it has some
std::span<const double> SamplesOf(const char* filter, const SystemFramework::SignalData* signal);

/// An array that a host gives.
/// @throws std::invalid_argument  the count is negative, or the array null though it has values; the names are in the text
std::span<const double> ArrayOf(const char* filter, const char* name, const double* values, const char* countName,
                                int count);

/// What a filter does around the convolution of a repetition; `after` only when it has succeeded.
struct RepetitionHooks {
    std::function<void()> before;
    std::function<void()> after;
};

/// Each repetition of the record as one period of a periodic signal, convolved circularly with the taps.
/// @param convolver  the filter's own: it keeps what depends on the taps alone for the next record
/// @return as many values as the record; zero past the last repetition
SystemFramework::OwnedArray ConvolveRepetitions(std::span<const double> record, Repetitions cut,
                                                std::span<const double> taps,
                                                SystemFramework::KernelConvolver& convolver,
                                                const RepetitionHooks& hooks = {});

}  // namespace Tarnwick::DSO::Filters
