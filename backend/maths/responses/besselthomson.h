// Reverse Bessel polynomials, the normalised cutoff and the sampled response of the Bessel-Thomson low-pass.
// Source: W. E. Thomson, "Delay networks having maximally flat frequency characteristics", Proc. IEE 96 (1949) 487-490.
#pragma once

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

inline constexpr int kLowestOrder = 1;
inline constexpr int kHighestOrder = 16;  // above it (2n)! wraps to zero in 32 bits and no cutoff is ever found

/// n! in 32-bit arithmetic that wraps; -1 for a negative n.
TARNWICK_FRAMEWORK_API int WrappingFactorial(int n);

/// a_k of B_n(s) = sum_k a_k s^k.
TARNWICK_FRAMEWORK_API double BesselCoefficient(int order, int k);

/// H(jx) = a_0 / B_n(jx) at a normalised angular frequency x, in real arithmetic: the even powers of jx are real, the
/// odd ones imaginary. H(0) is exactly 1.
class TARNWICK_FRAMEWORK_API BesselResponse {
public:
    explicit BesselResponse(int order);
    std::complex<double> At(double x) const;
    double MagnitudeAt(double x) const;

private:
    void Denominator(double x, double& real, double& imag) const;
    std::vector<double> even_;  // a_0, -a_2, a_4, ..: the real part in powers of x^2, highest last
    std::vector<double> odd_;   // a_1, -a_3, ..: the imaginary part over x
};

/// The normalised angular frequency at which |H| is 1/sqrt(2), or 1/2, to five decimals. A walk by factors of 1.5 and
/// 0.5 from 1 to the first point that rounds to the target; every point it can end at is one of 2 1.5^a 0.5^b, and the
/// value is that of the walk, not of a closer search. Deliberate. Kept per order and target: the second call costs a
/// look-up.
/// @param order  1 to 16
TARNWICK_FRAMEWORK_API double DefaultCutoff(int order, bool halfAmplitude);

/// Bins 0 .. M - 1 of the response of `order` with its cutoff at `cutoff` Hz on the grid k sampleRate/M, for an inverse
/// transform of length M: the bins up to half the sample rate, then H[M - k] = conj(H[k]) for k = 1 .. (M + 1)/2 - 1.
TARNWICK_FRAMEWORK_API std::vector<std::complex<double>> SampledBesselThomson(int order, double normalisedCutoff,
                                                                              double cutoff, double sampleRate,
                                                                              std::size_t length);

/// s^4 + 10 s^3 + 45 s^2 + 105 s + 105
TARNWICK_FRAMEWORK_API std::complex<double> FourthOrderPolynomial(std::complex<double> s);

/// 105 / FourthOrderPolynomial(j 2 pi x), x = f kFourthOrderCutoff / cutoff.
TARNWICK_FRAMEWORK_API std::complex<double> FourthOrderResponse(double x);
/// The same at each frequency [Hz], 3 dB down at `cutoff` [Hz].
TARNWICK_FRAMEWORK_API std::vector<std::complex<double>> FourthOrderResponses(std::span<const double> frequencies,
                                                                              double cutoff);
/// The impulse response of as many samples as there are frequencies, of which only the lower half is read.
TARNWICK_FRAMEWORK_API std::vector<double> FourthOrderTaps(std::span<const double> frequencies, double cutoff);

inline constexpr double kFourthOrderCutoff = 0.33644;  // -3 dB frequency of the fourth-order polynomial over 2 pi

/// Error of the taps' spectrum at every bin, against the response at the cutoff that the walk ends at: the steps of a running
/// frequency sum, and the rounding of the transform.
inline constexpr double kBesselThomsonBinError = 1e-12;

}  // namespace Tarnwick::DSO::Maths
