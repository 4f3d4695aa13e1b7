#include "maths/convolution/hotloops.h"

#include <cstring>

#include "maths/transforms/roots.h"

#if defined(__GNUC__) || defined(__clang__)
#define TARNWICK_ALWAYS_INLINE inline __attribute__((always_inline))
#elif defined(_MSC_VER)
#define TARNWICK_ALWAYS_INLINE __forceinline
#else
#define TARNWICK_ALWAYS_INLINE inline
#endif

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

}  // namespace

}  // namespace Tarnwick::DSO::Maths

// All headers are above: what they define must not be compiled for a newer processor.
#define TARNWICK_LOOP_TARGET PlainLoops
#include "maths/convolution/hotloops-inl.h"
#undef TARNWICK_LOOP_TARGET

#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
#define TARNWICK_LOOP_TARGET Avx2Loops
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
#define TARNWICK_HAS_AVX2_LOOPS 1
#endif

namespace Tarnwick::DSO::Maths {

const HotLoops* LoopsFor(LoopTarget target)
{
    switch (target) {
        case LoopTarget::Plain: return &PlainLoops::kLoops;
        case LoopTarget::Avx2:
#if defined(TARNWICK_HAS_AVX2_LOOPS)
            if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
                return &Avx2Loops::kLoops;
#endif
            break;
    }
    return nullptr;
}

const HotLoops& Loops()
{
    static const HotLoops* const avx2 = LoopsFor(LoopTarget::Avx2);
    return avx2 != nullptr ? *avx2 : PlainLoops::kLoops;
}

}  // namespace Tarnwick::DSO::Maths
