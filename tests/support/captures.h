// Captures of patterns for tests.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tarnwick::Testing {

/// One period of PRBS13Q, 8191 levels 0 to 3: pairs of bits of x^13 + x^12 + x^2 + x + 1 taken twice, first bit high,
/// Gray coded.
std::vector<int> Prbs13qLevels();

/// The Gray symbols of levels 0 to 3.
std::string GraySymbols(const std::vector<int>& levels);

/// The levels as digits.
std::string LevelText(const std::vector<int>& levels);

/// Each value held for a unit interval.
std::vector<double> Held(const std::vector<double>& values, double samplesPerUi);

/// One period of a repeated waveform behind a response H(f); f in the unit of the sample rate.
std::vector<double> ThroughResponse(const std::vector<double>& samples, double sampleRate,
                                    const std::function<std::complex<double>(double)>& response);

/// A fourth-order Bessel-Thomson front end, 3.01 dB down at `bandwidth`.
std::vector<double> ThroughFrontEnd(const std::vector<double>& samples, double sampleRate, double bandwidth);

/// The lowest eye at its best phase: the smallest sample of symbols above '0' minus the largest of '0'. Negative: closed.
double Opening(const std::vector<double>& samples, const std::string& symbols, double samplesPerUi);

/// Normal noise, the same for the same seed on every platform.
std::vector<double> WithNoise(std::vector<double> samples, double rms, std::uint64_t seed);

}  // namespace Tarnwick::Testing
