// Large arrays of a host's own on large pages, as the libraries' are.
#pragma once

#include <cstddef>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

/// Asks the system to back a block that has just been allocated with large pages as it is first written, which takes one page fault
/// for 2 MiB in place of 512: for an `operator new` of the host's, say. Its content does not change. Does nothing for blocks below
/// 2 MiB, nor on systems that need not be asked or cannot do it.
TARNWICK_WORKBENCH_API void PreferLargePages(void* block, std::size_t bytes) noexcept;

}  // namespace Tarnwick::DSO::Workbench
