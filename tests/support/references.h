// Slow and obvious versions of what the library computes.
#pragma once

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

namespace Tarnwick::Testing {

using Complex = std::complex<double>;

/// sum_m x[m] h[(k - m) mod n], n the number of samples, summed in long double; taps n apart add up.
double DirectConvolutionAt(std::span<const double> samples, std::span<const double> taps, std::size_t k);
std::vector<double> DirectConvolution(std::span<const double> samples, std::span<const double> taps);

/// sum_n x[n] exp(-+ 2 pi i k n / N), forward or backward, summed in long double, not normalised.
std::vector<Complex> DirectDft(std::span<const Complex> values, bool forward = true);
Complex DirectDftAt(std::span<const double> values, std::size_t k);

/// What a fast transform of these values may be off by: rounding grows as eps log2(n) of the root of the energy. 8 covers
/// the three transforms by which one library does prime lengths.
double TransformBound(std::span<const Complex> values);

/// The reverse Bessel polynomial by its recursion B_n = (2n - 1) B_(n-1) + s^2 B_(n-2), B_0 = 1, B_1 = s + 1.
/// Source: L. Storch, "Synthesis of constant-time-delay ladder networks using Bessel polynomials", Proc. IRE 42 (1954).
Complex ReverseBessel(int order, Complex s);

/// B_n(0) / B_n(jw)
Complex BesselThomsonAt(int order, double w);

/// sqrt(mean |H|^2): the rms that white noise of variance 1 leaves a response with.
double NoiseRms(std::span<const Complex> response);

}  // namespace Tarnwick::Testing
