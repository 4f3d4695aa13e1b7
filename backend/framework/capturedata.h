#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// The points of a capture and three counters. Copies are member-wise and deep.
class TARNWICK_FRAMEWORK_API CaptureData {
public:
    std::vector<std::pair<double, double>> points;  ///< (time [s], value [V])
    std::int64_t counter1 = 0;
    std::int64_t counter2 = 0;
    std::int64_t counter3 = 0;
};

}  // namespace Tarnwick::DSO::SystemFramework
