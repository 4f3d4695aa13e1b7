// The identity: y[k] = x[k]. For a processing chain that needs a filter object but no change to the waveform.
// No error: the samples come back bit for bit.
#pragma once

#include <cstdint>

#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"

namespace Tarnwick::DSO::Filters {

class TARNWICK_FILTERS_API CopyParameters : public SystemFramework::BaseFilterParameters {
public:
    CopyParameters() = default;
    CopyParameters(DeviceConfiguration* config) : BaseFilterParameters(config) {}

    // Carried for hosts that treat every parameters class alike; read by nothing here.
    std::int64_t value1 = 0;
    std::int64_t value2 = 0;
    std::int64_t value3 = 0;
    std::int64_t value4 = 0;
    std::int64_t value5 = 0;
    std::int64_t value6 = 0;
    std::int64_t value7 = 0;
};

class TARNWICK_FILTERS_API Copy : public SystemFramework::BaseFilter {
public:
    /// @param parameters  not owned; kept, never read: there is no pattern-lock check
    Copy(CopyParameters* parameters);

    /// @return new array of signal->sampleCount values, byte for byte the samples; the caller releases it with
    ///         ::operator delete. No samples give a valid empty allocation.
    /// @throws std::invalid_argument  signal is null, its count negative, or its samples null though it has some
    double* Apply(SystemFramework::SignalData* signal) override;
};

}  // namespace Tarnwick::DSO::Filters
