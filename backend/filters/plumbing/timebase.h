// The sizes that filters derive from the configuration, each in one place.
#pragma once

#include <string>

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

/// [Hz]
/// @throws std::invalid_argument  it is not finite and positive
double SymbolRate(const char* filter, const DeviceConfiguration& config);

/// Samples per UI as a real number: uiDuration / sampleSpacing or samplesPerUi.
double RealSamplesPerUi(const DeviceConfiguration& config);

/// The whole samples per UI: samplesPerUi, or uiDuration / sampleSpacing without its fraction.
/// @throws std::invalid_argument  the quotient is not finite or does not fit 32 bits
int WholeSamplesPerUi(const char* filter, const DeviceConfiguration& config);

/// One repetition of a pattern, counted with the real number of samples per UI; with a fraction one sample more or less
/// is the same repetition.
class PatternPeriod {
public:
    /// @param samplesPerUi  taken unless the configuration's sampling is fractional
    /// @throws std::invalid_argument  there are no symbols, or less than one sample
    PatternPeriod(const char* filter, const DeviceConfiguration& config, int samplesPerUi, int symbols);
    double SamplesPerUi() const { return samplesPerUi_; }
    /// Samples of one repetition.
    double Length() const { return length_; }
    /// Whole repetitions that fit.
    int CountIn(int samples) const { return static_cast<int>((samples + slack_) / length_); }
    /// The same, of a record that has to hold one.
    /// @throws std::invalid_argument  it is shorter than one repetition
    int RequiredIn(int samples) const;
    /// Repetitions in a record that consists of them: the nearest number.
    int RoundedCountIn(int samples) const;
    /// Samples of one repetition as it lies in the record: where sampling is fractional an equal share of the record,
    /// unless that has a sample more than Length() for each repetition; else Length().
    double LengthIn(int samples) const;
    /// @throws std::invalid_argument  the record is shorter than one repetition or does not consist of whole ones
    void RequireWholeRepetitions(int sampleCount) const;
    /// @throws std::invalid_argument  always: the record is shorter than one repetition
    [[noreturn]] void RefuseShort(int sampleCount) const;

private:
    const char* filter_;
    double samplesPerUi_;
    double length_;
    double slack_;  // [samples] by which a repetition may be longer or shorter: 1 with a fraction, else 0
};

/// Samples of the part of a record that taps are found from: all of it, or where it holds several repetitions or sampling is
/// fractional an equal share of those of `patternSymbols`.
/// @throws std::invalid_argument  the record is shorter than one repetition, or the symbols to count them by are empty
int WorkingLength(const char* filter, const DeviceConfiguration& config, int samplesPerUi,
                  const std::string& patternSymbols, int sampleCount);

/// Sample interval [s]: one UI over the whole samples per UI of a pattern of `samplesPerPattern`; 0 when it has none.
double SampleInterval(const DeviceConfiguration& config, int samplesPerPattern);
/// @throws std::invalid_argument  the symbol rate is not finite and positive, or a UI has no whole sample
void RequireSampleInterval(const char* filter, const DeviceConfiguration& config, int samplesPerPattern);

/// Whole pattern repetitions in a record of `sampleCount` samples, formed as
/// sampleCount / (patternLengthUi (uiDuration / sampleSpacing)) or sampleCount / (samplesPerUi patternLengthUi),
/// without the fraction. Negative sizes give a negative count.
/// @throws std::invalid_argument  a repetition would have no sample
int WholeRepetitions(const char* filter, const DeviceConfiguration& config, int sampleCount);

}  // namespace Tarnwick::DSO::Filters
