#pragma once

#include <cstddef>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

class TARNWICK_FRAMEWORK_API HeapUtilities {
public:
    /// A copy of an array in another size: cut to newCount values, or continued with zeros.
    /// @param a  oldCount values, read only; it remains the caller's to release; may be null only when oldCount is 0
    /// @return   new array of newCount values; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  a is null though oldCount is not 0
    /// @throws std::bad_alloc         newCount values cannot be allocated
    static double* ResizePointerArray(const double* a, std::size_t oldCount, std::size_t newCount);
};

}  // namespace Tarnwick::DSO::SystemFramework
