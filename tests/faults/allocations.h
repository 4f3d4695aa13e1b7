// The process's heap as ::operator new and ::operator delete see it, in the program and in the libraries that it loads:
// this program's definitions take the place of the standard ones.
#pragma once

namespace Tarnwick::Testing {

/// Blocks that ::operator new has given out and that are not released.
long LiveAllocations();

enum class Shortage { Once, FromThenOn };

/// While it lives, this thread's n-th allocation from now throws std::bad_alloc, and with FromThenOn all that follow.
class FailingAllocation {
public:
    FailingAllocation(long n, Shortage shortage);
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();
    /// Whether as many as n were asked for.
    bool HasFailed() const;
    /// Allocations asked for so far.
    long Asked() const;
};

}  // namespace Tarnwick::Testing
