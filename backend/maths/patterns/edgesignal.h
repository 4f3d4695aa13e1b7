// The spectrum of a waveform of levels joined by straight edges at any instants, exact up to the band that is asked for:
// what an analytic, band-limited capture is made from.
//     x'(t) = sum_i s_i box((t - t_i)/r)/r,    X[k] = N/(2 pi j k) sinc(k r/N) sum_i s_i exp(-2 pi j k t_i/N)
// The sums over edges between the samples are one transform of edges spread by a Kaiser-Bessel kernel. Source: J. A.
// Fessler, B. P. Sutton, "Nonuniform fast Fourier transforms using min-max interpolation", IEEE Trans. Signal Processing
// 51 (2003) 560-574, section IV.
#pragma once

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

struct SignalEdge {
    double middle;  ///< [samples] 0 to below the length of the circle
    double step;    ///< [V]
};

/// The transform of the waveform on a circle of samples, without anything above half the sample rate.
/// @param edges      ascending; their steps sum to 0
/// @param first      [V] the level before the first edge
/// @param rise       [samples] of each edge from 0 to 100 %
/// @param count      N samples, at least 1
/// @return X[0] .. X[N/2]
/// Error below 1e-9 of the sum of the steps' magnitudes over the root of their number.
TARNWICK_FRAMEWORK_API std::vector<std::complex<double>> EdgeSpectrum(std::span<const SignalEdge> edges, double first,
                                                                      double rise, std::size_t count);

}  // namespace Tarnwick::DSO::Maths
