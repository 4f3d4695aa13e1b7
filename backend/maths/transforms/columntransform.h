// Convolution of one row: a transform of M = q r points that never leaves the cache and needs no order.
// The q-point transforms down the columns (and the factors between them and the rows) run in loops of our own, the
// r-point transforms along the rows in the FFT library, at the lengths where that is fastest. The bins come out row by
// row instead of in order; a product of two spectra does not care. Real rows use the ring of polynomials modulo z^M +
// i, in which M complex values hold 2 M real ones: the upper half of a real row goes into the imaginary part. So a real
// row of M values, padded to 2 M, costs one complex transform of M points. Source: R. Crandall, B. Fagin, "Discrete
// weighted transforms and large-integer arithmetic", Math. Comp. 62 (1994) 305-324 (right-angle convolution).
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "maths/convolution/circularconvolver.h"
#include "maths/convolution/hotloops.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

/// Products of rows of values, wrapped into their length: y = x h modulo z^length - turn. Serves any number of kernels.
class ColumnTransform {
public:
    enum class Values { Real, Complex };

    /// @param length  values in a row
    /// @param reach   values in the longest kernel, at most `length`
    ColumnTransform(Values values, std::size_t length, std::size_t reach);

    /// Bins that a kernel's spectrum takes.
    std::size_t Bins() const { return tables_.rowCount * tables_.rowLength; }

    /// Writes the spectrum of a kernel, times scale / M, so that a convolution comes out times `scale`.
    void TransformKernel(const double* kernel, std::size_t count, double scale, Complex* spectrum,
                         ConvolutionWork& work) const;
    void TransformKernel(const Complex* kernel, std::size_t count, double scale, Complex* spectrum,
                         ConvolutionWork& work) const;

    /// @param result  `length` values, may be the samples themselves
    void Convolve(const double* samples, const Complex* spectrum, double turn, double* result,
                  ConvolutionWork& work) const;
    void Convolve(const Complex* samples, const Complex* spectrum, Complex turn, Complex* result,
                  ConvolutionWork& work) const;

private:
    void TransformRows(double scale, Complex* spectrum, ConvolutionWork& work) const;
    void MultiplyRows(const Complex* spectrum, ConvolutionWork& work) const;
    Complex* Grid(ConvolutionWork& work) const;

    std::size_t length_;
    ColumnTables tables_;
    std::shared_ptr<const RowTransform> rows_;
};

}  // namespace Tarnwick::DSO::Maths
