#pragma once

#include <complex>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// The discrete Fourier transform of any length, in place.
///     FFT:  X[k] = sum_n x[n] exp(-2 pi i k n / count)
///     IFFT: x[n] = sum_k X[k] exp(+2 pi i k n / count), divided by count when `normalise` is set
/// The same bits from run to run, wherever `data` lies. May be called from several threads.
class TARNWICK_FRAMEWORK_API FFTIFFT {
public:
    virtual ~FFTIFFT() = default;
    /// @param data  count values; may be null only when count is 0, which does nothing
    /// @throws std::invalid_argument  count is negative or data is null
    virtual void FFT(std::complex<double>* data, int count) = 0;
    /// @param data  count values; may be null only when count is 0, which does nothing
    /// @throws std::invalid_argument  count is negative or data is null
    virtual void IFFT(std::complex<double>* data, int count, bool normalise) = 0;
};

class TARNWICK_FRAMEWORK_API FFTIFFT_Factory {
public:
    /// The process-wide object; never released.
    static FFTIFFT& GetInstance();
};

}  // namespace Tarnwick::DSO::SystemFramework
