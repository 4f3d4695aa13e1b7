#pragma once

#include <cstdint>
#include <map>

#include "framework/export.h"

namespace Tarnwick::DSO {

/// Optical-to-electrical receiver information: two scalars and an ordered map. Copies are deep, moves take the map.
class TARNWICK_FRAMEWORK_API OToEReceiverInfo {
public:
    std::int32_t receiverId = 0;
    std::int32_t receiverMode = 0;
    std::map<std::int32_t, double> calibration;
};

}  // namespace Tarnwick::DSO
