#include "maths/captures/traceloops.h"

// All headers are above: what they define must not be compiled for a newer processor.
#define TARNWICK_LOOP_TARGET PlainTraces
#include "maths/captures/traceloops-inl.h"
#undef TARNWICK_LOOP_TARGET

#if defined(TARNWICK_HAS_X86_TARGETS)
// Without fused multiply-add, which would round otherwise.
#define TARNWICK_LOOP_TARGET Avx2Traces
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#include "maths/captures/traceloops-inl.h"
#pragma clang attribute pop
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#include "maths/captures/traceloops-inl.h"
#pragma GCC pop_options
#endif
#undef TARNWICK_LOOP_TARGET
#endif

namespace Tarnwick::DSO::Maths {

const TraceLoops* TraceLoopsFor(LoopTarget target)
{
    if (!RunsHere(target))
        return nullptr;
    switch (target) {
        case LoopTarget::Plain: return &PlainTraces::kLoops;
#if defined(TARNWICK_HAS_X86_TARGETS)
        case LoopTarget::Avx2: return &Avx2Traces::kLoops;
#endif
        default: return nullptr;
    }
}

const TraceLoops& FastestTraceLoops()
{
    static const TraceLoops& best = FastestLoops(TraceLoopsFor);
    return best;
}

}  // namespace Tarnwick::DSO::Maths
