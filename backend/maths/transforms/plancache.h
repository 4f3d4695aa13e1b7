// Keeps transform plans once they are made: for powers of two, which are few, for good; for other lengths the eight
// that were asked for last. A cache is declared NeverDestroyed.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace Tarnwick::DSO::Maths {

template <typename Plan, typename Length = std::size_t>
class PlanCache {
public:
    /// The plan for this length; an unknown one is made while the lock is held.
    std::shared_ptr<const Plan> Get(Length length, const std::function<std::shared_ptr<const Plan>()>& make)
    {
        const std::lock_guard lock(mutex_);
        if (const auto known = plans_.find(length); known != plans_.end()) {
            if (const auto place = std::find(recent_.begin(), recent_.end(), length); place != recent_.end())
                recent_.splice(recent_.begin(), recent_, place);
            return known->second;
        }
        std::shared_ptr<const Plan> made = make();
        std::list<Length> place;
        if (!IsPowerOfTwo(length))
            place.push_front(length);
        // Everything that allocates comes before this: a plan kept without a place in the list would never be dropped.
        plans_.emplace(length, made);
        recent_.splice(recent_.begin(), place);
        if (recent_.size() > kRecentLengths) {
            plans_.erase(recent_.back());
            recent_.pop_back();
        }
        return made;
    }

private:
    static constexpr std::size_t kRecentLengths = 8;
    static bool IsPowerOfTwo(std::size_t length) { return std::has_single_bit(length); }
    static bool IsPowerOfTwo(const std::pair<std::size_t, std::size_t>&) { return false; }
    std::mutex mutex_;
    std::map<Length, std::shared_ptr<const Plan>> plans_;
    std::list<Length> recent_;
};

}  // namespace Tarnwick::DSO::Maths
