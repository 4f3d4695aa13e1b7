// The device of a chain file.
#pragma once

#include <cstddef>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "framework/deviceconfiguration.h"
#include "workbench/plumbing/fields.h"

namespace Tarnwick::DSO::Workbench {

/// The keys of a device.
const std::vector<Field<DeviceConfiguration>>& DeviceFields();

/// Sets the configuration from a chain file's "device" and completes it for records of one length.
/// @param config  new; oeChannel points to four flags
/// @throws UsageFailure  naming the key
void ReadDevice(const nlohmann::json& chain, const Place& top, std::size_t sampleCount, DeviceConfiguration& config);

/// Samples per UI as a real number; 0 when the configuration does not say.
double SamplesPerUiOf(const DeviceConfiguration& config);

}  // namespace Tarnwick::DSO::Workbench
