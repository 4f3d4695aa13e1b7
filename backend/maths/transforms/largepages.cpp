#include "maths/transforms/largepages.h"

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#endif

namespace Tarnwick::DSO::Maths {

#ifdef __linux__
void PreferLargePages(void* block, std::size_t bytes) noexcept
{
    constexpr std::size_t kFewestBytes = std::size_t{2} << 20U;
    static const auto kPage = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    if (bytes < kFewestBytes)
        return;
    // With the ends of the pages that it shares: so neighbouring blocks have large pages in common where they meet.
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::size_t before = address % kPage;
    const std::size_t whole = (before + bytes + kPage - 1) / kPage * kPage;
    // A wish: where the system cannot do it, all stays as it was.
    static_cast<void>(madvise(static_cast<char*>(block) - before, whole, MADV_HUGEPAGE));
}
#else
void PreferLargePages(void*, std::size_t) noexcept {}
#endif

}  // namespace Tarnwick::DSO::Maths
