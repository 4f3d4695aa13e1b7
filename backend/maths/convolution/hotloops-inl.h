// The hot loops, compiled once for each target: hotloops.cpp includes this file under the target's attribute with
// TARNWICK_LOOP_TARGET as the namespace, so there is no include guard.
// Nothing of std:: is called here. Its inline functions and templates become symbols that the whole program shares; one
// compiled for a newer processor could take the place of the plain one everywhere. Complex values are therefore read as
// pairs of doubles, which std::complex guarantees.

#include "maths/convolution/packs-inl.h"
#include "maths/convolution/packtransforms-inl.h"
#include "maths/convolution/ringloops-inl.h"

namespace Tarnwick::DSO::Maths {

namespace {

namespace TARNWICK_LOOP_TARGET {

inline constexpr std::size_t kLevelOneBlock =
    1024;  // [outputs] 8 KiB: they stay in the first-level cache from tap to tap

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

// y[i] += S_m[i], then the S_2m that follows, for the digits that the width has; the first ones are not added to anything, the
// sum of the last ones is divided.
template <bool One, bool Two, bool First, bool Last>
TARNWICK_ALWAYS_INLINE void AddDigits(const double* sums, std::size_t m, double divisor, std::size_t count,
                                      double* __restrict y)
{
    const double* const behind = sums + (One ? m : 0);
    for (std::size_t i = 0; i < count; ++i) {
        double sum = First ? 0.0 : y[i];
        if constexpr (One)
            sum = First ? sums[i] : sum + sums[i];
        if constexpr (Two) {
            const double pair = behind[i] + behind[i + m];
            sum = First && !One ? pair : sum + pair;
        }
        y[i] = Last ? sum / divisor : sum;
    }
}

template <bool First, bool Last>
inline void AddDigits(std::size_t digits, const double* sums, std::size_t m, double divisor, std::size_t count,
                      double* y)
{
    if (digits == 1)
        AddDigits<true, false, First, Last>(sums, m, divisor, count, y);
    else if (digits == 2)
        AddDigits<false, true, First, Last>(sums, m, divisor, count, y);
    else if (digits == 3)
        AddDigits<true, true, First, Last>(sums, m, divisor, count, y);
}

// S_2m[i] = S_m[i] + S_m[i + m], two such steps at a time; the binary digits of the width say which of them make up the window.
inline void SumWindow(const double* x, std::size_t width, double divisor, double factor, double* y, std::size_t count,
                      double* scratch)
{
    double* other = scratch;
    double* spare = scratch + count + width;
    const double* sums = x;
    std::size_t length = count + width - 1;
    std::size_t offset = 0;
    for (std::size_t m = 1; m <= width; m *= 4) {
        if (m > 1) {
            const std::size_t quarter = m / 4;
            length -= 3 * quarter;
            double* __restrict next = other;
            for (std::size_t i = 0; i < length; ++i)
                next[i] = (sums[i] + sums[i + quarter]) + (sums[i + 2 * quarter] + sums[i + 3 * quarter]);
            double* const summed = other;
            sums = summed;
            other = spare;
            spare = summed;
        }
        const std::size_t digits = width / m % 4;
        const bool isDivided = divisor != 0.0 && m > width / 4;
        const auto add = offset == 0 ? (isDivided ? AddDigits<true, true> : AddDigits<true, false>)
                                     : (isDivided ? AddDigits<false, true> : AddDigits<false, false>);
        add(digits, sums + offset, m, divisor, count, y);
        offset += digits * m;
    }
    if (divisor == 0.0) {
        double* const result = y;
        for (std::size_t i = 0; i < count; ++i)
            result[i] *= factor;
    }
}

// ---- products

inline void MultiplyToParts(const Complex* a, const Complex* b, std::size_t count, double* __restrict real,
                            double* __restrict imag)
{
    const double* p = Parts(a);
    const double* q = Parts(b);
    for (std::size_t k = 0; k < count; ++k) {
        real[k] = p[2 * k] * q[2 * k] - p[2 * k + 1] * q[2 * k + 1];
        imag[k] = p[2 * k] * q[2 * k + 1] + p[2 * k + 1] * q[2 * k];
    }
}

inline void PartsTimes(const double* real, const double* imag, const Complex* b, std::size_t count, Complex* result)
{
    const double* q = Parts(b);
    double* __restrict to = Parts(result);
    for (std::size_t k = 0; k < count; ++k) {
        to[2 * k] = real[k] * q[2 * k] - imag[k] * q[2 * k + 1];
        to[2 * k + 1] = real[k] * q[2 * k + 1] + imag[k] * q[2 * k];
    }
}

// ---- between a period and its split rows

struct Split {
    template <std::size_t Q>
    TARNWICK_ALWAYS_INLINE static void Run(const double* samples, std::size_t r, const SplitRows& rows)
    {
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
                StorePadded(real[0], column, r, rows.first);
                StorePadded(real[Q / 2], column, r, rows.middle);
                for (std::size_t k = 1; k < Q / 2; ++k) {
                    StorePadded(real[k], column, r, rows.inner + 2 * (k - 1) * r);
                    StorePadded(imag[k], column, r, rows.inner + (2 * k - 1) * r);
                }
            }
        }
    }
};

struct Join {
    template <std::size_t Q>
    TARNWICK_ALWAYS_INLINE static void Run(const SplitRows& rows, std::size_t r, double* samples)
    {
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
                for (std::size_t k = 1; k < Q / 2; ++k) {
                    LoadPadded(rows.inner + 2 * (k - 1) * r, r, column, real[k]);
                    LoadPadded(rows.inner + (2 * k - 1) * r, r, column, imag[k]);
                }
                BackwardReal<Q>(real, imag, values[half], 1);
            }
            for (std::size_t t = 0; t < Q; ++t)
                for (std::size_t half = 0; half < kPacksPerLine; ++half)
                    StorePadded(values[half][t], line + half * kPack, r, samples + t * r);
        }
    }
};

inline void SplitColumns(const double* samples, std::size_t q, std::size_t r, SplitRows rows)
{
    ForRowCount<Split, 2, kMostRows>(q, samples, r, rows);
}

inline void JoinColumns(SplitRows rows, std::size_t q, std::size_t r, double* samples)
{
    ForRowCount<Join, 2, kMostRows>(q, rows, r, samples);
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
        Quad before[2] = {};
        Quad after[2] = {};
        for (std::size_t j = 0; j < kernel.tapCount; j += kLine)
            for (std::size_t half = 0; half < 2; ++half) {
                Quad sample;
                Quad tap;
                Load(from + j + half * 4, sample);
                Load(here + j + half * 4, tap);
                before[half] = before[half] + sample * tap;
                Load(next + j + half * 4, tap);
                after[half] = after[half] + sample * tap;
            }
        const Quad low = before[0] + before[1];
        const Quad high = after[0] + after[1];
        double sums[4];
        Store(low + fraction * (high - low), sums);
        y[i] = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    }
}

// The values at a pack of phases, of which `Line` lie side by side in the bank, at `Positions` positions: a weight is loaded
// once for all of them.
template <std::size_t Line, std::size_t Positions, typename Bank, typename Value, typename Values>
TARNWICK_ALWAYS_INLINE void SumPhases(const Bank& bank, std::size_t phase, const Value* x, std::size_t stride,
                                      Values (&sums)[Positions])
{
    const std::size_t line = phase / Line;
    const Value* const weights = bank.weights + line * bank.sampleCount * Line + phase % Line;
    for (std::size_t k = bank.samples[2 * line]; k < bank.samples[2 * line + 1]; ++k) {
        Values weight;
        Load(weights + k * Line, weight);
        TARNWICK_UNROLL
        for (std::size_t i = 0; i < Positions; ++i)
            sums[i] = sums[i] + x[i * stride + k] * weight;
    }
}

template <std::size_t Positions>
TARNWICK_ALWAYS_INLINE void ReadPackOfPhases(const PhaseBank& bank, std::size_t phase, const double* x,
                                             std::size_t stride, double* values)
{
    Pack sums[Positions] = {};
    SumPhases<kLine>(bank, phase, x, stride, sums);
    TARNWICK_UNROLL
    for (std::size_t i = 0; i < Positions; ++i)
        Store(sums[i], values + i * bank.phaseCount + phase);
}

inline void ReadPhases(const PhaseBank& bank, const double* x, std::size_t stride, std::size_t count, double* values)
{
    constexpr std::size_t kTogether = 8;  // sums in registers: as many as hide the latency of one
    std::size_t i = 0;
    for (; i + kTogether <= count; i += kTogether) {
        Fetch(x + (count + i) * stride, kTogether * stride);
        for (std::size_t phase = 0; phase < bank.phaseCount; phase += kPack)
            ReadPackOfPhases<kTogether>(bank, phase, x + i * stride, stride, values + i * bank.phaseCount);
    }
    for (; i < count; ++i)
        for (std::size_t phase = 0; phase < bank.phaseCount; phase += kPack)
            ReadPackOfPhases<1>(bank, phase, x + i * stride, stride, values + i * bank.phaseCount);
}

// Line positions side by side: their values at kPack phases at a time change places with those of kPack positions.
inline void ReadPhasesApart(const PhaseBank& bank, const double* x, std::size_t stride, std::size_t count,
                            double* const* to)
{
    std::size_t i = 0;
    for (; i + kLine <= count; i += kLine) {
        Fetch(x + (count + i) * stride, kLine * stride);
        for (std::size_t phase = 0; phase < bank.phaseCount; phase += kPack) {
            Pack sums[kLine] = {};
            SumPhases<kLine>(bank, phase, x + i * stride, stride, sums);
            for (std::size_t part = 0; part < kLine; part += kPack) {
                Transpose(sums + part);
                TARNWICK_UNROLL
                for (std::size_t c = 0; c < kPack; ++c)
                    Store(sums[part + c], to[phase + c] + i + part);
            }
        }
    }
    for (; i < count; ++i)
        for (std::size_t phase = 0; phase < bank.phaseCount; phase += kPack) {
            double values[kPack];
            Pack sums[1] = {};
            SumPhases<kLine>(bank, phase, x + i * stride, stride, sums);
            Store(sums[0], values);
            for (std::size_t c = 0; c < kPack; ++c)
                to[phase + c][i] = values[c];
        }
}

// ---- which values may be the largest or the smallest

inline constexpr float kBeyondAll = 1e30F;   // of scaled values, all of which are small
inline constexpr float kWidestReach = 0.2F;  // of scaled values; most values come so near to one extreme or the other

// One for each of `Positions`: how far the values at all phases lie beyond their limits, at most.
template <std::size_t Positions>
TARNWICK_ALWAYS_INLINE void ExcessOfPhases(const ScreenBank& bank, std::size_t phaseCount, const float* x,
                                           std::size_t stride, const float* const* limits, FloatPack* excess)
{
    float none[kFloatPack];
    for (float& lane : none)
        lane = -kBeyondAll;
    for (std::size_t i = 0; i < Positions; ++i)
        Load(none, excess[i]);
    for (std::size_t phase = 0; phase < phaseCount; phase += kFloatPack) {
        FloatPack sums[Positions] = {};
        SumPhases<2 * kLine>(bank, phase, x, stride, sums);
        TARNWICK_UNROLL
        for (std::size_t i = 0; i < Positions; ++i) {
            FloatPack low;
            FloatPack high;
            Load(limits[i] + phase, low);
            Load(limits[i] + phaseCount + phase, high);
            RaiseTo(low - sums[i], excess[i]);
            RaiseTo(sums[i] - high, excess[i]);
        }
    }
}

TARNWICK_ALWAYS_INLINE bool IsAnyReached(const FloatPack& excess, float least)
{
    float lanes[kFloatPack];
    Store(excess, lanes);
    unsigned reached = 0;
    for (const float lane : lanes)
        reached |= lane >= least ? 1U : 0U;
    return reached != 0;
}

TARNWICK_ALWAYS_INLINE float LargestOf(const FloatPack& most)
{
    float lanes[kFloatPack];
    Store(most, lanes);
    float largest = 0.0F;
    for (const float lane : lanes)
        largest = lane > largest ? lane : largest;
    return largest;
}

TARNWICK_ALWAYS_INLINE bool LieWithinOne(const float* values, std::size_t count)
{
    FloatPack most{};
    std::size_t k = 0;
    for (; k + kFloatPack <= count; k += kFloatPack) {
        FloatPack some;
        Load(values + k, some);
        RaiseTo(some, most);
        RaiseTo(FloatPack{} - some, most);
    }
    float lanes[kFloatPack];
    Store(most, lanes);
    bool within = true;
    for (const float lane : lanes)
        within = within && lane <= 1.0F;
    for (; k < count; ++k)
        within = within && values[k] >= -1.0F && values[k] <= 1.0F;
    return within;
}

// The largest magnitude of the second differences.
TARNWICK_ALWAYS_INLINE float LargestBend(const float* values, std::size_t count)
{
    FloatPack most{};
    std::size_t k = 0;
    for (; k + 2 + kFloatPack <= count; k += kFloatPack) {
        FloatPack before;
        FloatPack here;
        FloatPack behind;
        Load(values + k, before);
        Load(values + k + 1, here);
        Load(values + k + 2, behind);
        const FloatPack bend = (before - here) + (behind - here);
        RaiseTo(bend, most);
        RaiseTo(FloatPack{} - bend, most);
    }
    float largest = LargestOf(most);
    for (; k + 2 < count; ++k) {
        const float bend = (values[k] - values[k + 1]) + (values[k + 2] - values[k + 1]);
        const float magnitude = bend < 0.0F ? -bend : bend;
        largest = magnitude > largest ? magnitude : largest;
    }
    return largest;
}

TARNWICK_ALWAYS_INLINE float ReachOf(const ScreenBank& bank, float bend)
{
    return bank.margin + bank.perBend * bend;
}

// beyond[i] = 1 where a value comes within `reach` of a limit.
// @param ahead  samples that are read next
TARNWICK_ALWAYS_INLINE void ScreenBy(const ScreenBank& bank, std::size_t phaseCount, float reach, const float* x,
                                     std::size_t stride, std::size_t count, const float* const* limits,
                                     const double* ahead, unsigned char* beyond)
{
    constexpr std::size_t kTogether = 8;  // as ReadPhases
    std::size_t i = 0;
    for (; i + kTogether <= count; i += kTogether) {
        Fetch(ahead + i * stride, kTogether * stride);
        FloatPack excess[kTogether];
        ExcessOfPhases<kTogether>(bank, phaseCount, x + i * stride, stride, limits + i, excess);
        FloatPack most = excess[0];
        for (std::size_t c = 1; c < kTogether; ++c)
            RaiseTo(excess[c], most);
        const bool isAny = IsAnyReached(most, -reach);
        for (std::size_t c = 0; c < kTogether; ++c)
            beyond[i + c] = isAny && IsAnyReached(excess[c], -reach) ? 1 : 0;
    }
    for (; i < count; ++i) {
        FloatPack excess[1];
        ExcessOfPhases<1>(bank, phaseCount, x + i * stride, stride, limits + i, excess);
        beyond[i] = IsAnyReached(excess[0], -reach) ? 1 : 0;
    }
}

inline void ScreenPhases(const PhaseScreen& screen, const double* x, std::size_t stride, std::size_t count,
                         const float* const* limits, float* scaled, unsigned char* beyond)
{
    const std::size_t samples = (count - 1) * stride + screen.wide.sampleCount;
    const double middle = screen.middle;
    const double scale = screen.scale;
    for (std::size_t k = 0; k < samples; ++k)
        scaled[k] = static_cast<float>((x[k] - middle) * scale);
    if (!LieWithinOne(scaled, samples)) {
        for (std::size_t i = 0; i < count; ++i)
            beyond[i] = 1;
        return;
    }
    const float bend = LargestBend(scaled, samples);
    std::size_t left = count;
    if (const float reach = ReachOf(screen.narrow, bend); reach < kWidestReach) {
        ScreenBy(screen.narrow, screen.phaseCount, reach, scaled, stride, count, limits, x + samples, beyond);
        left = 0;
        for (std::size_t i = 0; i < count; ++i)
            left += beyond[i];
    }
    const float reach = ReachOf(screen.wide, bend);
    // Together they take less than half as long as one by one.
    if (2 * left > count) {
        ScreenBy(screen.wide, screen.phaseCount, reach, scaled, stride, count, limits, x + samples, beyond);
        return;
    }
    for (std::size_t i = 0; i < count && left > 0; ++i)
        if (beyond[i] != 0)
            ScreenBy(screen.wide, screen.phaseCount, reach, scaled + i * stride, stride, 1, limits + i, x, beyond + i);
}

// sum[k] += stretches[i][k], so many packs at a time that their sums need not wait for each other.
template <std::size_t Packs>
inline std::size_t AddPacks(const double* const* stretches, std::size_t count, std::size_t first, std::size_t width,
                            double* sum)
{
    std::size_t k = first;
    for (; k + Packs * kPack <= width; k += Packs * kPack) {
        Pack sums[Packs];
        TARNWICK_UNROLL
        for (std::size_t part = 0; part < Packs; ++part)
            Load(sum + k + part * kPack, sums[part]);
        for (std::size_t i = 0; i < count; ++i) {
            TARNWICK_UNROLL
            for (std::size_t part = 0; part < Packs; ++part) {
                Pack some;
                Load(stretches[i] + k + part * kPack, some);
                sums[part] = sums[part] + some;
            }
        }
        TARNWICK_UNROLL
        for (std::size_t part = 0; part < Packs; ++part)
            Store(sums[part], sum + k + part * kPack);
    }
    return k;
}

inline void AddStretches(const double* const* stretches, std::size_t count, std::size_t width, double* sum)
{
    constexpr std::size_t kTogether = 8;
    std::size_t k = AddPacks<kTogether>(stretches, count, 0, width, sum);
    k = AddPacks<1>(stretches, count, k, width, sum);
    for (; k < width; ++k)
        for (std::size_t i = 0; i < count; ++i)
            sum[k] += stretches[i][k];
}

inline constexpr HotLoops kLoops = {kPack,        SumTaps,         SumWindow,       MultiplyToParts, PartsTimes,
                                    RealToRows,   ComplexToRows,   PairsToRows,     RowsToBins,      MultiplyRows,
                                    RealFromRows, ComplexFromRows, BinsToPairs,     SplitColumns,    JoinColumns,
                                    Interpolate,  ReadPhases,      ReadPhasesApart, ScreenPhases,    AddStretches};

}  // namespace TARNWICK_LOOP_TARGET

}  // namespace

}  // namespace Tarnwick::DSO::Maths
