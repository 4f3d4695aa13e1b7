// The inner loops that are worth compiling for newer processors too. Installed libraries carry no CPU flags: each loop
// is written once (hotloops-inl.h), compiled as plain code and, on x86-64, again for AVX2 with fused multiply-add and for
// AVX-512, and the choice is made once per process.
#pragma once

#include <cstddef>

#include "framework/export.h"
#include "maths/convolution/looptarget.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

/// One multiplication of a direct sum: a sample `lag` samples earlier, times the value.
struct Tap {
    std::ptrdiff_t lag;
    double value;
};

inline constexpr std::size_t kMostRows = 32;      // the longest transform down columns that the loops have
inline constexpr std::size_t kMostRingRows = 16;  // and the longest in a ring

/// A period of q rows of r samples behind the q-point transforms down its columns. The samples are real, so rows k and
/// q - k are conjugates, and rows 0 and q/2 are real.
struct SplitRows {
    double* first;   // row 0, r values
    double* middle;  // row q/2, r values
    double* inner;   // rows 1 .. q/2 - 1: r real parts, then r imaginary parts of each
};

/// The ring of polynomials modulo z^M - a, M = q r, taken apart into its M bins: first q rows of r values by q-point
/// transforms down the columns, then each row along itself, by one radix after the other. Rows lie `lanes` side by side
/// in groups: of column 0 the real parts of these rows, then their imaginary parts, then those of column 1 ...
/// See ringtransform.h.
struct RingLevel {
    std::size_t radix;   // 2, 3, 4 or 5; of the last level 4
    std::size_t length;  // values of a block of this level; of the last level 4
    std::size_t nodes;   // blocks of this level and below in one block
};
struct RingPlan {
    std::size_t rowCount;                 // q: a power of two from `lanes` up to kMostRingRows
    std::size_t rowLength;                // r: a multiple of 8
    std::size_t groupPitch;               // [doubles] from one group of rows to the next, at least 2 lanes r
    const double *inputReal, *inputImag;  // q: w^t, where w^q = a
    const RingLevel* levels;
    const double* roots;  // of each group, depth first: the root that each block multiplies by, packed like a column
};

/// A sequence x in the ring: x[n - gap] at n, and `wrap` times the value `count` later in front of it, as far as there
/// are values. Of real ones, modulo z^M = -i, there are 2 M.
struct RealInput {
    const double* values;
    std::size_t count;
    std::size_t gap = 0;
    double wrap = 0.0;
};
struct ComplexInput {
    const double *real, *imag;
    std::size_t count;
    std::size_t gap = 0;
    double wrapReal = 0.0, wrapImag = 0.0;
};

/// Complex values side by side, real part first; or imaginary part first, which makes an inverse transform of a forward
/// one when the output has it too.
struct PairsInput {
    const Complex* values;
    bool isImaginaryFirst;
};
struct PairsOutput {
    Complex* values;
    bool isImaginaryFirst;
};

/// Takes the values gap .. gap + count - 1.
struct RealOutput {
    double* values;
    std::size_t count;
    std::size_t gap;
};
struct ComplexOutput {
    double *real, *imag;
    std::size_t count;
    std::size_t gap;
};

/// A kernel at fractions p / phaseCount of a sample, p = 0 .. phaseCount, a row each. Tap j of a row meets the sample
/// tapCount/2 - 1 - j before the whole part of the position.
struct KernelRows {
    const double* rows;    // (phaseCount + 1) tapCount values; quicker at the start of a cache line
    std::size_t tapCount;  // a multiple of 8
    std::size_t phaseCount;
};

/// What the samples about a position weigh in the values at several phases of it, eight phases side by side: of the first
/// eight the weights of sample 0, then those of sample 1 ...; then of the next eight.
struct PhaseBank {
    const double* weights;       // (phaseCount / 8) sampleCount 8 values; quicker at the start of a cache line
    std::size_t sampleCount;     // of which the values at all phases are made
    std::size_t phaseCount;      // a multiple of 8
    const std::size_t* samples;  // of each eight phases the first sample that counts and the one behind the last
};

/// A bank in single precision, sixteen phases side by side, whose sums tell values to `margin` and `perBend` times the largest
/// second difference of the samples.
struct ScreenBank {
    const float* weights;        // (phaseCount / 16) sampleCount 16 values; quicker at the start of a cache line
    std::size_t sampleCount;     // as PhaseBank
    const std::size_t* samples;  // of each sixteen phases the first sample that counts and the one behind the last
    float margin;
    float perBend;
};

/// Two banks for samples less `middle` times `scale`: one of few samples tells most UI, one of more the others.
struct PhaseScreen {
    ScreenBank narrow;
    ScreenBank wide;
    std::size_t phaseCount;  // a multiple of 16
    double middle;
    double scale;
};

struct HotLoops {
    std::size_t lanes;  // doubles in a vector of the target
    /// y[i] = sum_t taps[t].value x[i - taps[t].lag], i = 0 .. count - 1, taps in the order given; at least one.
    void (*sumTaps)(const double* x, const Tap* taps, std::size_t tapCount, double* y, std::size_t count);
    /// y[i] = sum_{m<width} x[i + m], over divisor or, when that is 0, times factor, i = 0 .. count - 1; scratch holds
    /// 2 (count + width) values.
    void (*sumWindow)(const double* x, std::size_t width, double divisor, double factor, double* y, std::size_t count,
                      double* scratch);
    /// a[k] b[k] to real and imaginary parts, and parts times b[k] to complex values.
    void (*multiplyToParts)(const Complex* a, const Complex* b, std::size_t count, double* real, double* imag);
    void (*partsTimes)(const double* real, const double* imag, const Complex* b, std::size_t count, Complex* result);
    /// A sequence to rows ...
    void (*realToRows)(const RingPlan& plan, const RealInput& input, double* rows);
    void (*complexToRows)(const RingPlan& plan, const ComplexInput& input, double* rows);
    void (*pairsToRows)(const RingPlan& plan, const PairsInput& input, double* rows);
    /// ... rows to bins in place; or rows to bins, times a spectrum, and back to rows times r ...
    void (*rowsToBins)(const RingPlan& plan, double* rows);
    void (*multiplyRows)(const RingPlan& plan, const double* spectrum, double* rows);
    /// ... and back to a sequence, times q.
    void (*realFromRows)(const RingPlan& plan, const double* rows, const RealOutput& output);
    void (*complexFromRows)(const RingPlan& plan, const double* rows, const ComplexOutput& output);
    /// ... or bins in order: of the bins of column c those of row k to place k + q order[c].
    void (*binsToPairs)(const RingPlan& plan, const double* rows, const std::size_t* order, const PairsOutput& output);
    /// q-point transforms down the columns of q rows of r samples, q from 2, and back, times q.
    void (*splitColumns)(const double* samples, std::size_t q, std::size_t r, SplitRows rows);
    void (*joinColumns)(SplitRows rows, std::size_t q, std::size_t r, double* samples);
    /// y[i] = the sum of the taps at positions[i], on the straight line between the two rows about its fraction.
    /// @param positions  at least tapCount/2 - 1, and as far from the last sample as tapCount/2
    void (*interpolate)(const KernelRows& kernel, const double* x, const double* positions, double* y,
                        std::size_t count);
    /// values[i phaseCount + p] = sum_k weight of sample k at phase p x[i stride + k], in the order of k, i = 0 .. count - 1
    void (*readPhases)(const PhaseBank& bank, const double* x, std::size_t stride, std::size_t count, double* values);
    /// The same values, to the bit, phase by phase: to[p][i] = values[i phaseCount + p]
    void (*readPhasesApart)(const PhaseBank& bank, const double* x, std::size_t stride, std::size_t count,
                            double* const* to);
    /// beyond[i] = 1 where at some phase p, as far as the wide bank tells, the value of x[i stride ...] may reach limits[i][p]
    /// from above or limits[i][phaseCount + p] from below, else 0; 1 everywhere where a scaled sample lies beyond -1 to 1.
    /// @param scaled  room for (count - 1) stride + sampleCount values
    void (*screenPhases)(const PhaseScreen& screen, const double* x, std::size_t stride, std::size_t count,
                         const float* const* limits, float* scaled, unsigned char* beyond);
    /// sum[k] += stretches[i][k], i = 0 .. count - 1, k = 0 .. width - 1
    void (*addStretches)(const double* const* stretches, std::size_t count, std::size_t width, double* sum);
};

/// The loops compiled for one target; null when this build or this processor has none.
TARNWICK_FRAMEWORK_API const HotLoops* LoopsFor(LoopTarget target);

/// The fastest loops that this processor runs.
const HotLoops& Loops();

}  // namespace Tarnwick::DSO::Maths
