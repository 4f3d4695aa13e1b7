// The arrays that cross the boundary: made by ::operator new, released by ::operator delete. This is the only place
// that calls either.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <type_traits>

#include "maths/transforms/largepages.h"

namespace Tarnwick::DSO::SystemFramework {

struct BoundaryRelease {
    void operator()(void* array) const noexcept { ::operator delete(array); }
};

/// A raw result until the last line of its operation: `.release()` only in a `return`.
template <typename Value>
using OwnedArrayOf = std::unique_ptr<Value[], BoundaryRelease>;
using OwnedArray = OwnedArrayOf<double>;

/// Room for `count` values, unwritten; a valid allocation also for none.
template <typename Value = double>
OwnedArrayOf<Value> NewArray(std::size_t count)
{
    static_assert(std::is_trivially_destructible_v<Value>);
    if (count > static_cast<std::size_t>(-1) / sizeof(Value))
        throw std::bad_array_new_length();
    void* const block = ::operator new(count * sizeof(Value));
    Maths::PreferLargePages(block, count * sizeof(Value));
    return OwnedArrayOf<Value>(static_cast<Value*>(block));
}

/// A raw result that several objects share: released with the last of them. Null for null, without an allocation.
inline std::shared_ptr<double> SharedArray(double* array)
{
    return array != nullptr ? std::shared_ptr<double>(array, BoundaryRelease()) : nullptr;
}

template <typename Value>
OwnedArrayOf<Value> NewArrayFrom(std::span<const Value> values)
{
    OwnedArrayOf<Value> array = NewArray<Value>(values.size());
    std::copy(values.begin(), values.end(), array.get());
    return array;
}

}  // namespace Tarnwick::DSO::SystemFramework
