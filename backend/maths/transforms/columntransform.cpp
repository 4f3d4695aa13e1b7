#include "maths/transforms/columntransform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "maths/transforms/factors.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kMostRows = 32;
constexpr std::size_t kBestRow = 2048;  // 32 KiB of complex values: the longest row at which FFTW runs at full speed
constexpr std::size_t kRowStep = 8;     // the loops take eight columns at a time

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

// Factors exp(-i angle c) as separate real and imaginary parts.
void FillTurns(std::vector<double>& real, std::vector<double>& imag, double angle, std::size_t count)
{
    real.resize(count);
    imag.resize(count);
    for (std::size_t c = 0; c < count; ++c) {
        real[c] = std::cos(angle * static_cast<double>(c));
        imag[c] = -std::sin(angle * static_cast<double>(c));
    }
}

ColumnTables MakeTables(bool real, std::size_t atLeast)
{
    ColumnTables tables;
    tables.real = real;
    tables.rowCount = 1;
    while (tables.rowCount < kMostRows && (atLeast + tables.rowCount - 1) / tables.rowCount > kBestRow)
        tables.rowCount *= 2;
    tables.rowLength = RowLength((atLeast + tables.rowCount - 1) / tables.rowCount);
    tables.pitch = tables.rowLength + (tables.rowCount > 1 ? kRowStep : 0);
    const auto points = static_cast<double>(tables.rowCount * tables.rowLength);
    const double quarterTurn = real ? std::numbers::pi / 2.0 : 0.0;  // z^M = exp(-i quarterTurn)
    FillTurns(tables.startReal, tables.startImag, quarterTurn / points, tables.rowLength);
    FillTurns(tables.stepReal, tables.stepImag, 2.0 * std::numbers::pi / points, tables.rowLength);
    FillTurns(tables.leapReal, tables.leapImag, 2.0 * std::numbers::pi * kTurnsPerLeap / points, tables.rowLength);
    FillTurns(tables.rowReal, tables.rowImag, quarterTurn / static_cast<double>(tables.rowCount), tables.rowCount);
    return tables;
}

}  // namespace

// A real row: 2 M values hold the whole product. A complex one: M values do.
ColumnTransform::ColumnTransform(Values values, std::size_t length, std::size_t reach)
    : length_(length),
      tables_(MakeTables(values == Values::Real, values == Values::Real ? (length + reach) / 2 : length + reach - 1)),
      rows_(RowTransform::Of(tables_.rowLength))
{
}

Complex* ColumnTransform::Grid(ConvolutionWork& work) const
{
    return work.bins.Reserve((tables_.rowCount + 1) * tables_.pitch);  // and one row beside them
}

void ColumnTransform::TransformRows(double scale, Complex* spectrum, ConvolutionWork& work) const
{
    Complex* grid = Grid(work);
    Complex* row = grid + tables_.rowCount * tables_.pitch;
    for (std::size_t k = 0; k < tables_.rowCount; ++k) {
        rows_->Forward(grid + k * tables_.pitch, row);
        for (std::size_t c = 0; c < tables_.rowLength; ++c)
            *spectrum++ = row[c] * (scale / static_cast<double>(Bins()));
    }
}

void ColumnTransform::MultiplyRows(const Complex* spectrum, ConvolutionWork& work) const
{
    Complex* grid = Grid(work);
    Complex* row = grid + tables_.rowCount * tables_.pitch;
    for (std::size_t k = 0; k < tables_.rowCount; ++k) {
        rows_->Forward(grid, row);
        Loops().multiply(row, spectrum, tables_.rowLength);
        rows_->Inverse(row, grid);
        grid += tables_.pitch;
        spectrum += tables_.rowLength;
    }
}

void ColumnTransform::TransformKernel(const double* kernel, std::size_t count, double scale, Complex* spectrum,
                                      ConvolutionWork& work) const
{
    Loops().realToRows(tables_, kernel, count, Grid(work));
    TransformRows(scale, spectrum, work);
}

void ColumnTransform::TransformKernel(const Complex* kernel, std::size_t count, double scale, Complex* spectrum,
                                      ConvolutionWork& work) const
{
    Loops().complexToRows(tables_, kernel, count, Grid(work));
    TransformRows(scale, spectrum, work);
}

void ColumnTransform::Convolve(const double* samples, const Complex* spectrum, double turn, double* result,
                               ConvolutionWork& work) const
{
    Loops().realToRows(tables_, samples, length_, Grid(work));
    MultiplyRows(spectrum, work);
    // The product has 2 M values; what lies past the row goes into a buffer and is wrapped.
    const std::size_t past = 2 * Bins() - length_;
    auto* tail = reinterpret_cast<double*>(work.tail.Reserve(past / 2 + 1));
    Loops().realFromRows(tables_, Grid(work), length_, result, tail);
    Loops().addTurned(tail, turn, result, std::min(past, length_));
}

void ColumnTransform::Convolve(const Complex* samples, const Complex* spectrum, Complex turn, Complex* result,
                               ConvolutionWork& work) const
{
    Loops().complexToRows(tables_, samples, length_, Grid(work));
    MultiplyRows(spectrum, work);
    const std::size_t past = Bins() - length_;
    Complex* tail = work.tail.Reserve(past);
    Loops().complexFromRows(tables_, Grid(work), length_, result, tail);
    Loops().addTurnedComplex(tail, turn, result, std::min(past, length_));
}

}  // namespace Tarnwick::DSO::Maths
