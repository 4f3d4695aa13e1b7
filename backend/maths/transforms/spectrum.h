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

/// The bins of a real impulse response, at the place where they are transformed: one array serves for all.
class TARNWICK_FRAMEWORK_API HermitianBins {
public:
    explicit HermitianBins(std::size_t count);

    std::span<std::complex<double>> Bins() { return {buffer_.Data(), count_}; }
    /// Bin k, and as bin count - k its conjugate.
    /// @param k  up to half of the bins
    void Set(std::size_t k, std::complex<double> value)
    {
        if (k > 0)
            buffer_.Data()[count_ - k] = std::conj(value);
        buffer_.Data()[k] = value;
    }
    /// The normalised inverse transform, its real part; the bins are lost:
    ///     h[n] = (1/N) sum_k H[k] exp(2 pi i k n / N)
    std::vector<double> Inverse();

private:
    std::size_t count_;
    std::shared_ptr<const ChirpTransform> chirp_;  // or null, where a transform of `count` values does it
    AlignedBuffer<std::complex<double>> buffer_;
};

/// The same of bins that lie elsewhere.
TARNWICK_FRAMEWORK_API std::vector<double> RealInverse(std::span<const std::complex<double>> bins);

}  // namespace Tarnwick::DSO::Maths
