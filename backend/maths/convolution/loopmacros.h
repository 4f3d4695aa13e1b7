// What the loops that are compiled for several targets are marked with.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define TARNWICK_ALWAYS_INLINE inline __attribute__((always_inline))
#elif defined(_MSC_VER)
#define TARNWICK_ALWAYS_INLINE __forceinline
#else
#define TARNWICK_ALWAYS_INLINE inline
#endif

// In front of a loop over a few packs, which are to stay in registers. With a sanitizer's checks in each line, unrolled loops
// take minutes to compile.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TARNWICK_UNROLL
#endif
#endif
#if defined(TARNWICK_UNROLL) || defined(__SANITIZE_THREAD__)
#define TARNWICK_UNROLL
#elif defined(__clang__)
#define TARNWICK_UNROLL _Pragma("clang loop unroll(full)")
#elif defined(__GNUC__)
#define TARNWICK_UNROLL _Pragma("GCC unroll 8")
#else
#define TARNWICK_UNROLL
#endif
