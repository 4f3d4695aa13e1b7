#include "faults/allocations.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

namespace Tarnwick::Testing {

namespace {

constexpr long kNever = std::numeric_limits<long>::max();

std::atomic<long> live{0};
thread_local long asked = 0;
thread_local long failsAt = kNever;
thread_local bool failsOn = false;

// NOLINTBEGIN(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory): ::operator new has nothing else below it
void* Allocate(std::size_t size, std::size_t alignment)
{
    ++asked;
    if (failsOn ? asked >= failsAt : asked == failsAt)
        throw std::bad_alloc();
    // A whole number of alignments, at least one: what std::aligned_alloc asks for.
    const std::size_t room = (size / alignment + 1) * alignment;
    void* const block = alignment > alignof(std::max_align_t) ? std::aligned_alloc(alignment, room) : std::malloc(room);
    if (block == nullptr)
        throw std::bad_alloc();
    ++live;
    return block;
}

void Release(void* block) noexcept
{
    if (block != nullptr)
        --live;
    std::free(block);
}
// NOLINTEND(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)

}  // namespace

long LiveAllocations()
{
    return live;
}

FailingAllocation::FailingAllocation(long n, Shortage shortage)
{
    asked = 0;
    failsAt = n;
    failsOn = shortage == Shortage::FromThenOn;
}

FailingAllocation::~FailingAllocation()
{
    failsAt = kNever;
    failsOn = false;
}

bool FailingAllocation::HasFailed() const
{
    return asked >= failsAt;
}

long FailingAllocation::Asked() const
{
    return asked;
}

}  // namespace Tarnwick::Testing

void* operator new(std::size_t size)
{
    return Tarnwick::Testing::Allocate(size, alignof(std::max_align_t));
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return Tarnwick::Testing::Allocate(size, static_cast<std::size_t>(alignment));
}

// The library's temporary buffers ask so.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* block, const std::nothrow_t&) noexcept
{
    Tarnwick::Testing::Release(block);
}

void operator delete(void* block) noexcept
{
    Tarnwick::Testing::Release(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    Tarnwick::Testing::Release(block);
}

void operator delete(void* block, std::align_val_t) noexcept
{
    Tarnwick::Testing::Release(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept
{
    Tarnwick::Testing::Release(block);
}
