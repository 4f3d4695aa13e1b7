// The sizes that filters derive from the configuration, each in one place.
#pragma once

#include "framework/deviceconfiguration.h"

namespace Tarnwick::DSO::Filters {

/// Product of three sizes in 32 bits.
/// @throws std::invalid_argument  it does not fit; `what` names the product
int CheckedProduct(const char* filter, const char* what, int a, int b, int c = 1);

/// `value` without its fraction.
/// @throws std::invalid_argument  it is not finite or does not fit 32 bits; `what` names the value
int Truncated(const char* filter, const char* what, double value);

/// Samples per pattern: patternLengthUi uiDuration / sampleSpacing, multiplied first, without its fraction; or
/// samplesPerUi patternLengthUi.
/// @throws std::invalid_argument  the value is not finite or does not fit 32 bits
int SamplesPerPattern(const char* filter, const DeviceConfiguration& config);

/// Samples per UI as a real number: uiDuration / sampleSpacing or samplesPerUi.
double RealSamplesPerUi(const DeviceConfiguration& config);

/// Sample interval [s]: one UI over the whole samples per UI of a pattern of `samplesPerPattern`.
/// @throws std::invalid_argument  the symbol rate is not finite and positive, or a UI has no whole sample
double SampleInterval(const char* filter, const DeviceConfiguration& config, int samplesPerPattern);

/// Whole pattern repetitions in a record of `sampleCount` samples, formed as
/// sampleCount / (patternLengthUi (uiDuration / sampleSpacing)) or sampleCount / (samplesPerUi patternLengthUi),
/// without the fraction. Negative sizes give a negative count.
/// @throws std::invalid_argument  a repetition would have no sample
int WholeRepetitions(const char* filter, const DeviceConfiguration& config, int sampleCount);

}  // namespace Tarnwick::DSO::Filters
