// The seam to the FFT library: a real transform of even length, a complex one of any length and one of short rows, none
// of them normalised.
//     X[k] = sum_n x[n] exp(-2 pi i k n / N)
// Behind it stands FFTW (fft_fftw.cpp) or kissfft (fft_kissfft.cpp), chosen when the library is built.
// Plans are kept and shared; objects may be used by several threads at once, each on its own buffers.
#pragma once

#include <complex>
#include <cstddef>
#include <memory>

#include "framework/export.h"
#include "maths/transforms/alignedbuffer.h"

namespace Tarnwick::DSO::Maths {

using Complex = std::complex<double>;

/// Real transform of even length N. Buffers come from AlignedBuffer: other alignments would give other last bits.
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

/// Complex transform of any length, in place, in a buffer from AlignedBuffer (a whole number of 64-byte lines in).
class TARNWICK_FRAMEWORK_API ComplexTransform {
public:
    /// @throws std::invalid_argument  length is 0
    static std::shared_ptr<const ComplexTransform> Of(std::size_t length);
    virtual ~ComplexTransform() = default;
    virtual void Forward(Complex* data) const = 0;
    virtual void Inverse(Complex* data) const = 0;
};

/// Complex transform of a short row from one buffer to another, both from AlignedBuffer, a whole number of 64-byte
/// lines in. Where a length fits the cache this runs half as fast again as in place.
class TARNWICK_FRAMEWORK_API RowTransform {
public:
    /// @throws std::invalid_argument  length is 0
    static std::shared_ptr<const RowTransform> Of(std::size_t length);
    virtual ~RowTransform() = default;
    /// The source is left as it was.
    virtual void Forward(Complex* from, Complex* to) const = 0;
    virtual void Inverse(Complex* from, Complex* to) const = 0;
};

}  // namespace Tarnwick::DSO::Maths
