// Values that outlive their scope's end: a host's global may filter in its destructor, when objects of static storage
// duration that were made after it, and all of its thread's, are gone already.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace Tarnwick::DSO::Maths {

/// A value that is never destroyed, to be declared `static`. It lies in the object itself, so that what it owns stays
/// reachable and no leak checker reports it.
template <typename Value>
class NeverDestroyed {
public:
    template <typename... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments)
    {
        ::new (static_cast<void*>(room_)) Value(std::forward<Arguments>(arguments)...);
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    ~NeverDestroyed() = default;
    Value& operator*() { return *std::launder(reinterpret_cast<Value*>(room_)); }
    Value* operator->() { return &**this; }

private:
    alignas(Value) std::byte room_[sizeof(Value)];
};

/// This thread's only value of its type, released when the thread ends. Asked for later still, while the process ends, it
/// is made once more and then stays.
template <typename Value>
Value& OfThisThread()
{
    // No path may cross the definition of an object that is gone, so both of these have no destructor.
    thread_local Value* value = nullptr;
    thread_local bool isReleased = false;
    if (value == nullptr) {
        if (!isReleased) {
            struct Release {
                ~Release()
                {
                    isReleased = true;
                    delete std::exchange(value, nullptr);  // NOLINT(cppcoreguidelines-owning-memory)
                }
            };
            thread_local Release atEndOfThread;
            (void)atEndOfThread;
        }
        value = new Value;  // NOLINT(cppcoreguidelines-owning-memory)
    }
    return *value;
}

}  // namespace Tarnwick::DSO::Maths
