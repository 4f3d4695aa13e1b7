// The inner loops of a picture of traces, compiled once as plain code and, on x86-64, again for AVX2. A value's row is rounded the
// same way by both: no product is fused with a sum, so that a picture is the same to the cell on every processor.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/export.h"
#include "maths/convolution/looptarget.h"

namespace Tarnwick::DSO::Maths {

/// How values become rows of a picture: [1] from `low` on, 0 and `beyond` for all that lies below and above.
struct TraceRows {
    double low;  // [V]
    double rowsPerVolt;
    double beyond;  // up to 32 767
};

struct TraceLoops {
    /// rows[i] = the row of a[i] + part (b[i] - a[i])
    void (*rowsAt)(const TraceRows& picture, const double* a, const double* b, double part, std::size_t count,
                   std::int16_t* rows);
    /// places[i] = spans times the lower of a[i] and b[i], plus their distance, of which `steep` is the most
    /// @return the largest distance
    std::int16_t (*placesOf)(const std::int16_t* a, const std::int16_t* b, std::size_t count, std::int16_t spans,
                             std::int16_t steep, std::uint16_t* places);
};

/// The loops compiled for one target; null when this build or this processor has none.
TARNWICK_FRAMEWORK_API const TraceLoops* TraceLoopsFor(LoopTarget target);

/// The fastest loops that this processor runs.
TARNWICK_FRAMEWORK_API const TraceLoops& FastestTraceLoops();

}  // namespace Tarnwick::DSO::Maths
