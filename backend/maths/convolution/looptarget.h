// What inner loops are compiled for beside plain code, and which of it this processor runs.
#pragma once

#include <initializer_list>

#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
#define TARNWICK_HAS_X86_TARGETS 1
#endif

namespace Tarnwick::DSO::Maths {

enum class LoopTarget { Plain, Avx2, Avx512 };

/// Whether this processor runs loops of a target. Avx2 asks for fused multiply-add as well, whether the loops use it or not:
/// hardly any processor has the one without the other.
inline bool RunsHere(LoopTarget target)
{
#if defined(TARNWICK_HAS_X86_TARGETS)
    const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    switch (target) {
        case LoopTarget::Plain: return true;
        case LoopTarget::Avx2: return hasAvx2;
        case LoopTarget::Avx512:
            return hasAvx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                   __builtin_cpu_supports("avx512vl");
    }
#endif
    return target == LoopTarget::Plain;
}

/// The fastest loops of a table that is compiled for several targets.
/// @param loopsFor  a pointer to the table of a target; null where this build or this processor has none
template <typename LoopsFor>
const auto& FastestLoops(const LoopsFor& loopsFor)
{
    for (const LoopTarget target : {LoopTarget::Avx512, LoopTarget::Avx2})
        if (const auto* const loops = loopsFor(target))
            return *loops;
    return *loopsFor(LoopTarget::Plain);
}

}  // namespace Tarnwick::DSO::Maths
