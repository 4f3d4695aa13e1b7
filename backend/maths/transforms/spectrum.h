// From a Hermitian spectrum to the real impulse response.
#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/chirptransform.h"

namespace Tarnwick::DSO::Maths {

/// The bins of a real impulse response, in the buffer in which they are transformed.
class TARNWICK_FRAMEWORK_API HermitianBins {
public:
    explicit HermitianBins(std::size_t count);

    std::span<std::complex<double>> Bins() { return {buffer_.Data(), count_}; }
    /// Sets bin k and, as bin count - k, its conjugate.
    /// @param k  0 to count/2
    void Set(std::size_t k, std::complex<double> value)
    {
        if (k > 0)
            buffer_.Data()[count_ - k] = std::conj(value);
        buffer_.Data()[k] = value;
    }
    /// The real part of the normalised inverse transform. The bins are lost.
    ///     h[n] = (1/N) sum_k H[k] exp(2 pi i k n / N)
    std::vector<double> Inverse();

private:
    std::size_t count_;
    std::shared_ptr<const ChirpTransform> chirp_;  // null where a transform of `count` values is as quick
    AlignedBuffer<std::complex<double>> buffer_;
};

/// The same for bins in an array of the caller's, which stays as it was.
TARNWICK_FRAMEWORK_API std::vector<double> RealInverse(std::span<const std::complex<double>> bins);

}  // namespace Tarnwick::DSO::Maths
