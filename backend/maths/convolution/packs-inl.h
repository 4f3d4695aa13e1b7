// Packs: as many columns side by side as the target's vectors hold. Included by hotloops-inl.h and traceloops-inl.h, once for each target.

namespace Tarnwick::DSO::Maths {

namespace {

namespace TARNWICK_LOOP_TARGET {

inline constexpr std::size_t kPack = TARNWICK_LOOP_LANES;  // [doubles]
inline constexpr std::size_t kFloatPack = 2 * kPack;       // [floats]
inline constexpr std::size_t kLine = 8;                    // [doubles] in a cache line of 64 bytes
inline constexpr std::size_t kPacksPerLine = kLine / kPack;

TARNWICK_ALWAYS_INLINE constexpr std::size_t Lesser(std::size_t a, std::size_t b)
{
    return b < a ? b : a;
}

// A vector where the compiler has them, else an array.
#if defined(__GNUC__) || defined(__clang__)
using Pack = double __attribute__((vector_size(kPack * sizeof(double))));
using Quad = double __attribute__((vector_size(4 * sizeof(double))));
using FloatPack = float __attribute__((vector_size(kFloatPack * sizeof(float))));
#else
template <typename Real, std::size_t Lanes>
struct Vector {
    Real lane[Lanes];
    template <typename Operation>
    static Vector Each(const Vector& a, const Vector& b, Operation operation)
    {
        Vector result;
        for (std::size_t c = 0; c < Lanes; ++c)
            result.lane[c] = operation(a.lane[c], b.lane[c]);
        return result;
    }
    friend Vector operator+(const Vector& a, const Vector& b)
    {
        return Each(a, b, [](Real x, Real y) { return x + y; });
    }
    friend Vector operator-(const Vector& a, const Vector& b)
    {
        return Each(a, b, [](Real x, Real y) { return x - y; });
    }
    friend Vector operator*(const Vector& a, const Vector& b)
    {
        return Each(a, b, [](Real x, Real y) { return x * y; });
    }
    friend Vector operator*(Real a, const Vector& b)
    {
        return Each(b, b, [a](Real x, Real) { return a * x; });
    }
};
using Pack = Vector<double, kPack>;
using Quad = Vector<double, 4>;
using FloatPack = Vector<float, kFloatPack>;
#endif

// Packs are passed by reference: how a vector is returned depends on the ABI. Memory needs no alignment.
#if defined(__GNUC__) || defined(__clang__)
// What memcpy says too, but g++ 12 takes that apart into halves.
template <typename Values>
struct [[gnu::packed, gnu::may_alias]] Loose
{
    Values values;
};

template <typename Real, typename Values>
TARNWICK_ALWAYS_INLINE void Load(const Real* from, Values& to)
{
    to = reinterpret_cast<const Loose<Values>*>(from)->values;
}

template <typename Real, typename Values>
// NOLINTNEXTLINE(readability-non-const-parameter): it is written to
TARNWICK_ALWAYS_INLINE void Store(const Values& from, Real* to)
{
    reinterpret_cast<Loose<Values>*>(to)->values = from;
}
#else
template <typename Real, typename Values>
TARNWICK_ALWAYS_INLINE void Load(const Real* from, Values& to)
{
    std::memcpy(&to, from, sizeof to);
}

template <typename Real, typename Values>
TARNWICK_ALWAYS_INLINE void Store(const Values& from, Real* to)
{
    std::memcpy(to, &from, sizeof from);
}
#endif

// Has values brought into the cache that will be read soon: the processor foresees no further than to the end of a page. Nothing
// need be there.
TARNWICK_ALWAYS_INLINE void Fetch(const double* values, std::size_t count)
{
#if defined(__GNUC__) || defined(__clang__)
    for (std::size_t k = 0; k < count; k += 8)
        __builtin_prefetch(values + k);
#else
    static_cast<void>(values);
    static_cast<void>(count);
#endif
}

// The larger of each two lanes, in `most`.
TARNWICK_ALWAYS_INLINE void RaiseTo(const FloatPack& other, FloatPack& most)
{
#if defined(__GNUC__) || defined(__clang__)
    most = other > most ? other : most;
#else
    most = FloatPack::Each(other, most, [](float a, float b) { return a > b ? a : b; });
#endif
}

// values[at .. at + kPack - 1], with zeros from `count` on.
TARNWICK_ALWAYS_INLINE void LoadPadded(const double* values, std::size_t count, std::size_t at, Pack& to)
{
    if (at + kPack <= count) {
        Load(values + at, to);
        return;
    }
    double some[kPack] = {};
    for (std::size_t c = 0; c < kPack && at + c < count; ++c)
        some[c] = values[at + c];
    Load(some, to);
}

// To values[at .. at + kPack - 1], but for those from `count` on.
TARNWICK_ALWAYS_INLINE void StorePadded(const Pack& from, std::size_t at, std::size_t count, double* values)
{
    if (at + kPack <= count) {
        Store(from, values + at);
        return;
    }
    double some[kPack];
    Store(from, some);
    for (std::size_t c = 0; c < kPack && at + c < count; ++c)
        values[at + c] = some[c];
}

// Lanes with bit Step of `low` and lanes without it of `high` change places.
template <std::size_t Step, typename Values>
TARNWICK_ALWAYS_INLINE void Exchange(Values& low, Values& high)
{
#if defined(__GNUC__) || defined(__clang__)
    constexpr std::size_t kLanes = sizeof(Values) / sizeof(double);
    const Values a = low;
    const Values b = high;
    if constexpr (kLanes == 2) {
        low = __builtin_shufflevector(a, b, 0, 2);
        high = __builtin_shufflevector(a, b, 1, 3);
    } else if constexpr (kLanes == 4) {
        if constexpr (Step == 1) {
            low = __builtin_shufflevector(a, b, 0, 4, 2, 6);
            high = __builtin_shufflevector(a, b, 1, 5, 3, 7);
        } else {
            low = __builtin_shufflevector(a, b, 0, 1, 4, 5);
            high = __builtin_shufflevector(a, b, 2, 3, 6, 7);
        }
    } else {
        if constexpr (Step == 1) {
            low = __builtin_shufflevector(a, b, 0, 8, 2, 10, 4, 12, 6, 14);
            high = __builtin_shufflevector(a, b, 1, 9, 3, 11, 5, 13, 7, 15);
        } else if constexpr (Step == 2) {
            low = __builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13);
            high = __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15);
        } else {
            low = __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
            high = __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
        }
    }
#else
    for (std::size_t c = 0; c < kPack; ++c)
        if ((c & Step) != 0) {
            const double moved = low.lane[c];
            low.lane[c] = high.lane[c - Step];
            high.lane[c - Step] = moved;
        }
#endif
}

// packs[i] lane j and packs[j] lane i change places, kPack packs.
template <std::size_t Step = 1>
TARNWICK_ALWAYS_INLINE void Transpose(Pack* packs)
{
    if constexpr (Step < kPack) {
        TARNWICK_UNROLL
        for (std::size_t i = 0; i < kPack; ++i)
            if ((i & Step) == 0)
                Exchange<Step>(packs[i], packs[i + Step]);
        Transpose<2 * Step>(packs);
    }
}

}  // namespace TARNWICK_LOOP_TARGET

}  // namespace

}  // namespace Tarnwick::DSO::Maths
