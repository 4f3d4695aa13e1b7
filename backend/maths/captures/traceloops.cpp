#include "maths/captures/traceloops.h"

#include <cstring>

#include "maths/convolution/loopmacros.h"

// Behind a product that is not to be fused with a sum, where plain code has instructions that do.
#if defined(__aarch64__) && (defined(__GNUC__) || defined(__clang__))
#define TARNWICK_ROUND(product) __asm__("" : "+w"(product))
#else
#define TARNWICK_ROUND(product)
#endif

// All headers are above: what they define must not be compiled for a newer processor.
#define TARNWICK_LOOP_TARGET PlainTraces
#define TARNWICK_LOOP_LANES 2
#include "maths/captures/traceloops-inl.h"
#undef TARNWICK_LOOP_TARGET
#undef TARNWICK_LOOP_LANES

#if defined(TARNWICK_HAS_X86_TARGETS)
// Without fused multiply-add, which would round otherwise.
#define TARNWICK_LOOP_TARGET Avx2Traces
#define TARNWICK_LOOP_LANES 4
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
#undef TARNWICK_LOOP_LANES

// These instructions bring fused ones with them: the compiler is kept from them where they would round otherwise.
#undef TARNWICK_ROUND
#define TARNWICK_ROUND(product) __asm__("" : "+v"(product))
#define TARNWICK_LOOP_TARGET Avx512Traces
#define TARNWICK_LOOP_LANES 8
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512dq,avx512vl,avx2"))), apply_to = function)
#include "maths/captures/traceloops-inl.h"
#pragma clang attribute pop
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512dq,avx512vl,avx2")
#include "maths/captures/traceloops-inl.h"
#pragma GCC pop_options
#endif
#undef TARNWICK_LOOP_TARGET
#undef TARNWICK_LOOP_LANES
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
        case LoopTarget::Avx512: return &Avx512Traces::kLoops;
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
