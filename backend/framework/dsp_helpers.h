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
};

}  // namespace Tarnwick::DSO::SystemFramework
