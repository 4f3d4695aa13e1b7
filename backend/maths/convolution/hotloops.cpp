#include "maths/convolution/hotloops.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <type_traits>

#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
#define TARNWICK_HAS_AVX2 1
#define TARNWICK_AVX2 __attribute__((target("avx2,fma")))
#endif
#if defined(__GNUC__) || defined(__clang__)
#define TARNWICK_INLINE inline __attribute__((always_inline))
#else
#define TARNWICK_INLINE inline
#endif

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kLevelOneBlock = 1024;  // outputs of a block of taps that stay in the first-level cache

template <bool First>
TARNWICK_INLINE void AddFourTaps(const double* x, const Tap* taps, double* __restrict y, std::size_t count)
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
TARNWICK_INLINE void AddOneTap(const double* x, Tap tap, double* __restrict y, std::size_t count)
{
    const double* from = x - tap.lag;
    for (std::size_t i = 0; i < count; ++i)
        y[i] = First ? tap.value * from[i] : y[i] + tap.value * from[i];
}

TARNWICK_INLINE void SumTapsBody(const double* x, const Tap* taps, std::size_t tapCount, double* y, std::size_t count)
{
    for (std::size_t begin = 0; begin < count; begin += kLevelOneBlock) {
        const std::size_t size = std::min(kLevelOneBlock, count - begin);
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
TARNWICK_INLINE void SumWindowBody(const double* x, std::size_t width, double divisor, double factor,
                                   double* __restrict y, std::size_t count, double* scratch)
{
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
            sums = other;
            std::swap(other, spare);
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
                std::fill(y, y + count, 0.0);
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

TARNWICK_INLINE void MultiplyBody(Complex* a, const Complex* b, std::size_t count)
{
    auto* p = reinterpret_cast<double*>(a);
    const auto* q = reinterpret_cast<const double*>(b);
    for (std::size_t k = 0; k < 2 * count; k += 2) {
        const double real = p[k] * q[k] - p[k + 1] * q[k + 1];
        const double imag = p[k] * q[k + 1] + p[k + 1] * q[k];
        p[k] = real;
        p[k + 1] = imag;
    }
}

TARNWICK_INLINE void AddTurnedBody(const double* x, double turn, double* __restrict y, std::size_t count)
{
    for (std::size_t c = 0; c < count; ++c)
        y[c] += turn * x[c];
}

TARNWICK_INLINE void AddTurnedComplexBody(const Complex* x, Complex turn, Complex* y, std::size_t count)
{
    const auto* from = reinterpret_cast<const double*>(x);
    auto* __restrict to = reinterpret_cast<double*>(y);
    const double cosine = turn.real();
    const double sine = turn.imag();
    for (std::size_t c = 0; c < 2 * count; c += 2) {
        to[c] += cosine * from[c] - sine * from[c + 1];
        to[c + 1] += cosine * from[c + 1] + sine * from[c];
    }
}

// Four columns side by side. g++ and clang know vectors and make of them what the processor has; elsewhere four values.
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
constexpr std::size_t kPack = 4;
constexpr std::size_t kLine = 8;  // doubles in a cache line; rows are a multiple of it

// Through memcpy, which needs no alignment and costs nothing. By reference: to return a vector is a matter of the ABI.
TARNWICK_INLINE void Load(const double* from, Pack& to)
{
    std::memcpy(&to, from, sizeof to);
}

TARNWICK_INLINE void Store(const Pack& from, double* to)
{
    std::memcpy(to, &from, sizeof from);
}

TARNWICK_INLINE void LoadPairs(const Complex* from, Pack& real, Pack& imag)
{
#if defined(__GNUC__) || defined(__clang__)
    Pack low;
    Pack high;
    Load(reinterpret_cast<const double*>(from), low);
    Load(reinterpret_cast<const double*>(from) + kPack, high);
    real = __builtin_shufflevector(low, high, 0, 2, 4, 6);
    imag = __builtin_shufflevector(low, high, 1, 3, 5, 7);
#else
    for (std::size_t c = 0; c < kPack; ++c) {
        real.lane[c] = from[c].real();
        imag.lane[c] = from[c].imag();
    }
#endif
}

TARNWICK_INLINE void StorePairs(const Pack& real, const Pack& imag, Complex* to)
{
#if defined(__GNUC__) || defined(__clang__)
    Store(__builtin_shufflevector(real, imag, 0, 4, 1, 5), reinterpret_cast<double*>(to));
    Store(__builtin_shufflevector(real, imag, 2, 6, 3, 7), reinterpret_cast<double*>(to) + kPack);
#else
    for (std::size_t c = 0; c < kPack; ++c)
        to[c] = {real.lane[c], imag.lane[c]};
#endif
}

// exp(-2 pi i n / Q), n < Q.
template <std::size_t Q>
struct Roots {
    double cosine[Q];
    double sine[Q];
    Roots()
    {
        for (std::size_t n = 0; n < Q; ++n) {
            const double angle = -2.0 * std::numbers::pi * static_cast<double>(n) / static_cast<double>(Q);
            cosine[n] = std::cos(angle);
            sine[n] = std::sin(angle);
        }
    }
};
template <std::size_t Q>
const Roots<Q> kRoots;

// Where bin k of a Q-point transform in place ends up: its digits, base 4, backwards.
template <std::size_t Q>
constexpr std::size_t PlaceOf(std::size_t bin)
{
    if constexpr (Q <= 2)
        return bin;
    else
        return bin % 4 * (Q / 4) + PlaceOf<Q / 4>(bin / 4);
}

template <std::size_t Q>
TARNWICK_INLINE void Turn(Pack& real, Pack& imag, std::size_t n, double direction)
{
    const double cosine = kRoots<Q>.cosine[n];
    const double sine = direction * kRoots<Q>.sine[n];
    const Pack turned = cosine * real - sine * imag;
    imag = cosine * imag + sine * real;
    real = turned;
}

TARNWICK_INLINE void TwoPoint(Pack& a, Pack& b)
{
    const Pack difference = a - b;
    a = a + b;
    b = difference;
}

// The four-point transform in place of elements 0, step, 2 step and 3 step, with exp(-i ..) or, back, with exp(+i ..).
template <bool Back>
TARNWICK_INLINE void FourPoint(Pack* real, Pack* imag, std::size_t step)
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

template <std::size_t Q>
TARNWICK_INLINE void ForwardColumns(Pack* real, Pack* imag)
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
                Turn<Q>(real[n + m * step], imag[n + m * step], m * n, 1.0);
        }
        for (std::size_t m = 0; m < 4; ++m)
            ForwardColumns<step>(real + m * step, imag + m * step);
    }
}

template <std::size_t Q>
TARNWICK_INLINE void BackwardColumns(Pack* real, Pack* imag)
{
    if constexpr (Q == 2) {
        TwoPoint(real[0], real[1]);
        TwoPoint(imag[0], imag[1]);
    } else if constexpr (Q >= 4) {
        constexpr std::size_t step = Q / 4;
        for (std::size_t m = 0; m < 4; ++m)
            BackwardColumns<step>(real + m * step, imag + m * step);
        FourPoint<true>(real, imag, step);
        for (std::size_t n = 1; n < step; ++n) {
            for (std::size_t m = 1; m < 4; ++m)
                Turn<Q>(real[n + m * step], imag[n + m * step], m * n, -1.0);
            FourPoint<true>(real + n, imag + n, step);
        }
    }
}

// The factors between columns and rows, from one row to the next.
struct Factors {
    Pack real, imag;
    Pack stepReal, stepImag;
    Pack leapReal, leapImag;
    Pack markReal, markImag;  // the factors of the last row that was reached by leaps

    TARNWICK_INLINE Factors(const ColumnTables& tables, std::size_t column)
    {
        Load(&tables.startReal[column], real);
        Load(&tables.startImag[column], imag);
        Load(&tables.stepReal[column], stepReal);
        Load(&tables.stepImag[column], stepImag);
        Load(&tables.leapReal[column], leapReal);
        Load(&tables.leapImag[column], leapImag);
        markReal = real;
        markImag = imag;
    }
    TARNWICK_INLINE void Advance(std::size_t row)
    {
        if ((row + 1) % kTurnsPerLeap != 0) {
            const Pack next = real * stepReal - imag * stepImag;
            imag = real * stepImag + imag * stepReal;
            real = next;
        } else {
            real = markReal * leapReal - markImag * leapImag;
            imag = markReal * leapImag + markImag * leapReal;
            markReal = real;
            markImag = imag;
        }
    }
};

// How many of the four values from `at` on there are.
TARNWICK_INLINE std::size_t Present(std::size_t count, std::size_t at)
{
    return count <= at ? 0 : std::min(kPack, count - at);
}

TARNWICK_INLINE void LoadSome(const double* values, std::size_t count, std::size_t at, Pack& to)
{
    double some[kPack] = {};
    for (std::size_t c = 0; c < Present(count, at); ++c)
        some[c] = values[at + c];
    Load(some, to);
}

// Four values of input row t.
TARNWICK_INLINE void LoadAt(const ColumnTables& tables, const double* values, std::size_t count, std::size_t t,
                            std::size_t column, Pack& real, Pack& imag)
{
    const std::size_t at = t * tables.rowLength + column;
    Pack low;
    if (at + kPack <= count)
        Load(values + at, low);
    else
        LoadSome(values, count, at, low);
    real = tables.rowReal[t] * low;
    imag = tables.rowImag[t] * low;
    const std::size_t points = tables.rowCount * tables.rowLength;
    if (at + points < count) {
        // z^M = -i: the upper half enters as -i times its values.
        Pack high;
        LoadSome(values, count, at + points, high);
        real = real + tables.rowImag[t] * high;
        imag = imag - tables.rowReal[t] * high;
    }
}

TARNWICK_INLINE void LoadAt(const ColumnTables& tables, const Complex* values, std::size_t count, std::size_t t,
                            std::size_t column, Pack& real, Pack& imag)
{
    const std::size_t at = t * tables.rowLength + column;
    if (at + kPack <= count) {
        LoadPairs(values + at, real, imag);
        return;
    }
    Complex some[kPack] = {};
    for (std::size_t c = 0; c < Present(count, at); ++c)
        some[c] = values[at + c];
    LoadPairs(some, real, imag);
}

template <std::size_t Q, typename Value>
TARNWICK_INLINE void ToRows(const ColumnTables& tables, const Value* values, std::size_t count, Complex* rows)
{
    for (std::size_t column = 0; column < tables.rowLength; column += kLine) {
        Pack real[kLine / kPack][Q];
        Pack imag[kLine / kPack][Q];
        // A cache line of each row at a time: the rows lie a large power of two apart, and compete for the same sets.
        for (std::size_t t = 0; t < Q; ++t)
            for (std::size_t half = 0; half < kLine / kPack; ++half)
                LoadAt(tables, values, count, t, column + half * kPack, real[half][t], imag[half][t]);
        for (std::size_t half = 0; half < kLine / kPack; ++half) {
            ForwardColumns<Q>(real[half], imag[half]);
            Factors factors(tables, column + half * kPack);
            for (std::size_t k = 0; k < Q; ++k) {
                const Pack& x = real[half][PlaceOf<Q>(k)];
                const Pack& y = imag[half][PlaceOf<Q>(k)];
                const Pack turnedReal = x * factors.real - y * factors.imag;
                const Pack turnedImag = x * factors.imag + y * factors.real;
                StorePairs(turnedReal, turnedImag, rows + k * tables.pitch + column + half * kPack);
                factors.Advance(k);
            }
        }
    }
}

// Four values that lie at `at` of a product: those before `count` are the row's, the others wrap.
TARNWICK_INLINE void Emit(const Pack& from, std::size_t at, std::size_t count, double* values, double* tail)
{
    if (at + kPack <= count) {
        Store(from, values + at);
    } else if (at >= count) {
        Store(from, tail + (at - count));
    } else {
        double some[kPack];
        Store(from, some);
        for (std::size_t c = 0; c < kPack; ++c)
            (at + c < count ? values[at + c] : tail[at + c - count]) = some[c];
    }
}

TARNWICK_INLINE void EmitPairs(const Pack& real, const Pack& imag, std::size_t at, std::size_t count, Complex* values,
                               Complex* tail)
{
    if (at + kPack <= count) {
        StorePairs(real, imag, values + at);
    } else if (at >= count) {
        StorePairs(real, imag, tail + (at - count));
    } else {
        Complex some[kPack];
        StorePairs(real, imag, some);
        for (std::size_t c = 0; c < kPack; ++c)
            (at + c < count ? values[at + c] : tail[at + c - count]) = some[c];
    }
}

template <std::size_t Q, typename Value>
TARNWICK_INLINE void FromRows(const ColumnTables& tables, const Complex* rows, std::size_t count, Value* values,
                              Value* tail)
{
    const std::size_t points = Q * tables.rowLength;
    for (std::size_t column = 0; column < tables.rowLength; column += kLine) {
        Pack real[kLine / kPack][Q];
        Pack imag[kLine / kPack][Q];
        for (std::size_t half = 0; half < kLine / kPack; ++half) {
            Factors factors(tables, column + half * kPack);
            for (std::size_t k = 0; k < Q; ++k) {
                Pack x;
                Pack y;
                LoadPairs(rows + k * tables.pitch + column + half * kPack, x, y);
                real[half][PlaceOf<Q>(k)] = x * factors.real + y * factors.imag;
                imag[half][PlaceOf<Q>(k)] = y * factors.real - x * factors.imag;
                factors.Advance(k);
            }
            BackwardColumns<Q>(real[half], imag[half]);
        }
        for (std::size_t t = 0; t < Q; ++t) {
            for (std::size_t half = 0; half < kLine / kPack; ++half) {
                const std::size_t at = t * tables.rowLength + column + half * kPack;
                const Pack& x = real[half][t];
                const Pack& y = imag[half][t];
                if constexpr (std::is_same_v<Value, double>) {
                    Emit(tables.rowReal[t] * x + tables.rowImag[t] * y, at, count, values, tail);
                    Emit(tables.rowImag[t] * x - tables.rowReal[t] * y, at + points, count, values, tail);
                } else {
                    EmitPairs(x, y, at, count, values, tail);
                }
            }
        }
    }
}

// A loop for each number of rows there can be. A macro: what a lambda calls is not compiled for the same processor.
// NOLINTBEGIN(bugprone-macro-parentheses): template names and argument lists stand as they are
#define TARNWICK_EACH_ROW_COUNT(loop, value, rowCount, arguments) \
    switch (rowCount) {                                           \
        case 1: return loop<1, value> arguments;                  \
        case 2: return loop<2, value> arguments;                  \
        case 4: return loop<4, value> arguments;                  \
        case 8: return loop<8, value> arguments;                  \
        case 16: return loop<16, value> arguments;                \
        default: return loop<32, value> arguments;                \
    }

// NOLINTEND(bugprone-macro-parentheses)

TARNWICK_INLINE void RealToRowsBody(const ColumnTables& tables, const double* values, std::size_t count, Complex* rows){
    TARNWICK_EACH_ROW_COUNT(ToRows, double, tables.rowCount, (tables, values, count, rows))}

TARNWICK_INLINE
    void ComplexToRowsBody(const ColumnTables& tables, const Complex* values, std::size_t count, Complex* rows){
        TARNWICK_EACH_ROW_COUNT(ToRows, Complex, tables.rowCount, (tables, values, count, rows))}

TARNWICK_INLINE void RealFromRowsBody(const ColumnTables& tables, const Complex* rows, std::size_t count,
                                      double* values, double* tail){
    TARNWICK_EACH_ROW_COUNT(FromRows, double, tables.rowCount, (tables, rows, count, values, tail))}

TARNWICK_INLINE void ComplexFromRowsBody(const ColumnTables& tables, const Complex* rows, std::size_t count,
                                         Complex* values, Complex* tail)
{
    TARNWICK_EACH_ROW_COUNT(FromRows, Complex, tables.rowCount, (tables, rows, count, values, tail))
}

// A block of columns: bins k = 0 .. Q/2 of the Q-point transform of each column of real values.
template <std::size_t Q>
struct Columns {
    double real[Q / 2 + 1][kColumnBlock];
    double imag[Q / 2 + 1][kColumnBlock];
};

template <std::size_t Q>
struct Turns {
    double cosine[Q / 4 + 1];
    double sine[Q / 4 + 1];
    Turns()
    {
        for (std::size_t k = 0; k <= Q / 4; ++k) {
            const double angle = -2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(Q);
            cosine[k] = std::cos(angle);
            sine[k] = std::sin(angle);
        }
    }
};
template <std::size_t Q>
const Turns<Q> kTurns;

template <std::size_t Q>
TARNWICK_INLINE void TransformColumns(const double* x, std::size_t stride, std::size_t width, Columns<Q>& out)
{
    if constexpr (Q == 2) {
        const double* y = x + stride;
        for (std::size_t c = 0; c < width; ++c) {
            out.real[0][c] = x[c] + y[c];
            out.real[1][c] = x[c] - y[c];
            out.imag[0][c] = 0.0;
            out.imag[1][c] = 0.0;
        }
    } else {
        Columns<Q / 2> even;
        Columns<Q / 2> odd;
        TransformColumns<Q / 2>(x, 2 * stride, width, even);
        TransformColumns<Q / 2>(x + stride, 2 * stride, width, odd);
        const Turns<Q>& turns = kTurns<Q>;
        for (std::size_t k = 0; k <= Q / 4; ++k) {
            const double cosine = turns.cosine[k];
            const double sine = turns.sine[k];
            const std::size_t mirror = Q / 2 - k;
            for (std::size_t c = 0; c < width; ++c) {
                const double real = cosine * odd.real[k][c] - sine * odd.imag[k][c];
                const double imag = cosine * odd.imag[k][c] + sine * odd.real[k][c];
                out.real[mirror][c] = even.real[k][c] - real;
                out.imag[mirror][c] = imag - even.imag[k][c];
                out.real[k][c] = even.real[k][c] + real;
                out.imag[k][c] = even.imag[k][c] + imag;
            }
        }
    }
}

template <std::size_t Q>
TARNWICK_INLINE void InvertColumns(const Columns<Q>& in, double* x, std::size_t stride, std::size_t width)
{
    if constexpr (Q == 2) {
        double* y = x + stride;
        for (std::size_t c = 0; c < width; ++c) {
            x[c] = in.real[0][c] + in.real[1][c];
            y[c] = in.real[0][c] - in.real[1][c];
        }
    } else {
        Columns<Q / 2> even;
        Columns<Q / 2> odd;
        const Turns<Q>& turns = kTurns<Q>;
        for (std::size_t k = 0; k <= Q / 4; ++k) {
            const double cosine = turns.cosine[k];
            const double sine = -turns.sine[k];
            const std::size_t mirror = Q / 2 - k;
            for (std::size_t c = 0; c < width; ++c) {
                even.real[k][c] = in.real[k][c] + in.real[mirror][c];
                even.imag[k][c] = in.imag[k][c] - in.imag[mirror][c];
                const double real = in.real[k][c] - in.real[mirror][c];
                const double imag = in.imag[k][c] + in.imag[mirror][c];
                odd.real[k][c] = cosine * real - sine * imag;
                odd.imag[k][c] = cosine * imag + sine * real;
            }
        }
        InvertColumns<Q / 2>(even, x, 2 * stride, width);
        InvertColumns<Q / 2>(odd, x + stride, 2 * stride, width);
    }
}

template <std::size_t Q>
TARNWICK_INLINE void SplitBody(const double* samples, std::size_t r, SplitRows rows)
{
    Columns<Q> block;
    for (std::size_t begin = 0; begin < r; begin += kColumnBlock) {
        const std::size_t width = std::min(kColumnBlock, r - begin);
        TransformColumns<Q>(samples + begin, r, width, block);
        for (std::size_t c = 0; c < width; ++c) {
            rows.first[begin + c] = block.real[0][c];
            rows.middle[begin + c] = block.real[Q / 2][c];
        }
        for (std::size_t k = 1; k < Q / 2; ++k) {
            auto* __restrict row = reinterpret_cast<double*>(rows.inner + (k - 1) * r + begin);
            for (std::size_t c = 0; c < width; ++c) {
                row[2 * c] = block.real[k][c];
                row[2 * c + 1] = block.imag[k][c];
            }
        }
    }
}

template <std::size_t Q>
TARNWICK_INLINE void JoinBody(SplitRows rows, std::size_t r, double* result)
{
    Columns<Q> block;
    for (std::size_t begin = 0; begin < r; begin += kColumnBlock) {
        const std::size_t width = std::min(kColumnBlock, r - begin);
        for (std::size_t c = 0; c < width; ++c) {
            block.real[0][c] = rows.first[begin + c];
            block.real[Q / 2][c] = rows.middle[begin + c];
            block.imag[0][c] = 0.0;
            block.imag[Q / 2][c] = 0.0;
        }
        for (std::size_t k = 1; k < Q / 2; ++k) {
            const auto* row = reinterpret_cast<const double*>(rows.inner + (k - 1) * r + begin);
            for (std::size_t c = 0; c < width; ++c) {
                block.real[k][c] = row[2 * c];
                block.imag[k][c] = row[2 * c + 1];
            }
        }
        InvertColumns<Q>(block, result + begin, r, width);
    }
}

TARNWICK_INLINE void SplitColumnsBody(const double* samples, std::size_t q, std::size_t r, SplitRows rows)
{
    switch (q) {
        case 2: return SplitBody<2>(samples, r, rows);
        case 4: return SplitBody<4>(samples, r, rows);
        case 8: return SplitBody<8>(samples, r, rows);
        case 16: return SplitBody<16>(samples, r, rows);
        default: return SplitBody<32>(samples, r, rows);
    }
}

TARNWICK_INLINE void JoinColumnsBody(SplitRows rows, std::size_t q, std::size_t r, double* result)
{
    switch (q) {
        case 2: return JoinBody<2>(rows, r, result);
        case 4: return JoinBody<4>(rows, r, result);
        case 8: return JoinBody<8>(rows, r, result);
        case 16: return JoinBody<16>(rows, r, result);
        default: return JoinBody<32>(rows, r, result);
    }
}

// One loop, one row: the plain build of its body and, where there is one, the AVX2 build of the same body.
#define TARNWICK_LOOP(name, parameters, arguments) \
    void name##Plain parameters                    \
    {                                              \
        name##Body arguments;                      \
    }                                              \
    TARNWICK_LOOP_AVX2(name, parameters, arguments)

#if defined(TARNWICK_HAS_AVX2)
#define TARNWICK_LOOP_AVX2(name, parameters, arguments) \
    TARNWICK_AVX2 void name##Avx2 parameters            \
    {                                                   \
        name##Body arguments;                           \
    }
#else
#define TARNWICK_LOOP_AVX2(name, parameters, arguments)
#endif

TARNWICK_LOOP(SumTaps, (const double* x, const Tap* taps, std::size_t tapCount, double* y, std::size_t count),
              (x, taps, tapCount, y, count))
TARNWICK_LOOP(SumWindow,
              (const double* x, std::size_t width, double divisor, double factor, double* y, std::size_t count,
               double* scratch),
              (x, width, divisor, factor, y, count, scratch))
TARNWICK_LOOP(Multiply, (Complex * a, const Complex* b, std::size_t count), (a, b, count))
TARNWICK_LOOP(AddTurned, (const double* x, double turn, double* y, std::size_t count), (x, turn, y, count))
TARNWICK_LOOP(AddTurnedComplex, (const Complex* x, Complex turn, Complex* y, std::size_t count), (x, turn, y, count))
TARNWICK_LOOP(RealToRows, (const ColumnTables& tables, const double* values, std::size_t count, Complex* rows),
              (tables, values, count, rows))
TARNWICK_LOOP(ComplexToRows, (const ColumnTables& tables, const Complex* values, std::size_t count, Complex* rows),
              (tables, values, count, rows))
TARNWICK_LOOP(RealFromRows,
              (const ColumnTables& tables, const Complex* rows, std::size_t count, double* values, double* tail),
              (tables, rows, count, values, tail))
TARNWICK_LOOP(ComplexFromRows,
              (const ColumnTables& tables, const Complex* rows, std::size_t count, Complex* values, Complex* tail),
              (tables, rows, count, values, tail))
TARNWICK_LOOP(SplitColumns, (const double* samples, std::size_t q, std::size_t r, SplitRows rows),
              (samples, q, r, rows))
TARNWICK_LOOP(JoinColumns, (SplitRows rows, std::size_t q, std::size_t r, double* result), (rows, q, r, result))

#define TARNWICK_LOOPS(build)                                                                                          \
    HotLoops                                                                                                           \
    {                                                                                                                  \
        SumTaps##build, SumWindow##build, Multiply##build, AddTurned##build, AddTurnedComplex##build,                  \
            RealToRows##build, ComplexToRows##build, RealFromRows##build, ComplexFromRows##build, SplitColumns##build, \
            JoinColumns##build                                                                                         \
    }

constexpr HotLoops kPlain = TARNWICK_LOOPS(Plain);
#if defined(TARNWICK_HAS_AVX2)
constexpr HotLoops kAvx2 = TARNWICK_LOOPS(Avx2);
#endif

}  // namespace

const HotLoops& Loops()
{
#if defined(TARNWICK_HAS_AVX2)
    static const HotLoops& best = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? kAvx2 : kPlain;
    return best;
#else
    return kPlain;
#endif
}

}  // namespace Tarnwick::DSO::Maths
