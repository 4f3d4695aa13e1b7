#include "memory.h"

#include <cstddef>
#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

// The sanitizers bring operators of their own, which tell more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TARNWICK_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TARNWICK_SANITIZED
#endif
#endif

#if defined(__linux__) && !defined(TARNWICK_SANITIZED)
#include <new>

#include "workbench/largepages.h"

// All arrays of the libraries come through here: those of records and symbols, those that transforms and kernels work in.
// NOLINTBEGIN(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory): this is what owns memory elsewhere
void* operator new(std::size_t bytes)
{
    while (true) {
        void* const block = std::malloc(bytes > 0 ? bytes : 1);
        if (block != nullptr) {
            Tarnwick::DSO::Workbench::PreferLargePages(block, bytes);
            return block;
        }
        const std::new_handler handler = std::get_new_handler();
        if (handler == nullptr)
            throw std::bad_alloc();
        handler();
    }
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
// NOLINTEND(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)
#endif

namespace Tarnwick::App {

void PrepareMemory()
{
#if defined(__GLIBC__)
    constexpr int kMiB = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, 4 * kMiB);
    mallopt(M_TRIM_THRESHOLD, 64 * kMiB);  // at its default the pages of a block come and go with each use
#endif
}

}  // namespace Tarnwick::App
