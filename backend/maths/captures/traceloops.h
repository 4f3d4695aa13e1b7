// The inner loop of a picture of traces, compiled once as plain code and, on x86-64, again for AVX2 and for AVX-512. A value's row is
// rounded the same way by all: no product is fused with a sum, so that a picture is the same to the cell on every processor. Rows are
// reckoned in whole numbers of 32 bits first, with a bound for what those may be off. Where that leaves a row in doubt, which is one
// line in a thousand but for levels that lie on the border of two rows, the line's rows are reckoned once more, in double precision.
//
// A line from value to value passes through several columns. It is straight: the rows that it takes in a column tell those in the next
// one but for one or two. What it does in two columns is told by a single number, the key: few of them occur, and lines are counted
// in two columns at once. With d rows in a column and e in the next one, f times as wide, f up to 1,
//     f (d - 1) - 1 <= e <= f (d + 1) + 1
// so that 4 d + e, which grows by 4 + f from d to d + 1, tells both.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/export.h"
#include "maths/convolution/looptarget.h"

namespace Tarnwick::DSO::Maths {

/// How values become rows of a picture, and which lines are drawn together.
struct TraceRows {
    double low;  // [V] where row 0 begins
    double rowsPerVolt;
    double lowest, highest;  // [V] values of the lines that are drawn together
    double steepest;         // [V] by which they rise or fall at most
    int fractionBits;        // of rows in whole numbers, which fit into 31 bits
    double rounding;         // [rows] of values, at most
};

inline constexpr std::size_t kMostTraceColumns = 8;  ///< that are drawn at once

/// Parts of a line from value to value, 0 to 1, at which columns begin and end. All columns are equally wide but for the last one, which
/// may be narrower.
struct TraceParts {
    const double* parts;  // where the first column begins, where it ends, where the next one ends ...
    std::size_t count;    // of columns, 1 to kMostTraceColumns
};

/// What there was among the lines.
struct TraceKinds {
    double steepest;  // [V] of those that are drawn together
    bool areAll;      // drawn together
};

/// The key of a line that is not drawn together with the others, in all of its columns.
inline constexpr std::int32_t kOtherLine = -1;

struct TraceLoops {
    /// The lines from a[i] to b[i]. Of the first two columns, of the next two ... and of the last one, if it stands alone, the keys are
    ///     keys[i] = row + pitch (4 d + e)
    /// where the row is that in which the line leaves the first column, and d and e are the rows that it rises in the first and in
    /// the second; e is 0 where there is none.
    /// @param pitch  more than there are rows
    /// @param keys   count for each two columns
    TraceKinds (*keysOf)(const TraceRows& picture, const TraceParts& columns, const double* a, const double* b,
                         std::size_t count, std::int32_t pitch, std::int32_t* keys);
};

/// The loops compiled for one target; null when this build or this processor has none.
TARNWICK_FRAMEWORK_API const TraceLoops* TraceLoopsFor(LoopTarget target);

/// The fastest loops that this processor runs.
TARNWICK_FRAMEWORK_API const TraceLoops& FastestTraceLoops();

}  // namespace Tarnwick::DSO::Maths
