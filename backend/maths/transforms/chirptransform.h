// The discrete Fourier transform of a length with large prime factors, by a convolution. Source:
// L. I. Bluestein, "A linear filtering approach to the computation of discrete Fourier transform", IEEE Trans. Audio
// Electroacoustics 18 (1970) 451-455.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "framework/export.h"
#include "maths/convolution/ringtransform.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

///     X[k] = sum_{n < inputs} x[n] exp(-2 pi i k n / length), k = 0 .. length - 1
/// A transform of `length` values that are zero from `inputs` on. The fewer the inputs, the shorter the convolution.
class TARNWICK_FRAMEWORK_API ChirpTransform {
public:
    /// Kept and shared like the plans of the other transforms.
    /// @param inputs  1 to length
    static std::shared_ptr<const ChirpTransform> Of(std::size_t length, std::size_t inputs);
    ChirpTransform(std::size_t length, std::size_t inputs);

    /// @param data  room for `length` values. The first `inputs` of them are read; the transform replaces all.
    void Forward(Complex* data) const;

private:
    std::size_t inputs_;
    RingTransform ring_;
    std::vector<Complex> chirp_;      // exp(-i pi n^2 / length)
    AlignedBuffer<double> spectrum_;  // of its conjugate
};

}  // namespace Tarnwick::DSO::Maths
