// Convolution by a transform that stays in the cache and is never put in order.
// A ring of polynomials modulo z^M - a falls apart into q rings modulo z^r - w_k with M = q r and w_k^q = a: the
// remainders are q-point transforms down the columns of q rows of r values, after a factor for each input row. Each row
// falls apart in the same way, by a radix of 4 (2, 3 or 5 where the length asks for it) at a time, depth first, until
// single values are left, the bins; there the product is taken, and the way back undoes each step. All of it runs in our
// own loops (hotloops.h), as many rows side by side as the processor's vectors have lanes, so that no step along the rows
// needs a shuffle, and no twiddle factors but one root for each block. The bins come out in the order of the tree, which
// makes no difference to a product of two spectra.
// Real values use the ring modulo z^M + i, in which M complex values hold 2 M real ones: the upper half goes into the
// imaginary parts. So M real values, padded to 2 M, cost one complex transform of M points. Sources: R. Crandall,
// B. Fagin, "Discrete weighted transforms and large-integer arithmetic", Math. Comp. 62 (1994) 305-324 (right-angle
// convolution); D. J. Bernstein, "Multidigit multiplication for mathematicians" (2001) (transforms as a
// tree of remainders).
#pragma once

#include <cstddef>
#include <vector>

#include "framework/export.h"
#include "maths/convolution/circularconvolver.h"
#include "maths/convolution/hotloops.h"

namespace Tarnwick::DSO::Maths {

/// Products of sequences in a ring that holds `length` values or more. Serves any number of kernels.
class TARNWICK_FRAMEWORK_API RingTransform {
public:
    enum class Values { Real, Complex };

    /// @param length  values, real or complex, that the ring holds at least
    RingTransform(Values values, std::size_t length, const HotLoops& loops = Loops());
    RingTransform(const RingTransform&) = delete;
    RingTransform& operator=(const RingTransform&) = delete;

    /// Whether a ring of complex values has exactly this many bins.
    static bool Holds(std::size_t length, const HotLoops& loops = Loops());

    /// M, the number of bins.
    std::size_t Bins() const { return plan_.rowCount * plan_.rowLength; }
    /// Values that the ring holds: 2 M real or M complex ones.
    std::size_t Length() const { return length_; }
    /// [doubles] of a spectrum.
    std::size_t SpectrumSize() const { return 2 * Bins(); }

    /// Writes a kernel's spectrum times scale / M, so that convolutions with it come out times `scale`.
    void TransformKernel(const RealInput& kernel, double scale, double* spectrum, ConvolutionWork& work) const;
    void TransformKernel(const ComplexInput& kernel, double scale, double* spectrum, ConvolutionWork& work) const;

    /// The product of a sequence and a kernel. What does not fit the ring wraps round to its start: the first values, as
    /// many as the kernel has but one, are those of the product only where input and kernel fit together.
    /// @param output  may be the input's own array
    void Convolve(const RealInput& input, const double* spectrum, const RealOutput& output,
                  ConvolutionWork& work) const;
    void Convolve(const ComplexInput& input, const double* spectrum, const ComplexOutput& output,
                  ConvolutionWork& work) const;

    /// For each column of a row of bins the number m of its bin: in row k lies the bin k + q m of the ring z^M = 1.
    std::vector<std::size_t> BinOrder() const;
    /// The discrete Fourier transform, in order, of M complex values in the ring z^M = 1.
    /// @param order   BinOrder()
    /// @param output  may be the input's own array
    void Transform(const PairsInput& input, const std::vector<std::size_t>& order, const PairsOutput& output,
                   ConvolutionWork& work) const;

private:
    double* Rows(ConvolutionWork& work) const;
    void TransformRows(double scale, double* spectrum, ConvolutionWork& work) const;

    const HotLoops* loops_;
    std::size_t length_;
    RingPlan plan_{};
    // What the plan points to.
    std::vector<double> inputFactors_;
    std::vector<RingLevel> levels_;
    AlignedBuffer<double> roots_;
};

}  // namespace Tarnwick::DSO::Maths
