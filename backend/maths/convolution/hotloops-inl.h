// The hot loops, compiled once for each target: hotloops.cpp includes this file under the target's attribute with
// TARNWICK_LOOP_TARGET as the namespace, so there is no include guard.
// Nothing of std:: is called here. Its inline functions and templates become symbols that the whole program shares; one
// compiled for a newer processor could take the place of the plain one everywhere. Complex values are therefore read as
// pairs of doubles, which std::complex guarantees.

namespace Tarnwick::DSO::Maths {

namespace {

namespace TARNWICK_LOOP_TARGET {

inline constexpr std::size_t kLevelOneBlock =
    1024;  // [outputs] 8 KiB: they stay in the first-level cache from tap to tap

TARNWICK_ALWAYS_INLINE constexpr std::size_t Lesser(std::size_t a, std::size_t b)
{
    return b < a ? b : a;
}

TARNWICK_ALWAYS_INLINE double* Parts(Complex* values)
{
    return reinterpret_cast<double*>(values);
}

TARNWICK_ALWAYS_INLINE const double* Parts(const Complex* values)
{
    return reinterpret_cast<const double*>(values);
}

// ---- direct sums

template <bool First>
TARNWICK_ALWAYS_INLINE void AddFourTaps(const double* x, const Tap* taps, double* __restrict y, std::size_t count)
{
    const double* x0 = x - taps[0].lag;
    const double* x1 = x - taps[1].lag;
    const double* x2 = x - taps[2].lag;
    const double* x3 = x - taps[3].lag;
    const double h0 = taps[0].value;
    const double h1 = taps[1].value;
    const double h2 = taps[2].value;
    const double h3 = taps[3].value;
    for (std::size_t i = 0; i < count; ++i) {
        const double sum = h0 * x0[i] + h1 * x1[i] + h2 * x2[i] + h3 * x3[i];
        y[i] = First ? sum : y[i] + sum;
    }
}

template <bool First>
TARNWICK_ALWAYS_INLINE void AddOneTap(const double* x, const Tap& tap, double* __restrict y, std::size_t count)
{
    const double* from = x - tap.lag;
    const double value = tap.value;
    for (std::size_t i = 0; i < count; ++i)
        y[i] = First ? value * from[i] : y[i] + value * from[i];
}

inline void SumTaps(const double* x, const Tap* taps, std::size_t tapCount, double* y, std::size_t count)
{
    for (std::size_t begin = 0; begin < count; begin += kLevelOneBlock) {
        const std::size_t size = Lesser(kLevelOneBlock, count - begin);
        double* block = y + begin;
        std::size_t t = 0;
        if (tapCount >= 4) {
            AddFourTaps<true>(x + begin, taps, block, size);
            t = 4;
        } else {
            AddOneTap<true>(x + begin, taps[0], block, size);
            t = 1;
        }
        for (; t + 4 <= tapCount; t += 4)
            AddFourTaps<false>(x + begin, taps + t, block, size);
        for (; t < tapCount; ++t)
            AddOneTap<false>(x + begin, taps[t], block, size);
    }
}

// S_2m[i] = S_m[i] + S_m[i + m]; the binary digits of the width say which of them make up the window.
inline void SumWindow(const double* x, std::size_t width, double divisor, double factor, double* result,
                      std::size_t count, double* scratch)
{
    double* __restrict y = result;  // as a parameter g++ 12 takes 14 % longer at 101 samples. Measured.
    double* other = scratch;
    double* spare = scratch + count + width;
    const double* sums = x;
    std::size_t length = count + width - 1;
    std::size_t offset = 0;
    for (std::size_t m = 1; m <= width; m *= 2) {
        if (m > 1) {
            length -= m / 2;
            double* __restrict next = other;
            for (std::size_t i = 0; i < length; ++i)
                next[i] = sums[i] + sums[i + m / 2];
            double* const summed = other;
            sums = summed;
            other = spare;
            spare = summed;
        }
        if ((width & m) == 0)
            continue;
        const double* part = sums + offset;
        const bool last = 2 * m > width;
        if (!last && offset == 0) {
            for (std::size_t i = 0; i < count; ++i)
                y[i] = part[i];
        } else if (!last) {
            for (std::size_t i = 0; i < count; ++i)
                y[i] += part[i];
        } else {
            // A power of two has one digit, and nothing has been summed before it.
            if (offset == 0)
                for (std::size_t i = 0; i < count; ++i)
                    y[i] = 0.0;
            if (divisor != 0.0) {
                for (std::size_t i = 0; i < count; ++i)
                    y[i] = (y[i] + part[i]) / divisor;
            } else {
                for (std::size_t i = 0; i < count; ++i)
                    y[i] = (y[i] + part[i]) * factor;
            }
        }
        offset += m;
    }
}

// ---- products

inline void Multiply(Complex* a, const Complex* b, std::size_t count)
{
    double* p = Parts(a);
    const double* q = Parts(b);
    for (std::size_t k = 0; k < 2 * count; k += 2) {
        const double real = p[k] * q[k] - p[k + 1] * q[k + 1];
        const double imag = p[k] * q[k + 1] + p[k + 1] * q[k];
        p[k] = real;
        p[k + 1] = imag;
    }
}

inline void AddScaled(const double* x, double factor, double* __restrict y, std::size_t count)
{
    for (std::size_t c = 0; c < count; ++c)
        y[c] += factor * x[c];
}

inline void AddScaledComplex(const Complex* x, Complex factor, Complex* y, std::size_t count)
{
    const double* from = Parts(x);
    double* __restrict to = Parts(y);
    const double real = Parts(&factor)[0];
    const double imag = Parts(&factor)[1];
    for (std::size_t c = 0; c < 2 * count; c += 2) {
        to[c] += real * from[c] - imag * from[c + 1];
        to[c + 1] += real * from[c + 1] + imag * from[c];
    }
}

// ---- four columns side by side: a vector where the compiler has them, else four values

#if defined(__GNUC__) || defined(__clang__)
using Pack = double __attribute__((vector_size(32)));
#else
struct Pack {
    double lane[4];
    friend Pack operator+(Pack a, Pack b)
    {
        return {a.lane[0] + b.lane[0], a.lane[1] + b.lane[1], a.lane[2] + b.lane[2], a.lane[3] + b.lane[3]};
    }
    friend Pack operator-(Pack a, Pack b)
    {
        return {a.lane[0] - b.lane[0], a.lane[1] - b.lane[1], a.lane[2] - b.lane[2], a.lane[3] - b.lane[3]};
    }
    friend Pack operator*(Pack a, Pack b)
    {
        return {a.lane[0] * b.lane[0], a.lane[1] * b.lane[1], a.lane[2] * b.lane[2], a.lane[3] * b.lane[3]};
    }
    friend Pack operator*(double a, Pack b) { return Pack{a, a, a, a} * b; }
};
#endif
inline constexpr std::size_t kPack = 4;  // [doubles]
inline constexpr std::size_t kLine = 8;  // [doubles] in a cache line of 64 bytes
inline constexpr std::size_t kPacksPerLine = kLine / kPack;

// Packs are passed by reference: how a vector is returned depends on the ABI.
TARNWICK_ALWAYS_INLINE void Load(const double* from, Pack& to)
{
    std::memcpy(&to, from, sizeof to);  // needs no alignment and costs nothing
}

TARNWICK_ALWAYS_INLINE void Store(const Pack& from, double* to)
{
    std::memcpy(to, &from, sizeof from);
}

TARNWICK_ALWAYS_INLINE void LoadPairs(const double* from, Pack& real, Pack& imag)
{
#if defined(__GNUC__) || defined(__clang__)
    Pack low;
    Pack high;
    Load(from, low);
    Load(from + kPack, high);
    real = __builtin_shufflevector(low, high, 0, 2, 4, 6);
    imag = __builtin_shufflevector(low, high, 1, 3, 5, 7);
#else
    for (std::size_t c = 0; c < kPack; ++c) {
        real.lane[c] = from[2 * c];
        imag.lane[c] = from[2 * c + 1];
    }
#endif
}

TARNWICK_ALWAYS_INLINE void StorePairs(const Pack& real, const Pack& imag, double* to)
{
#if defined(__GNUC__) || defined(__clang__)
    Store(__builtin_shufflevector(real, imag, 0, 4, 1, 5), to);
    Store(__builtin_shufflevector(real, imag, 2, 6, 3, 7), to + kPack);
#else
    for (std::size_t c = 0; c < kPack; ++c) {
        to[2 * c] = real.lane[c];
        to[2 * c + 1] = imag.lane[c];
    }
#endif
}

// How many of the four values from `at` on there are, of `count`.
TARNWICK_ALWAYS_INLINE std::size_t Present(std::size_t count, std::size_t at)
{
    return count <= at ? 0 : Lesser(kPack, count - at);
}

// values[at .. at + 3], with zeros from `count` on.
TARNWICK_ALWAYS_INLINE void LoadPadded(const double* values, std::size_t count, std::size_t at, Pack& to)
{
    if (at + kPack <= count) {
        Load(values + at, to);
        return;
    }
    double some[kPack] = {};
    for (std::size_t c = 0; c < Present(count, at); ++c)
        some[c] = values[at + c];
    Load(some, to);
}

// The same of complex values; `count` and `at` count pairs.
TARNWICK_ALWAYS_INLINE void LoadPairsPadded(const double* values, std::size_t count, std::size_t at, Pack& real,
                                            Pack& imag)
{
    if (at + kPack <= count) {
        LoadPairs(values + 2 * at, real, imag);
        return;
    }
    double some[2 * kPack] = {};
    for (std::size_t c = 0; c < 2 * Present(count, at); ++c)
        some[c] = values[2 * at + c];
    LoadPairs(some, real, imag);
}

// To values[at .. at + 3]; from `count` on to the tail, or nowhere without one.
TARNWICK_ALWAYS_INLINE void StoreSplit(const Pack& from, std::size_t at, std::size_t count, double* values,
                                       double* tail)
{
    if (at + kPack <= count) {
        Store(from, values + at);
        return;
    }
    if (tail != nullptr && at >= count) {
        Store(from, tail + (at - count));
        return;
    }
    double some[kPack];
    Store(from, some);
    for (std::size_t c = 0; c < kPack; ++c) {
        if (at + c < count)
            values[at + c] = some[c];
        else if (tail != nullptr)
            tail[at + c - count] = some[c];
    }
}

TARNWICK_ALWAYS_INLINE void StorePairsSplit(const Pack& real, const Pack& imag, std::size_t at, std::size_t count,
                                            double* values, double* tail)
{
    if (at + kPack <= count) {
        StorePairs(real, imag, values + 2 * at);
        return;
    }
    if (tail != nullptr && at >= count) {
        StorePairs(real, imag, tail + 2 * (at - count));
        return;
    }
    double some[2 * kPack];
    StorePairs(real, imag, some);
    for (std::size_t c = 0; c < 2 * kPack; ++c) {
        if (2 * at + c < 2 * count)
            values[2 * at + c] = some[c];
        else if (tail != nullptr)
            tail[2 * (at - count) + c] = some[c];
    }
}

// ---- short transforms down the columns, Q points, over one table of roots

// Times exp(-2 pi i n / Q), or its conjugate where the direction is -1.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void Rotate(Pack& real, Pack& imag, std::size_t n, double direction)
{
    const double cosine = kRoots.cosine[n * (kMostRows / Q)];
    const double sine = direction * kRoots.sine[n * (kMostRows / Q)];
    const Pack rotated = cosine * real - sine * imag;
    imag = cosine * imag + sine * real;
    real = rotated;
}

TARNWICK_ALWAYS_INLINE void TwoPoint(Pack& a, Pack& b)
{
    const Pack difference = a - b;
    a = a + b;
    b = difference;
}

// The four-point transform in place of elements 0, step, 2 step and 3 step, with exp(-i ..) or, back, with exp(+i ..).
template <bool Back>
TARNWICK_ALWAYS_INLINE void FourPoint(Pack* real, Pack* imag, std::size_t step)
{
    const Pack sumReal = real[0] + real[2 * step];
    const Pack sumImag = imag[0] + imag[2 * step];
    const Pack differenceReal = real[0] - real[2 * step];
    const Pack differenceImag = imag[0] - imag[2 * step];
    const Pack oddReal = real[step] + real[3 * step];
    const Pack oddImag = imag[step] + imag[3 * step];
    const Pack crossReal = real[step] - real[3 * step];
    const Pack crossImag = imag[step] - imag[3 * step];
    constexpr std::size_t first = Back ? 3 : 1;
    constexpr std::size_t third = Back ? 1 : 3;
    real[0] = sumReal + oddReal;
    imag[0] = sumImag + oddImag;
    real[2 * step] = sumReal - oddReal;
    imag[2 * step] = sumImag - oddImag;
    real[first * step] = differenceReal + crossImag;
    imag[first * step] = differenceImag - crossReal;
    real[third * step] = differenceReal - crossImag;
    imag[third * step] = differenceImag + crossReal;
}

// Where bin k of a complex transform in place ends up: its digits, base 4, backwards.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE constexpr std::size_t DigitReversed(std::size_t bin)
{
    if constexpr (Q <= 2)
        return bin;
    else
        return bin % 4 * (Q / 4) + DigitReversed<Q / 4>(bin / 4);
}

// Complex values in place, radix 4: in order to digit-reversed ...
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void ForwardComplex(Pack* real, Pack* imag)
{
    if constexpr (Q == 2) {
        TwoPoint(real[0], real[1]);
        TwoPoint(imag[0], imag[1]);
    } else if constexpr (Q >= 4) {
        constexpr std::size_t step = Q / 4;
        FourPoint<false>(real, imag, step);
        for (std::size_t n = 1; n < step; ++n) {
            FourPoint<false>(real + n, imag + n, step);
            for (std::size_t m = 1; m < 4; ++m)
                Rotate<Q>(real[n + m * step], imag[n + m * step], m * n, 1.0);
        }
        for (std::size_t m = 0; m < 4; ++m)
            ForwardComplex<step>(real + m * step, imag + m * step);
    }
}

// ... and back.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void BackwardComplex(Pack* real, Pack* imag)
{
    if constexpr (Q == 2) {
        TwoPoint(real[0], real[1]);
        TwoPoint(imag[0], imag[1]);
    } else if constexpr (Q >= 4) {
        constexpr std::size_t step = Q / 4;
        for (std::size_t m = 0; m < 4; ++m)
            BackwardComplex<step>(real + m * step, imag + m * step);
        FourPoint<true>(real, imag, step);
        for (std::size_t n = 1; n < step; ++n) {
            for (std::size_t m = 1; m < 4; ++m)
                Rotate<Q>(real[n + m * step], imag[n + m * step], m * n, -1.0);
            FourPoint<true>(real + n, imag + n, step);
        }
    }
}

// Real values `stride` apart to bins 0 .. Q/2, radix 2: half the work of the complex transform.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void ForwardReal(const Pack* values, std::size_t stride, Pack* real, Pack* imag)
{
    if constexpr (Q == 2) {
        real[0] = values[0] + values[stride];
        real[1] = values[0] - values[stride];
        imag[0] = Pack{};
        imag[1] = Pack{};
    } else {
        Pack evenReal[Q / 4 + 1];
        Pack evenImag[Q / 4 + 1];
        Pack oddReal[Q / 4 + 1];
        Pack oddImag[Q / 4 + 1];
        ForwardReal<Q / 2>(values, 2 * stride, evenReal, evenImag);
        ForwardReal<Q / 2>(values + stride, 2 * stride, oddReal, oddImag);
        for (std::size_t k = 0; k <= Q / 4; ++k) {
            const std::size_t mirror = Q / 2 - k;
            Rotate<Q>(oddReal[k], oddImag[k], k, 1.0);
            real[mirror] = evenReal[k] - oddReal[k];
            imag[mirror] = oddImag[k] - evenImag[k];
            real[k] = evenReal[k] + oddReal[k];
            imag[k] = evenImag[k] + oddImag[k];
        }
    }
}

template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void BackwardReal(const Pack* real, const Pack* imag, Pack* values, std::size_t stride)
{
    if constexpr (Q == 2) {
        values[0] = real[0] + real[1];
        values[stride] = real[0] - real[1];
    } else {
        Pack evenReal[Q / 4 + 1];
        Pack evenImag[Q / 4 + 1];
        Pack oddReal[Q / 4 + 1];
        Pack oddImag[Q / 4 + 1];
        for (std::size_t k = 0; k <= Q / 4; ++k) {
            const std::size_t mirror = Q / 2 - k;
            evenReal[k] = real[k] + real[mirror];
            evenImag[k] = imag[k] - imag[mirror];
            oddReal[k] = real[k] - real[mirror];
            oddImag[k] = imag[k] + imag[mirror];
            Rotate<Q>(oddReal[k], oddImag[k], k, -1.0);
        }
        BackwardReal<Q / 2>(evenReal, evenImag, values, 2 * stride);
        BackwardReal<Q / 2>(oddReal, oddImag, values + stride, 2 * stride);
    }
}

// Calls the loop that is compiled for this number of rows, a power of two from Q to kMostRows.
template <typename Loop, std::size_t Q, typename... Arguments>
TARNWICK_ALWAYS_INLINE void ForRowCount(std::size_t rowCount, const Arguments&... arguments)
{
    if constexpr (Q < kMostRows) {
        if (rowCount != Q) {
            ForRowCount<Loop, 2 * Q>(rowCount, arguments...);
            return;
        }
    }
    Loop::template Run<Q>(arguments...);
}

// ---- between values and rows of bins

// The twiddle factors of four columns, from one row to the next.
struct Twiddles {
    Pack real, imag;
    Pack stepReal, stepImag;
    Pack anchorStepReal, anchorStepImag;
    Pack anchorReal, anchorImag;  // of the last row that is a multiple of kRowsPerAnchor
};

TARNWICK_ALWAYS_INLINE void StartTwiddles(const ColumnPlan& plan, std::size_t column, Twiddles& twiddles)
{
    Load(plan.startReal + column, twiddles.real);
    Load(plan.startImag + column, twiddles.imag);
    Load(plan.stepReal + column, twiddles.stepReal);
    Load(plan.stepImag + column, twiddles.stepImag);
    Load(plan.anchorStepReal + column, twiddles.anchorStepReal);
    Load(plan.anchorStepImag + column, twiddles.anchorStepImag);
    twiddles.anchorReal = twiddles.real;
    twiddles.anchorImag = twiddles.imag;
}

// From those of this row to those of the next.
TARNWICK_ALWAYS_INLINE void AdvanceTwiddles(Twiddles& t, std::size_t row)
{
    if ((row + 1) % kRowsPerAnchor != 0) {
        const Pack next = t.real * t.stepReal - t.imag * t.stepImag;
        t.imag = t.real * t.stepImag + t.imag * t.stepReal;
        t.real = next;
    } else {
        t.real = t.anchorReal * t.anchorStepReal - t.anchorImag * t.anchorStepImag;
        t.imag = t.anchorReal * t.anchorStepImag + t.anchorImag * t.anchorStepReal;
        t.anchorReal = t.real;
        t.anchorImag = t.imag;
    }
}

// Four values of input row t.
TARNWICK_ALWAYS_INLINE void LoadInput(const ColumnPlan& plan, const double* values, std::size_t count, std::size_t t,
                                      std::size_t column, Pack& real, Pack& imag)
{
    const std::size_t at = t * plan.rowLength + column;
    Pack low;
    LoadPadded(values, count, at, low);
    real = plan.inputReal[t] * low;
    imag = plan.inputImag[t] * low;
    const std::size_t points = plan.rowCount * plan.rowLength;
    if (at + points < count) {
        // z^M = -i: the upper half enters as -i times its values.
        Pack high;
        LoadPadded(values, count, at + points, high);
        real = real + plan.inputImag[t] * high;
        imag = imag - plan.inputReal[t] * high;
    }
}

TARNWICK_ALWAYS_INLINE void LoadInput(const ColumnPlan& plan, const Complex* values, std::size_t count, std::size_t t,
                                      std::size_t column, Pack& real, Pack& imag)
{
    LoadPairsPadded(Parts(values), count, t * plan.rowLength + column, real, imag);
}

// Four values of output row t.
TARNWICK_ALWAYS_INLINE void StoreOutput(const ColumnPlan& plan, const Pack& real, const Pack& imag, std::size_t t,
                                        std::size_t column, std::size_t count, double* values, double* tail)
{
    const std::size_t at = t * plan.rowLength + column;
    const std::size_t points = plan.rowCount * plan.rowLength;
    StoreSplit(plan.inputReal[t] * real + plan.inputImag[t] * imag, at, count, values, tail);
    StoreSplit(plan.inputImag[t] * real - plan.inputReal[t] * imag, at + points, count, values, tail);
}

TARNWICK_ALWAYS_INLINE void StoreOutput(const ColumnPlan& plan, const Pack& real, const Pack& imag, std::size_t t,
                                        std::size_t column, std::size_t count, Complex* values, Complex* tail)
{
    StorePairsSplit(real, imag, t * plan.rowLength + column, count, Parts(values), Parts(tail));
}

struct ToRows {
    template <std::size_t Q, typename Value>
    TARNWICK_ALWAYS_INLINE static void Run(const ColumnPlan& plan, const Value* values, std::size_t count, double* rows)
    {
        for (std::size_t column = 0; column < plan.rowLength; column += kLine) {
            Pack real[kPacksPerLine][Q];
            Pack imag[kPacksPerLine][Q];
            // A cache line of each row at a time: rows may lie a large power of two apart and compete for cache sets.
            for (std::size_t t = 0; t < Q; ++t)
                for (std::size_t half = 0; half < kPacksPerLine; ++half)
                    LoadInput(plan, values, count, t, column + half * kPack, real[half][t], imag[half][t]);
            for (std::size_t half = 0; half < kPacksPerLine; ++half) {
                ForwardComplex<Q>(real[half], imag[half]);
                Twiddles twiddles;
                StartTwiddles(plan, column + half * kPack, twiddles);
                for (std::size_t k = 0; k < Q; ++k) {
                    const Pack& x = real[half][DigitReversed<Q>(k)];
                    const Pack& y = imag[half][DigitReversed<Q>(k)];
                    const Pack rotatedReal = x * twiddles.real - y * twiddles.imag;
                    const Pack rotatedImag = x * twiddles.imag + y * twiddles.real;
                    StorePairs(rotatedReal, rotatedImag, rows + 2 * (k * plan.pitch + column + half * kPack));
                    AdvanceTwiddles(twiddles, k);
                }
            }
        }
    }
};

struct FromRows {
    template <std::size_t Q, typename Value>
    TARNWICK_ALWAYS_INLINE static void Run(const ColumnPlan& plan, const double* rows, std::size_t count, Value* values,
                                           Value* tail)
    {
        for (std::size_t column = 0; column < plan.rowLength; column += kLine) {
            Pack real[kPacksPerLine][Q];
            Pack imag[kPacksPerLine][Q];
            for (std::size_t half = 0; half < kPacksPerLine; ++half) {
                Twiddles twiddles;
                StartTwiddles(plan, column + half * kPack, twiddles);
                for (std::size_t k = 0; k < Q; ++k) {
                    Pack x;
                    Pack y;
                    LoadPairs(rows + 2 * (k * plan.pitch + column + half * kPack), x, y);
                    real[half][DigitReversed<Q>(k)] = x * twiddles.real + y * twiddles.imag;
                    imag[half][DigitReversed<Q>(k)] = y * twiddles.real - x * twiddles.imag;
                    AdvanceTwiddles(twiddles, k);
                }
                BackwardComplex<Q>(real[half], imag[half]);
            }
            for (std::size_t t = 0; t < Q; ++t)
                for (std::size_t half = 0; half < kPacksPerLine; ++half)
                    StoreOutput(plan, real[half][t], imag[half][t], t, column + half * kPack, count, values, tail);
        }
    }
};

inline void RealToRows(const ColumnPlan& plan, const double* values, std::size_t count, Complex* rows)
{
    ForRowCount<ToRows, 1>(plan.rowCount, plan, values, count, Parts(rows));
}

inline void ComplexToRows(const ColumnPlan& plan, const Complex* values, std::size_t count, Complex* rows)
{
    ForRowCount<ToRows, 1>(plan.rowCount, plan, values, count, Parts(rows));
}

inline void RealFromRows(const ColumnPlan& plan, const Complex* rows, std::size_t count, double* values, double* tail)
{
    ForRowCount<FromRows, 1>(plan.rowCount, plan, Parts(rows), count, values, tail);
}

inline void ComplexFromRows(const ColumnPlan& plan, const Complex* rows, std::size_t count, Complex* values,
                            Complex* tail)
{
    ForRowCount<FromRows, 1>(plan.rowCount, plan, Parts(rows), count, values, tail);
}

// ---- between a period and its split rows

struct Split {
    template <std::size_t Q>
    TARNWICK_ALWAYS_INLINE static void Run(const double* samples, std::size_t r, const SplitRows& rows)
    {
        double* inner = Parts(rows.inner);
        for (std::size_t line = 0; line < r; line += kLine) {
            Pack values[kPacksPerLine][Q];
            for (std::size_t t = 0; t < Q; ++t)
                for (std::size_t half = 0; half < kPacksPerLine; ++half)
                    LoadPadded(samples + t * r, r, line + half * kPack, values[half][t]);
            for (std::size_t half = 0; half < kPacksPerLine; ++half) {
                const std::size_t column = line + half * kPack;
                Pack real[Q / 2 + 1];
                Pack imag[Q / 2 + 1];
                ForwardReal<Q>(values[half], 1, real, imag);
                StoreSplit(real[0], column, r, rows.first, nullptr);
                StoreSplit(real[Q / 2], column, r, rows.middle, nullptr);
                for (std::size_t k = 1; k < Q / 2; ++k)
                    StorePairsSplit(real[k], imag[k], column, r, inner + 2 * (k - 1) * r, nullptr);
            }
        }
    }
};

struct Join {
    template <std::size_t Q>
    TARNWICK_ALWAYS_INLINE static void Run(const SplitRows& rows, std::size_t r, double* samples)
    {
        const double* inner = Parts(rows.inner);
        for (std::size_t line = 0; line < r; line += kLine) {
            Pack values[kPacksPerLine][Q];
            for (std::size_t half = 0; half < kPacksPerLine; ++half) {
                const std::size_t column = line + half * kPack;
                Pack real[Q / 2 + 1];
                Pack imag[Q / 2 + 1];
                LoadPadded(rows.first, r, column, real[0]);
                LoadPadded(rows.middle, r, column, real[Q / 2]);
                imag[0] = Pack{};
                imag[Q / 2] = Pack{};
                for (std::size_t k = 1; k < Q / 2; ++k)
                    LoadPairsPadded(inner + 2 * (k - 1) * r, r, column, real[k], imag[k]);
                BackwardReal<Q>(real, imag, values[half], 1);
            }
            for (std::size_t t = 0; t < Q; ++t)
                for (std::size_t half = 0; half < kPacksPerLine; ++half)
                    StoreSplit(values[half][t], line + half * kPack, r, samples + t * r, nullptr);
        }
    }
};

inline void SplitColumns(const double* samples, std::size_t q, std::size_t r, SplitRows rows)
{
    ForRowCount<Split, 2>(q, samples, r, rows);
}

inline void JoinColumns(SplitRows rows, std::size_t q, std::size_t r, double* samples)
{
    ForRowCount<Join, 2>(q, rows, r, samples);
}

// ---- samples between samples

inline void Interpolate(const KernelRows& kernel, const double* x, const double* positions, double* y,
                        std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const auto whole = static_cast<std::ptrdiff_t>(positions[i]);
        const double place = (positions[i] - static_cast<double>(whole)) * static_cast<double>(kernel.phaseCount);
        const auto row = static_cast<std::ptrdiff_t>(place);
        const double fraction = place - static_cast<double>(row);
        const double* here = kernel.rows + static_cast<std::size_t>(row) * kernel.tapCount;
        const double* next = here + kernel.tapCount;
        const double* from = x + whole - static_cast<std::ptrdiff_t>(kernel.tapCount / 2) + 1;
        Pack before[kPacksPerLine] = {};
        Pack after[kPacksPerLine] = {};
        for (std::size_t j = 0; j < kernel.tapCount; j += kLine)
            for (std::size_t half = 0; half < kPacksPerLine; ++half) {
                Pack sample;
                Pack tap;
                Load(from + j + half * kPack, sample);
                Load(here + j + half * kPack, tap);
                before[half] = before[half] + sample * tap;
                Load(next + j + half * kPack, tap);
                after[half] = after[half] + sample * tap;
            }
        const Pack low = before[0] + before[1];
        const Pack high = after[0] + after[1];
        double sums[kPack];
        Store(low + fraction * (high - low), sums);
        y[i] = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    }
}

inline constexpr HotLoops kLoops = {SumTaps,          SumWindow,    Multiply,      AddScaled,
                                    AddScaledComplex, RealToRows,   ComplexToRows, RealFromRows,
                                    ComplexFromRows,  SplitColumns, JoinColumns,   Interpolate};

}  // namespace TARNWICK_LOOP_TARGET

}  // namespace

}  // namespace Tarnwick::DSO::Maths
