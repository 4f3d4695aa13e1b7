// The loops of traceloops.h, included once for each target as hotloops-inl.h is, and with the same care: nothing of std:: is called.

#include "maths/convolution/packs-inl.h"

namespace Tarnwick::DSO::Maths {

namespace {

namespace TARNWICK_LOOP_TARGET {

TARNWICK_ALWAYS_INLINE void Truncate(double value, std::int32_t& row)
{
    row = static_cast<std::int32_t>(value);
}

#if defined(__GNUC__) || defined(__clang__)
using Numbers = std::int32_t __attribute__((vector_size(kPack * sizeof(std::int32_t))));
inline constexpr std::size_t kWideLanes = 2 * kPack;
using WideVolts = double __attribute__((vector_size(kWideLanes * sizeof(double))));
using WideNumbers = std::int32_t __attribute__((vector_size(kWideLanes * sizeof(std::int32_t))));
using WideWords = std::uint32_t __attribute__((vector_size(kWideLanes * sizeof(std::uint32_t))));
using WideParts = float __attribute__((vector_size(kWideLanes * sizeof(float))));

TARNWICK_ALWAYS_INLINE void Truncate(const Pack& values, Numbers& rows)
{
    rows = __builtin_convertvector(values, Numbers);
}
#endif

// What has been found among some lines, in each lane.
template <typename Steepness, typename Mask>
struct Found {
    Steepness steepest{};
    Mask others{};  // not 0: there are
};

template <typename Values, typename Numbers>
TARNWICK_ALWAYS_INLINE void RowsAt(const TraceRows& picture, const Values& from, const Values& rise, double part,
                                   Numbers& rows)
{
    Values along = part * rise;
    TARNWICK_ROUND(along);
    Truncate((from + along - picture.low) * picture.rowsPerVolt, rows);
}

// The lines at a[0], b[0] and in the lanes behind; keys[count], keys[2 count] ... are those of the next columns.
template <typename Values, typename Numbers>
TARNWICK_ALWAYS_INLINE void KeysOfValues(const TraceRows& picture, const TraceParts& columns, const double* a,
                                         const double* b, std::size_t count, std::int32_t pitch, std::int32_t* keys,
                                         Found<Values, Values>& found)
{
    Values first;
    Values last;
    Load(a, first);
    Load(b, last);
    const Values zero{};
    const Values difference = last - first;
    const Values low = first < last ? first : last;
    const Values high = first < last ? last : first;
    const Values steep = difference < zero ? -difference : difference;
    // Not so where one of the values is not a number.
    const auto isDrawn = (low >= picture.lowest) & (high <= picture.highest) & (steep <= picture.steepest);
    const Values from = isDrawn ? first : zero + (picture.low - 1.5 / picture.rowsPerVolt);  // row -1
    const Values rise = isDrawn ? difference : zero;
    const Values shown = isDrawn ? steep : zero;
    found.others = isDrawn ? found.others : zero + 1.0;
    found.steepest = found.steepest > shown ? found.steepest : shown;

    const double* const parts = columns.parts;
    Numbers before;
    RowsAt(picture, from, rise, parts[0], before);
    for (std::size_t c = 1; c <= columns.count; c += 2, keys += count) {
        Numbers middle;
        Numbers behind;
        RowsAt(picture, from, rise, parts[c], middle);
        RowsAt(picture, from, rise, parts[c < columns.count ? c + 1 : c], behind);
        Store(middle + pitch * (4 * (middle - before) + (behind - middle)), keys);
        before = behind;
    }
}

#if defined(__GNUC__) || defined(__clang__)
// Rows in whole numbers of so many fractions each.
struct WholeRows {
    double scale;  // [1/V]
    int bits;
    std::int32_t fraction;         // of a row, all bits of it
    std::int32_t lowest, highest;  // as TraceRows
    std::int32_t steepest;
    std::int32_t margin;     // by which rows may be off
    float begin, step, end;  // parts of a line: where its columns begin, what each is wide, where the last one ends
};

inline WholeRows WholeRowsOf(const TraceRows& picture, const TraceParts& columns)
{
    const std::size_t count = columns.count;
    const auto one = static_cast<double>(1 << picture.fractionBits);
    const double scale = picture.rowsPerVolt * one;
    // One rounding each for values, for steps and for where they begin; of steps that many add up. In single precision there are three
    // for the steps of the whole line and three for the first.
    const double margin =
        2.0 * static_cast<double>(count + 4) + 0x1p-21 * picture.steepest * scale + picture.rounding * one;
    return {scale,
            picture.fractionBits,
            (1 << picture.fractionBits) - 1,
            static_cast<std::int32_t>((picture.lowest - picture.low) * scale),
            static_cast<std::int32_t>((picture.highest - picture.low) * scale),
            static_cast<std::int32_t>(picture.steepest * scale < 0x1p30 ? picture.steepest * scale : 0x1p30),
            static_cast<std::int32_t>(margin < 0.5 * one ? margin : 0.5 * one),
            static_cast<float>(columns.parts[0]),
            static_cast<float>(columns.parts[1] - columns.parts[0]),
            static_cast<float>(columns.parts[count])};
}

TARNWICK_ALWAYS_INLINE void LoadRows(const double* from, double low, double scale, WideNumbers& rows)
{
    WideVolts values;
    Load(from, values);
    values = (values - low) * scale;
    rows = __builtin_convertvector(values, WideNumbers);
}

using TwoWords = std::int64_t __attribute__((vector_size(2 * sizeof(std::int64_t))));
using FourWords = std::int64_t __attribute__((vector_size(4 * sizeof(std::int64_t))));
using EightWords = std::int64_t __attribute__((vector_size(8 * sizeof(std::int64_t))));

// Whether a lane is not 0.
template <typename Mask>
TARNWICK_ALWAYS_INLINE bool IsAny(const Mask& mask)
{
    if constexpr (sizeof(Mask) == sizeof(EightWords)) {
        const auto words = reinterpret_cast<const EightWords&>(mask);
        const FourWords halves =
            __builtin_shufflevector(words, words, 0, 1, 2, 3) | __builtin_shufflevector(words, words, 4, 5, 6, 7);
        return IsAny(halves);
    } else if constexpr (sizeof(Mask) == sizeof(FourWords)) {
        const auto words = reinterpret_cast<const FourWords&>(mask);
        const TwoWords halves =
            __builtin_shufflevector(words, words, 0, 1) | __builtin_shufflevector(words, words, 2, 3);
        return IsAny(halves);
    } else {
        const auto words = reinterpret_cast<const TwoWords&>(mask);
        return (words[0] | words[1]) != 0;
    }
}

// a - b without an end to numbers: behind the largest comes the least.
TARNWICK_ALWAYS_INLINE WideNumbers Less(const WideNumbers& a, const WideNumbers& b)
{
    const WideWords difference = reinterpret_cast<const WideWords&>(a) - reinterpret_cast<const WideWords&>(b);
    return reinterpret_cast<const WideNumbers&>(difference);
}

// The same for kWideLanes lines in whole numbers: from column to column a line takes one addition.
// @return false: the row of some line is in doubt, and the keys may be off
template <std::size_t Columns>
TARNWICK_ALWAYS_INLINE bool KeysOfWhole(const WholeRows& picture, double voltsLow, const double* a, const double* b,
                                        std::size_t count, std::int32_t pitch, std::int32_t* keys,
                                        Found<WideNumbers, WideNumbers>& found)
{
    const WideNumbers zero{};
    WideNumbers first;
    WideNumbers last;
    LoadRows(a, voltsLow, picture.scale, first);
    LoadRows(b, voltsLow, picture.scale, last);
    // What is too large for 32 bits becomes the least of them all, or the largest, so that one of the differences is below 0 yet.
    const WideNumbers difference = Less(last, first);
    const WideNumbers steep = difference < zero ? Less(zero, difference) : difference;
    const WideNumbers isOther =
        (Less(first, zero + picture.lowest) | Less(zero + picture.highest, first) | Less(last, zero + picture.lowest) |
         Less(zero + picture.highest, last) | Less(zero + picture.steepest, steep)) < zero;
    const WideNumbers rise = isOther ? zero : difference;
    const WideNumbers shown = isOther ? zero : steep;
    found.others |= isOther;
    found.steepest = found.steepest > shown ? found.steepest : shown;
    const WideNumbers from = isOther ? zero + (-1 - picture.fraction / 2) : first + picture.margin;  // row -1

    const WideParts along = __builtin_convertvector(rise, WideParts);
    const WideNumbers step = __builtin_convertvector(along * picture.step, WideNumbers);
    const WideNumbers end = from + __builtin_convertvector(along * picture.end, WideNumbers);
    WideNumbers at = from + __builtin_convertvector(along * picture.begin, WideNumbers);
    // The margin is in all of them: near a border their fractions are the smallest.
    WideNumbers least = at & picture.fraction;
    WideNumbers before = at >> picture.bits;
    TARNWICK_UNROLL
    for (std::size_t c = 1; c <= Columns; c += 2, keys += count) {
        at = c < Columns ? at + step : end;
        const WideNumbers middle = at >> picture.bits;
        const WideNumbers one = at & picture.fraction;
        at = c + 1 < Columns ? at + step : end;
        const WideNumbers behind = at >> picture.bits;
        const WideNumbers two = at & picture.fraction;
        Store(middle + pitch * (4 * (middle - before) + (behind - middle)), keys);
        least = least < one ? least : one;
        least = least < two ? least : two;
        before = behind;
    }
    return !IsAny(least < 2 * picture.margin);
}
#endif

template <std::size_t Columns>
TARNWICK_ALWAYS_INLINE TraceKinds KeysOfColumns(const TraceRows& picture, const TraceParts& columns, const double* a,
                                                const double* b, std::size_t count, std::int32_t pitch,
                                                std::int32_t* keys)
{
    Found<double, double> found;
    std::size_t i = 0;
#if defined(__GNUC__) || defined(__clang__)
    constexpr std::size_t kAhead = 256;  // values
    const WholeRows whole = WholeRowsOf(picture, columns);
    Found<WideNumbers, WideNumbers> many;
    for (; i + kWideLanes <= count; i += kWideLanes) {
        // The first values are still in the second-level cache as the last ones of the lines before.
        Fetch(b + i + kAhead, kWideLanes);
        if (KeysOfWhole<Columns>(whole, picture.low, a + i, b + i, count, pitch, keys + i, many))
            continue;
        Found<Pack, Pack> some;
        for (std::size_t k = i; k < i + kWideLanes; k += kPack)
            KeysOfValues<Pack, Numbers>(picture, columns, a + k, b + k, count, pitch, keys + k, some);
        for (std::size_t lane = 0; lane < kPack; ++lane) {
            found.steepest = some.steepest[lane] > found.steepest ? some.steepest[lane] : found.steepest;
            found.others += some.others[lane];
        }
    }
    for (std::size_t lane = 0; lane < kWideLanes; ++lane) {
        const double steepest = static_cast<double>(many.steepest[lane]) / whole.scale;
        found.steepest = steepest > found.steepest ? steepest : found.steepest;
        found.others += many.others[lane] != 0 ? 1.0 : 0.0;
    }
#endif
    for (; i < count; ++i)
        KeysOfValues<double, std::int32_t>(picture, columns, a + i, b + i, count, pitch, keys + i, found);
    return {found.steepest, found.others == 0.0};
}

template <std::size_t Columns = 1>
inline TraceKinds KeysOf(const TraceRows& picture, const TraceParts& columns, const double* a, const double* b,
                         std::size_t count, std::int32_t pitch, std::int32_t* keys)
{
    if constexpr (Columns < kMostTraceColumns)
        if (columns.count != Columns)
            return KeysOf<Columns + 1>(picture, columns, a, b, count, pitch, keys);
    // Of copies the compiler knows that keys which are stored do not change them.
    const TraceRows rows = picture;
    const TraceParts parts = columns;
    return KeysOfColumns<Columns>(rows, parts, a, b, count, pitch, keys);
}

inline constexpr TraceLoops kLoops = {KeysOf<1>};

}  // namespace TARNWICK_LOOP_TARGET

}  // namespace

}  // namespace Tarnwick::DSO::Maths
