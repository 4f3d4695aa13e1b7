#include "maths/convolution/hotloops.h"

#include <cstring>

#include "maths/convolution/loopmacros.h"
#include "maths/transforms/roots.h"

namespace Tarnwick::DSO::Maths {

namespace {

/// exp(-2 pi i n / kMostRows). Shorter transforms take every second, fourth ... of them, which are their own roots to
/// the bit.
struct RootTable {
    double cosine[kMostRows];
    double sine[kMostRows];
    RootTable()
    {
        for (std::size_t n = 0; n < kMostRows; ++n) {
            const Complex root = RootOfUnity(n, kMostRows);
            cosine[n] = root.real();
            sine[n] = root.imag();
        }
    }
};
const RootTable kRoots;

/// exp(-2 pi i k / P)
template <std::size_t P>
struct OddRoots;
template <>
struct OddRoots<3> {
    static constexpr double cosine[] = {1.0, -0.5, -0.5};
    static constexpr double sine[] = {0.0, -0.86602540378443864676, 0.86602540378443864676};
};
template <>
struct OddRoots<5> {
    static constexpr double cosine[] = {1.0, 0.30901699437494742410, -0.80901699437494742410, -0.80901699437494742410,
                                        0.30901699437494742410};
    static constexpr double sine[] = {0.0, -0.95105651629515357212, -0.58778525229247312917, 0.58778525229247312917,
                                      0.95105651629515357212};
};

}  // namespace

}  // namespace Tarnwick::DSO::Maths

// All headers are above: what they define must not be compiled for a newer processor.
#define TARNWICK_LOOP_TARGET PlainLoops
#define TARNWICK_LOOP_LANES 2
#include "maths/convolution/hotloops-inl.h"
#undef TARNWICK_LOOP_TARGET
#undef TARNWICK_LOOP_LANES

#if defined(TARNWICK_HAS_X86_TARGETS)
#define TARNWICK_LOOP_TARGET Avx2Loops
#define TARNWICK_LOOP_LANES 4
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2,fma"))), apply_to = function)
#include "maths/convolution/hotloops-inl.h"
#pragma clang attribute pop
#else
#pragma GCC push_options
#pragma GCC target("avx2,fma")
#include "maths/convolution/hotloops-inl.h"
#pragma GCC pop_options
#endif
#undef TARNWICK_LOOP_TARGET
#undef TARNWICK_LOOP_LANES

#define TARNWICK_LOOP_TARGET Avx512Loops
#define TARNWICK_LOOP_LANES 8
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512dq,avx512vl,avx2,fma"))), apply_to = function)
#include "maths/convolution/hotloops-inl.h"
#pragma clang attribute pop
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512dq,avx512vl,avx2,fma")
#include "maths/convolution/hotloops-inl.h"
#pragma GCC pop_options
#endif
#undef TARNWICK_LOOP_TARGET
#undef TARNWICK_LOOP_LANES
#endif

namespace Tarnwick::DSO::Maths {

const HotLoops* LoopsFor(LoopTarget target)
{
    if (!RunsHere(target))
        return nullptr;
    switch (target) {
#if defined(TARNWICK_HAS_X86_TARGETS)
        case LoopTarget::Avx2: return &Avx2Loops::kLoops;
        case LoopTarget::Avx512: return &Avx512Loops::kLoops;
#endif
        default: return &PlainLoops::kLoops;
    }
}

const HotLoops& Loops()
{
    static const HotLoops& best = FastestLoops(LoopsFor);
    return best;
}

}  // namespace Tarnwick::DSO::Maths
