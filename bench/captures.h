// Configurations and records for the benchmarks: a locked pattern, noise as its samples.
#pragma once

#include <memory>
#include <random>
#include <vector>

#include "filters/filters.h"

namespace Tarnwick::Bench {

inline DSO::DeviceConfiguration Locked(int patternLengthUi, int samplesPerUi, int repetitions)
{
    DSO::DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = patternLengthUi;
    config.samplesPerUi = samplesPerUi;
    config.samplesPerPattern = patternLengthUi * samplesPerUi;
    config.patternRepeats = repetitions;
    config.patternLocked[0] = true;
    return config;
}

inline std::vector<double> Noise(std::size_t count)
{
    std::mt19937_64 bits(1);
    std::vector<double> values(count);
    for (double& value : values)
        value = static_cast<double>(bits() >> 11) * 0x1p-52 - 1.0;
    return values;
}

/// The moving average's constructors take no configuration; this class adds it, as a host's own would.
class WindowInConfiguration : public DSO::Filters::MovingAverageWindowSmoothingParameters {
public:
    WindowInConfiguration(DSO::DeviceConfiguration* config, int window)
    {
        static_cast<BaseFilterParameters&>(*this) = BaseFilterParameters(config);
        WindowLength = window;
    }
};

}  // namespace Tarnwick::Bench
