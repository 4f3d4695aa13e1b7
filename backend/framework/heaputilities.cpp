#include "framework/heaputilities.h"

#include <algorithm>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::SystemFramework {

double* HeapUtilities::ResizePointerArray(const double* a, std::size_t oldCount, std::size_t newCount)
{
    if (a == nullptr && oldCount > 0)
        Refuse("HeapUtilities::ResizePointerArray", "a", "null", "an array of oldCount values");
    OwnedArray resized = NewArray(newCount);
    const std::size_t copied = std::min(oldCount, newCount);
    std::copy(a, a + copied, resized.get());
    std::fill(resized.get() + copied, resized.get() + newCount, 0.0);
    return resized.release();
}

}  // namespace Tarnwick::DSO::SystemFramework
