// Convolution by a transform of M = q r points that stays in the cache and is never put in order.
// The q-point transforms down the columns and the twiddle factors run in our own loops (hotloops.h), the r-point
// transforms along the rows in the FFT library, at the lengths at which it is fastest. The bins come out row by row
// instead of in order, which makes no difference to a product of two spectra. Real values use the ring of polynomials
// modulo z^M + i, in which M complex values hold 2 M real ones: the upper half goes into the imaginary parts. So M real
// values, padded to 2 M, cost one complex transform of M points. Source: R. Crandall, B. Fagin, "Discrete weighted
// transforms and large-integer arithmetic", Math. Comp. 62 (1994) 305-324 (right-angle convolution).
#pragma once

#include <cstddef>
#include <memory>

#include "maths/convolution/circularconvolver.h"
#include "maths/convolution/hotloops.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

/// Products of polynomials, wrapped to a length: y = x h modulo z^length - wrap. Serves any number of kernels.
class ColumnTransform {
public:
    enum class Values { Real, Complex };

    /// @param length  values of x and of y
    /// @param reach   values of the longest kernel, at most `length`
    ColumnTransform(Values values, std::size_t length, std::size_t reach);
    ColumnTransform(const ColumnTransform&) = delete;
    ColumnTransform& operator=(const ColumnTransform&) = delete;

    /// M, the number of bins in a kernel's spectrum.
    std::size_t Bins() const { return plan_.rowCount * plan_.rowLength; }

    /// Writes a kernel's spectrum times scale / M, so that convolutions with it come out times `scale`.
    void TransformKernel(const double* kernel, std::size_t count, double scale, Complex* spectrum,
                         ConvolutionWork& work) const;
    void TransformKernel(const Complex* kernel, std::size_t count, double scale, Complex* spectrum,
                         ConvolutionWork& work) const;

    /// @param result  `length` values; may be the samples' own array
    void Convolve(const double* samples, const Complex* spectrum, double wrap, double* result,
                  ConvolutionWork& work) const;
    void Convolve(const Complex* samples, const Complex* spectrum, Complex wrap, Complex* result,
                  ConvolutionWork& work) const;

private:
    void TransformRows(double scale, Complex* spectrum, ConvolutionWork& work) const;
    void MultiplyRows(const Complex* spectrum, ConvolutionWork& work) const;
    Complex* Grid(ConvolutionWork& work) const;

    std::size_t length_;
    ColumnPlan plan_{};
    AlignedBuffer<double> factors_;  // what the plan points to
    std::shared_ptr<const RowTransform> rows_;
};

}  // namespace Tarnwick::DSO::Maths
