// What a record holds beside a public pointer to an array that it owns.
#pragma once

#include <memory>

namespace Tarnwick::DSO::SystemFramework {

/// A share in an array. It cannot be moved, only copied: an object that was moved from keeps its pointer and must keep its
/// share too, or the pointer would outlive the array.
struct ArrayOwner {
    ArrayOwner() = default;
    ArrayOwner(const ArrayOwner&) = default;
    ArrayOwner& operator=(const ArrayOwner&) = default;
    ~ArrayOwner() = default;
    std::shared_ptr<double> array;
};

}  // namespace Tarnwick::DSO::SystemFramework
