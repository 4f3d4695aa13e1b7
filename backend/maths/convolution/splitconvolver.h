// Circular convolution of long periods, by z^L - 1 = prod_k (z^r - w^k), L = q r, w = exp(-2 pi i / q).
// The period is q rows of r samples. q-point transforms down the columns give the residue modulo each factor. Each
// residue is convolved through a transform that fits the cache and wrapped with z^r = w^k (ringtransform.h); q-point
// transforms lead back. Rows k and q - k are conjugates, rows 0 and q/2 real. There is no twiddle pass and no
// reordering. Source: H. J. Nussbaumer, "Fast Fourier Transform and Convolution Algorithms", 2nd ed., chapter 3
// (residue polynomials).
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "maths/convolution/convolutionengine.h"
#include "maths/convolution/hotloops.h"
#include "maths/convolution/ringtransform.h"

namespace Tarnwick::DSO::Maths {

class SplitConvolver final : public CircularConvolver::Engine {
public:
    /// The number of rows q, a power of two up to kMostRows, at which the rows' transforms fit the cache; none when no
    /// such power divides the period.
    static std::optional<std::size_t> RowsFor(std::size_t period);

    /// @param kernel  one period of taps
    SplitConvolver(std::span<const double> kernel, std::size_t rows);
    void Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const override;

private:
    SplitRows Rows(ConvolutionWork& work) const;

    std::size_t rows_;    // q
    std::size_t length_;  // r
    RingTransform real_;
    RingTransform complex_;
    AlignedBuffer<double> spectrum_;  // rows 0 and q/2, then 1 .. q/2 - 1
    std::vector<Complex> wraps_;      // w^k, that row k is wrapped with
};

}  // namespace Tarnwick::DSO::Maths
