// A growing array that starts at a 64-byte boundary, for transforms to run in. The same alignment every time gives the
// same bits every time, wherever the host's own arrays lie.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include "maths/transforms/largepages.h"

namespace Tarnwick::DSO::Maths {

template <typename Value>
class AlignedBuffer {
    static_assert(std::is_trivially_destructible_v<Value>);

public:
    AlignedBuffer() = default;
    explicit AlignedBuffer(std::size_t count) { Reserve(count); }
    AlignedBuffer(AlignedBuffer&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), capacity_(std::exchange(other.capacity_, 0))
    {
    }
    AlignedBuffer& operator=(AlignedBuffer&& other) noexcept
    {
        std::swap(data_, other.data_);
        std::swap(capacity_, other.capacity_);
        return *this;
    }
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;
    ~AlignedBuffer() { ::operator delete(data_, kAlignment); }

    /// Room for `count` values. The contents are lost when the buffer has to grow.
    Value* Reserve(std::size_t count)
    {
        if (count > capacity_) {
            void* grown = ::operator new(count * sizeof(Value), kAlignment);
            PreferLargePages(grown, count * sizeof(Value));
            ::operator delete(data_, kAlignment);
            data_ = static_cast<Value*>(grown);
            capacity_ = count;
        }
        return data_;
    }
    Value* Data() { return data_; }
    const Value* Data() const { return data_; }
    std::size_t Capacity() const { return capacity_; }

private:
    static constexpr std::align_val_t kAlignment{64};  // [bytes] a cache line
    Value* data_ = nullptr;
    std::size_t capacity_ = 0;
};

}  // namespace Tarnwick::DSO::Maths
