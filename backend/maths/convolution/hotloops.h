// The inner loops that are worth a build for newer processors. Installed libraries carry no CPU flags; each loop exists
// as plain code and, on x86-64, once more for AVX2, and the choice is made once per process.
#pragma once

#include <cstddef>
#include <vector>

#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

struct Tap {
    std::ptrdiff_t lag;
    double value;
};

inline constexpr std::size_t kColumnBlock = 64;  // columns of a split that are worked on at once

/// The rows of a split period: q rows of r samples become rows 0 and q/2, real, and 1 .. q/2 - 1, complex.
struct SplitRows {
    double* first;   // r values
    double* middle;  // r values
    Complex* inner;  // (q/2 - 1) r values
};

inline constexpr std::size_t kTurnsPerLeap = 8;

/// A transform of q r points as q-point transforms down the columns of q rows of r values, the factors
/// start[c] step[c]^k between them, and r-point transforms along the rows. start and row carry the ring z^(q r) = -i of
/// real values; in that of complex ones, z^(q r) = 1, they are 1.
struct ColumnTables {
    bool real = false;
    std::size_t rowCount = 0;   // q: 1, 2, 4, 8, 16 or 32
    std::size_t rowLength = 0;  // r, a multiple of 8
    std::size_t pitch = 0;  // from one row of bins to the next: off the powers of two, at which rows share cache sets
    std::vector<double> startReal, startImag;  // r factors of row 0
    std::vector<double> stepReal, stepImag;    // r factors from one row to the next
    std::vector<double> leapReal, leapImag;    // and over kTurnsPerLeap rows, so that rounding does not add up
    std::vector<double> rowReal, rowImag;      // q factors of the input rows
};

struct HotLoops {
    /// y[i] = sum_t taps[t].value x[i - taps[t].lag], i = 0 .. count - 1, taps in the order given.
    void (*sumTaps)(const double* x, const Tap* taps, std::size_t tapCount, double* y, std::size_t count);
    /// y[i] = sum_{m<width} x[i + m], over divisor or, when that is 0, times factor, i = 0 .. count - 1; scratch holds
    /// 2 (count + width) values.
    void (*sumWindow)(const double* x, std::size_t width, double divisor, double factor, double* y, std::size_t count,
                      double* scratch);
    /// a[k] *= b[k]
    void (*multiply)(Complex* a, const Complex* b, std::size_t count);
    /// y[c] += turn x[c]
    void (*addTurned)(const double* x, double turn, double* y, std::size_t count);
    void (*addTurnedComplex)(const Complex* x, Complex turn, Complex* y, std::size_t count);
    /// `count` values, continued with zeros, to q rows of r bins each.
    void (*realToRows)(const ColumnTables& tables, const double* values, std::size_t count, Complex* rows);
    void (*complexToRows)(const ColumnTables& tables, const Complex* values, std::size_t count, Complex* rows);
    /// And back, not normalised: the first `count` values to `values`, the others, of 2 q r real or q r complex ones,
    /// to `tail`.
    void (*realFromRows)(const ColumnTables& tables, const Complex* rows, std::size_t count, double* values,
                         double* tail);
    void (*complexFromRows)(const ColumnTables& tables, const Complex* rows, std::size_t count, Complex* values,
                            Complex* tail);
    /// q-point transforms down the columns of q rows of r samples, and back (not normalised).
    void (*splitColumns)(const double* samples, std::size_t q, std::size_t r, SplitRows rows);
    void (*joinColumns)(SplitRows rows, std::size_t q, std::size_t r, double* result);
};

/// The loops for the processor that this process runs on.
const HotLoops& Loops();

}  // namespace Tarnwick::DSO::Maths
