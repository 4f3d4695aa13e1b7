#include "maths/transforms/largepages.h"

#ifdef __linux__
#include <sys/mman.h>

#include <cstdint>
#endif

namespace Tarnwick::DSO::Maths {

#ifdef __linux__
void PreferLargePages(void* block, std::size_t bytes) noexcept
{
    constexpr std::size_t kLargePage = std::size_t{1} << 21U;
    constexpr std::size_t kFewestBytes = 2 * kLargePage;
    if (bytes < kFewestBytes)
        return;
    // Whole large pages within the block; its ends may share small ones with other blocks.
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::size_t before = (kLargePage - address % kLargePage) % kLargePage;
    const std::size_t whole = (bytes - before) / kLargePage * kLargePage;
    // A wish: where the system cannot do it, all stays as it was.
    static_cast<void>(madvise(static_cast<char*>(block) + before, whole, MADV_HUGEPAGE));
}
#else
void PreferLargePages(void*, std::size_t) noexcept {}
#endif

}  // namespace Tarnwick::DSO::Maths
