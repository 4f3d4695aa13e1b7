// Records, configurations and waveforms for tests.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/deviceconfiguration.h"
#include "framework/signaldata.h"

namespace Tarnwick::Testing {

/// A signal that owns its samples.
class Record : public DSO::SystemFramework::SignalData {
public:
    explicit Record(std::vector<double> values);
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    const std::vector<double>& Values() const { return values_; }

private:
    std::vector<double> values_;
};

std::vector<double> Constant(double value, std::size_t count);

/// Values from -1 to 1, the same for the same seed on every platform.
std::vector<double> RandomValues(std::size_t count, std::uint64_t seed);
/// The same values in pairs, as real and imaginary parts.
std::vector<std::complex<double>> RandomComplex(std::size_t count, std::uint64_t seed);

/// One period of x^order + x^tap + 1, 2^order - 1 bits.
std::vector<int> PrbsLevels(std::size_t order, std::size_t tap);

/// `repetitions` times the values, one after the other.
std::vector<double> Tiled(const std::vector<double>& values, std::size_t repetitions);

/// All four channels locked.
DSO::DeviceConfiguration Configuration(int samplesPerUi, int patternLengthUi, double baudRateGBd = 26.5625);
/// With uiDuration / sampleSpacing samples per UI, whatever the whole number says.
DSO::DeviceConfiguration FractionallySampled(DSO::DeviceConfiguration config, double uiDuration,
                                             double sampleSpacing = 1.0);

}  // namespace Tarnwick::Testing
