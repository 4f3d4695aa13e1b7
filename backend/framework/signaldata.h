#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// One captured waveform. Copies are member-wise: a copy names the same sample arrays and owns none of them.
///
/// The arrays belong to whoever filled the record; no filter writes into them or releases them. The fields whose
/// name starts with `framework` are carried for the host and read by no filter.
class TARNWICK_FRAMEWORK_API SignalData {
public:
    std::int32_t frameworkId = 0;
    std::int32_t sampleCount = 0;  ///< number of samples in the waveform
    std::int32_t frameworkValue1 = 0;
    std::int32_t frameworkValue2 = 0;
    std::int32_t frameworkValue3 = 0;
    std::int32_t frameworkValue4 = 0;
    std::int32_t frameworkValue5 = 0;
    std::int32_t frameworkValue6 = 0;
    double* auxSamples1 = nullptr;  ///< further array of sampleCount values, or null
    std::int64_t frameworkStamp = 0;
    double* auxSamples2 = nullptr;  ///< further array of sampleCount values, or null
    double* samples = nullptr;      ///< the waveform [V], sampleCount values in time order
    double frameworkScale1 = 0.0;
    double frameworkScale2 = 0.0;
    double frameworkScale3 = 0.0;
    double frameworkScale4 = 0.0;
    std::vector<double> frameworkValues;
    std::int64_t frameworkCount = 0;
    std::int32_t frameworkFlag1 = 0;
    std::int32_t frameworkFlag2 = 0;
    std::map<std::int32_t, double> frameworkMap;
};

}  // namespace Tarnwick::DSO::SystemFramework
