#pragma once

#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// One contiguous sequence of values. Assignment copies the elements; self-assignment changes nothing.
class TARNWICK_FRAMEWORK_API Signal {
public:
    std::vector<double> values;
};

}  // namespace Tarnwick::DSO::SystemFramework
