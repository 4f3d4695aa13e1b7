#pragma once

#include <complex>
#include <cstddef>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

class TARNWICK_FRAMEWORK_API DSP_Helpers {
public:
    /// Corrects a receiver's response so that white record noise leaves it with the power that band-limited front-end
    /// noise would have: lifts the bins between `corner` and `upper`, where the front end has no noise of its own, and
    /// leaves the signal band below `corner` bit for bit as it was.
    ///
    /// In equivalent-time sampling the record's noise is white up to half the sample rate although the front end's ends
    /// at its bandwidth; by Parseval the mean of |H|^2 over all bins is made that over the bins up to the corner. The
    /// lift sets in with a raised-cosine ramp of at most one octave; the phase stays that of the response.
    ///
    /// @param response     count bins, bin count - k the conjugate of bin k; read only
    /// @param frequencies  [Hz] the true frequency of bins 0 .. count/2, ascending; only these are read
    /// @param corner       [Hz] at or above the bandwidth of the signal's own content; a corner inside it lifts signal
    /// @param upper        [Hz] end of the lift
    /// @param applied      false, and the result a copy, when there is nothing to correct or it cannot be: count below 3, a
    ///                     value that is not finite, frequencies null or not ascending, corner not positive, upper not above
    ///                     the corner, no bin above the corner, or more noise than the band can make up for
    /// @return new array of count values; the caller releases it with std::free
    /// @throws std::invalid_argument  response is null though count is not 0
    /// Noise power exact to rounding.
    static std::complex<double>* preserve_noise_TF(std::complex<double>* response, double* frequencies,
                                                   std::size_t count, double corner, double upper, bool& applied);

    /// Symbol-spaced taps of the reference equaliser with the least TDECQ for a repeated multilevel capture.
    ///     TDECQ = 10 log10(OMA C_eq / (6 x 3.414 sigma)) for four levels          source: IEEE 802.3 clause 121.8.5
    /// @param capture          captureLength samples [V], read only; rotated against the reference by any amount
    /// @param reference        as many, read only: held symbols of 2 to 4 levels
    /// @param mainCursorIndex  0-based place of the largest tap; negative: the first three are tried
    /// @param taps             written: numberOfTaps values with sum 1
    /// @param tapsLength       room in `taps`
    /// @throws std::invalid_argument  the lengths differ or are not a multiple of samplesPerUi; numberOfTaps is below 1 or
    ///         above tapsLength; mainCursorIndex is not below numberOfTaps; the capture or reference is null, constant or
    ///         not finite; the reference has not 2 to 4 levels; no taps have their largest at the place asked for. Nothing
    ///         is written then.
    /// The same bits on every call; some hundred passes over the symbols.
    static void GenerateTdecqEqualizerCoefficients(double* capture, int captureLength, double* reference,
                                                   int referenceLength, int numberOfTaps, int samplesPerUi,
                                                   int mainCursorIndex, double* taps, int tapsLength);

    /// Taps divided by their sum, so that they have gain 1 at DC.
    /// @param a  n values, read only
    /// @return   new array of n values; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  n is below 1, a is null, or the sum is zero or not finite
    static double* Normalize(const double* a, int n);

    /// Linear interpolation: the straight line between the neighbours of each xi, exactly y[k] at x[k], NaN outside
    /// x[0] .. x[n - 1] and where xi is NaN.
    /// @param x   n ascending abscissae, read only
    /// @param y   n values, read only; NaN and infinity flow through
    /// @param xi  m abscissae in any order, read only
    /// @return    new array of m values; the caller releases it with ::operator delete. All NaN when n is 0.
    /// @throws std::invalid_argument  n or m is negative, an array that has values is null, or x does not ascend
    static double* interp1q(const double* x, const double* y, int n, const double* xi, int m);
};

}  // namespace Tarnwick::DSO::SystemFramework
