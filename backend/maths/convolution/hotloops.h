// The inner loops that are worth compiling for newer processors too. Installed libraries carry no CPU flags: each loop
// is written once (hotloops-inl.h), compiled as plain code and, on x86-64, again for AVX2 with fused multiply-add, and
// the choice between the two is made once per process.
#pragma once

#include <cstddef>

#include "framework/export.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

/// One multiplication of a direct sum: a sample `lag` samples earlier, times the value.
struct Tap {
    std::ptrdiff_t lag;
    double value;
};

inline constexpr std::size_t kMostRows = 32;  // the longest transform down columns that the loops have

/// A period of q rows of r samples behind the q-point transforms down its columns. The samples are real, so rows k and
/// q - k are conjugates, and rows 0 and q/2 are real.
struct SplitRows {
    double* first;   // row 0, r values
    double* middle;  // row q/2, r values
    Complex* inner;  // rows 1 .. q/2 - 1, (q/2 - 1) r values
};

/// Every eighth row's twiddle factors come from those eight rows before by one product, the others from the row before:
/// rounding adds up over a few products instead of one for each row.
inline constexpr std::size_t kRowsPerAnchor = 8;

/// A transform of q r points: q-point transforms down the columns of q rows of r values, twiddle factors, and r-point
/// transforms along the rows. The twiddle factor of row k in column c is start[c] step[c]^k. The loops below do all but
/// the last. start and input carry the ring z^(q r) = -i of real values. In that of complex ones, z^(q r) = 1, start is
/// 1 and the input factors are not used.
struct ColumnPlan {
    std::size_t rowCount;                           // q: a power of two up to kMostRows
    std::size_t rowLength;                          // r: a multiple of 8
    std::size_t pitch;                              // values from one row to the next, at least r
    const double *startReal, *startImag;            // r
    const double *stepReal, *stepImag;              // r
    const double *anchorStepReal, *anchorStepImag;  // r: step[c]^kRowsPerAnchor
    const double *inputReal, *inputImag;            // q: factors of the input rows
};

/// A kernel at fractions p / phaseCount of a sample, p = 0 .. phaseCount, a row each. Tap j of a row meets the sample
/// tapCount/2 - 1 - j before the whole part of the position.
struct KernelRows {
    const double* rows;    // (phaseCount + 1) tapCount values; quicker at the start of a cache line
    std::size_t tapCount;  // a multiple of 8
    std::size_t phaseCount;
};

struct HotLoops {
    /// y[i] = sum_t taps[t].value x[i - taps[t].lag], i = 0 .. count - 1, taps in the order given; at least one.
    void (*sumTaps)(const double* x, const Tap* taps, std::size_t tapCount, double* y, std::size_t count);
    /// y[i] = sum_{m<width} x[i + m], over divisor or, when that is 0, times factor, i = 0 .. count - 1; scratch holds
    /// 2 (count + width) values.
    void (*sumWindow)(const double* x, std::size_t width, double divisor, double factor, double* y, std::size_t count,
                      double* scratch);
    /// a[k] *= b[k]
    void (*multiply)(Complex* a, const Complex* b, std::size_t count);
    /// y[c] += factor x[c]
    void (*addScaled)(const double* x, double factor, double* y, std::size_t count);
    void (*addScaledComplex)(const Complex* x, Complex factor, Complex* y, std::size_t count);
    /// `count` values, at most 2 q r real or q r complex ones, continued with zeros, to q rows of r bins each.
    void (*realToRows)(const ColumnPlan& plan, const double* values, std::size_t count, Complex* rows);
    void (*complexToRows)(const ColumnPlan& plan, const Complex* values, std::size_t count, Complex* rows);
    /// And back, times q: the first `count` values to `values`, the others, of 2 q r real or q r complex ones, to
    /// `tail`.
    void (*realFromRows)(const ColumnPlan& plan, const Complex* rows, std::size_t count, double* values, double* tail);
    void (*complexFromRows)(const ColumnPlan& plan, const Complex* rows, std::size_t count, Complex* values,
                            Complex* tail);
    /// q-point transforms down the columns of q rows of r samples, q from 2, and back, times q.
    void (*splitColumns)(const double* samples, std::size_t q, std::size_t r, SplitRows rows);
    void (*joinColumns)(SplitRows rows, std::size_t q, std::size_t r, double* samples);
    /// y[i] = the sum of the taps at positions[i], on the straight line between the two rows about its fraction.
    /// @param positions  at least tapCount/2 - 1, and as far from the last sample as tapCount/2
    void (*interpolate)(const KernelRows& kernel, const double* x, const double* positions, double* y,
                        std::size_t count);
};

enum class LoopTarget { Plain, Avx2 };

/// The loops compiled for one target; null when this build or this processor has none.
TARNWICK_FRAMEWORK_API const HotLoops* LoopsFor(LoopTarget target);

/// The fastest loops that this processor runs.
const HotLoops& Loops();

}  // namespace Tarnwick::DSO::Maths
