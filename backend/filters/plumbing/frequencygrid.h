// The record's frequency axis and the noise step of the kernel builders.
#pragma once

#include <complex>
#include <span>

#include "framework/basefilterparameters.h"
#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::Filters {

/// Samples of the whole record: patternRepeats patternLengthUi samplesPerUi, always with the integer samples per UI.
/// Deliberate.
/// @throws std::invalid_argument  the product is negative or does not fit 32 bits
int RecordLength(const char* filter, const DeviceConfiguration& config);

/// k (samplesPerUi baudRateGBd 1e9) / N [Hz], k = 0 .. N - 1, N the record's length as above.
/// @throws std::invalid_argument  as RecordLength
SystemFramework::OwnedArray RecordFrequencyGrid(const char* filter, const DeviceConfiguration& config);

/// Passes the bins (bin M - k the conjugate of bin k) through the noise-preserving correction when the parameters ask
/// for it. A correction that does not apply leaves the bins as they are and switches `preserveNoise` off.
/// @param spacing  [Hz] between two bins: the frequencies at which they were evaluated, which for several repetitions
///                 or fractional sampling are not those of the record's axis
void PreserveNoise(SystemFramework::BaseFilterParameters& parameters, std::span<std::complex<double>> bins,
                   double spacing);

}  // namespace Tarnwick::DSO::Filters
