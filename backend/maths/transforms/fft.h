// The seam to the FFT library: real transforms of even length and complex ones of any length, not normalised.
//     X[k] = sum_n x[n] exp(-2 pi i k n / N)
// FFTW (fft_fftw.cpp) or kissfft (fft_kissfft.cpp) is behind it, chosen when the library is built. Plans are kept and
// shared; several threads may use one at the same time, each on its own buffers.
#pragma once

#include <complex>
#include <cstddef>
#include <memory>

#include "framework/export.h"
#include "maths/transforms/alignedbuffer.h"

namespace Tarnwick::DSO::Maths {

using Complex = std::complex<double>;

/// Real transform of even length N, in buffers from AlignedBuffer: another alignment would give other last bits.
class TARNWICK_FRAMEWORK_API RealTransform {
public:
    /// @throws std::invalid_argument  length is 0 or odd
    static std::shared_ptr<const RealTransform> Of(std::size_t length);
    virtual ~RealTransform() = default;
    /// N values to bins 0 .. N/2.
    virtual void Forward(double* values, Complex* bins) const = 0;
    /// Bins 0 .. N/2 to N times the values. The bins are overwritten.
    virtual void Inverse(Complex* bins, double* values) const = 0;
};

/// Complex transform of any length, in place, at the start of an AlignedBuffer or a whole number of 64-byte lines into
/// it.
class TARNWICK_FRAMEWORK_API ComplexTransform {
public:
    /// @throws std::invalid_argument  length is 0
    static std::shared_ptr<const ComplexTransform> Of(std::size_t length);
    virtual ~ComplexTransform() = default;
    virtual void Forward(Complex* data) const = 0;
    virtual void Inverse(Complex* data) const = 0;
};

}  // namespace Tarnwick::DSO::Maths
