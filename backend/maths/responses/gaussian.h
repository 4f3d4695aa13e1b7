// The Gaussian low-pass, sampled in frequency: zero phase, gain 1 at DC, half the power at the bandwidth B.
//     H(f) = exp(-(ln 2 / 2) (f / B)^2)          h(t) is a Gaussian of standard deviation sqrt(ln 2) / (2 pi B)
// Sampled in time, the bell would alias where B comes near half the sample rate, and its bandwidth would be wrong. Sampled
// in frequency, its taps have small negative lobes there instead.
// Source: A. Papoulis, "The Fourier Integral and its Applications", McGraw-Hill 1962 (transform pair of the Gaussian).
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// H at a frequency and a bandwidth of the same unit.
TARNWICK_FRAMEWORK_API double GaussianResponse(double frequency, double bandwidth);

/// The bandwidth, in the unit of the frequency, at which H is droopDb down at the frequency.
TARNWICK_FRAMEWORK_API double GaussianBandwidth(double droopDb, double frequency);

/// The circular kernel of `length` taps, lag 0 first and lag -m at length - m; their sum is 1.
/// @param sampleRate, bandwidth  of one unit
TARNWICK_FRAMEWORK_API std::vector<double> GaussianTaps(std::size_t length, double sampleRate, double bandwidth);

/// One period of a repeated waveform behind H.
TARNWICK_FRAMEWORK_API std::vector<double> GaussianLowPass(std::span<const double> samples, double sampleRate,
                                                           double bandwidth);

}  // namespace Tarnwick::DSO::Maths
