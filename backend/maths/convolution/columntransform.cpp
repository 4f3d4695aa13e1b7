#include "maths/convolution/columntransform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "maths/transforms/factors.h"

namespace Tarnwick::DSO::Maths {

namespace {

// [complex values] 32 KiB: the longest row at which FFTW runs at full speed; at 8192 points and more a value takes two
// to three times as long. Measured; see docs/performance.md.
constexpr std::size_t kBestRow = 2048;
constexpr std::size_t kRowStep = 8;  // the loops take eight columns at a time

std::size_t RowCount(std::size_t points)
{
    std::size_t count = 1;
    while (count < kMostRows && (points + count - 1) / count > kBestRow)
        count *= 2;
    return count;
}

std::size_t RowLength(std::size_t atLeast)
{
    std::size_t length = (atLeast + kRowStep - 1) / kRowStep * kRowStep;
    const std::size_t power = std::bit_ceil(length);
    if (power <= length + length / 8)  // powers of two run faster than their length says
        return power;
    while (!HasOnlyFactors(length, {2, 3, 5, 7}))
        length += kRowStep;
    return length;
}

}  // namespace

// 2 M real values or M complex ones hold the whole product.
ColumnTransform::ColumnTransform(Values values, std::size_t length, std::size_t reach) : length_(length)
{
    const bool real = values == Values::Real;
    const std::size_t points = real ? (length + reach) / 2 : length + reach - 1;
    plan_.rowCount = RowCount(points);
    plan_.rowLength = RowLength((points + plan_.rowCount - 1) / plan_.rowCount);
    plan_.pitch = plan_.rowLength + (plan_.rowCount > 1 ? kRowStep : 0);
    rows_ = RowTransform::Of(plan_.rowLength);

    // Tables of exp(-i angle c), real parts and imaginary parts, off the powers of two like the rows.
    double* next = factors_.Reserve(6 * (plan_.rowLength + kRowStep) + 2 * (plan_.rowCount + kRowStep));
    const auto fill = [&](const double*& cosines, const double*& sines, double angle, std::size_t count) {
        cosines = next;
        sines = next + count + kRowStep;
        for (std::size_t c = 0; c < count; ++c) {
            next[c] = std::cos(angle * static_cast<double>(c));
            next[count + kRowStep + c] = -std::sin(angle * static_cast<double>(c));
        }
        next += 2 * (count + kRowStep);
    };
    constexpr double kTwoPi = 2.0 * std::numbers::pi;
    const auto bins = static_cast<double>(Bins());
    const double ring = real ? std::numbers::pi / 2.0 : 0.0;  // z^M = exp(-i ring)
    fill(plan_.startReal, plan_.startImag, ring / bins, plan_.rowLength);
    fill(plan_.stepReal, plan_.stepImag, kTwoPi / bins, plan_.rowLength);
    fill(plan_.anchorStepReal, plan_.anchorStepImag, kTwoPi * kRowsPerAnchor / bins, plan_.rowLength);
    fill(plan_.inputReal, plan_.inputImag, ring / static_cast<double>(plan_.rowCount), plan_.rowCount);
}

Complex* ColumnTransform::Grid(ConvolutionWork& work) const
{
    return work.bins.Reserve((plan_.rowCount + 1) * plan_.pitch);  // and one row more, to transform into
}

void ColumnTransform::TransformRows(double scale, Complex* spectrum, ConvolutionWork& work) const
{
    Complex* grid = Grid(work);
    Complex* row = grid + plan_.rowCount * plan_.pitch;
    for (std::size_t k = 0; k < plan_.rowCount; ++k) {
        rows_->Forward(grid + k * plan_.pitch, row);
        for (std::size_t c = 0; c < plan_.rowLength; ++c)
            *spectrum++ = row[c] * (scale / static_cast<double>(Bins()));
    }
}

void ColumnTransform::MultiplyRows(const Complex* spectrum, ConvolutionWork& work) const
{
    Complex* grid = Grid(work);
    Complex* row = grid + plan_.rowCount * plan_.pitch;
    for (std::size_t k = 0; k < plan_.rowCount; ++k) {
        rows_->Forward(grid, row);
        Loops().multiply(row, spectrum, plan_.rowLength);
        rows_->Inverse(row, grid);
        grid += plan_.pitch;
        spectrum += plan_.rowLength;
    }
}

void ColumnTransform::TransformKernel(const double* kernel, std::size_t count, double scale, Complex* spectrum,
                                      ConvolutionWork& work) const
{
    Loops().realToRows(plan_, kernel, count, Grid(work));
    TransformRows(scale, spectrum, work);
}

void ColumnTransform::TransformKernel(const Complex* kernel, std::size_t count, double scale, Complex* spectrum,
                                      ConvolutionWork& work) const
{
    Loops().complexToRows(plan_, kernel, count, Grid(work));
    TransformRows(scale, spectrum, work);
}

void ColumnTransform::Convolve(const double* samples, const Complex* spectrum, double wrap, double* result,
                               ConvolutionWork& work) const
{
    Loops().realToRows(plan_, samples, length_, Grid(work));
    MultiplyRows(spectrum, work);
    // The product has 2 M values; those past the length go into a buffer and are wrapped.
    const std::size_t past = 2 * Bins() - length_;
    auto* tail = reinterpret_cast<double*>(work.tail.Reserve(past / 2 + 1));
    Loops().realFromRows(plan_, Grid(work), length_, result, tail);
    Loops().addScaled(tail, wrap, result, std::min(past, length_));
}

void ColumnTransform::Convolve(const Complex* samples, const Complex* spectrum, Complex wrap, Complex* result,
                               ConvolutionWork& work) const
{
    Loops().complexToRows(plan_, samples, length_, Grid(work));
    MultiplyRows(spectrum, work);
    const std::size_t past = Bins() - length_;
    Complex* tail = work.tail.Reserve(past);
    Loops().complexFromRows(plan_, Grid(work), length_, result, tail);
    Loops().addScaledComplex(tail, wrap, result, std::min(past, length_));
}

}  // namespace Tarnwick::DSO::Maths
