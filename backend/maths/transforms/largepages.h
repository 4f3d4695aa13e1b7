// Large arrays on large pages: one page fault for 2 MiB in place of 512, and fewer misses in the processor's table of pages.
#pragma once

#include <cstddef>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Asks the system to back a block that has just been allocated with large pages as it is first written. Its content does
/// not change. Does nothing for blocks below 2 MiB, nor on systems that need not be asked or cannot do it; Linux does it
/// where /sys/kernel/mm/transparent_hugepage/enabled says "madvise" or "always".
TARNWICK_FRAMEWORK_API void PreferLargePages(void* block, std::size_t bytes) noexcept;

}  // namespace Tarnwick::DSO::Maths
