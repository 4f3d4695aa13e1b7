// What a record keeps beside a public pointer to an array of its own.
#pragma once

#include <memory>

namespace Tarnwick::DSO::SystemFramework {

/// A share in an array. It has no move of its own: an object that was moved from keeps its pointer, and so must keep its
/// share, or two owners would release the array.
struct ArrayOwner {
    ArrayOwner() = default;
    ArrayOwner(const ArrayOwner&) = default;
    ArrayOwner& operator=(const ArrayOwner&) = default;
    ~ArrayOwner() = default;
    std::shared_ptr<double> array;
};

}  // namespace Tarnwick::DSO::SystemFramework
