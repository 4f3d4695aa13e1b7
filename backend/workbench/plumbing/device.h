// The device of a chain file.
#pragma once

#include <cstddef>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "framework/deviceconfiguration.h"
#include "workbench/lock.h"
#include "workbench/plumbing/fields.h"

namespace Tarnwick::DSO::Workbench {

/// The keys of a device.
const std::vector<Field<DeviceConfiguration>>& DeviceFields();

/// Keys of a device that say how its capture is acquired, in place of fields of the configuration.
struct AcquisitionKeys {
    RecordKind record = RecordKind::Auto;
    ClockKind clock = ClockKind::Constant;
    double loopBandwidthMHz = 0.0;
    bool resample = true;
};
const std::vector<Field<AcquisitionKeys>>& AcquisitionFields();

/// @param device  of a chain file, whose keys are known
/// @throws UsageFailure  naming the key
AcquisitionKeys AcquisitionKeysOf(const nlohmann::json& device, const Place& place);

/// Sets the configuration from a chain file's "device" and completes it for records of one length.
/// @param config  new; oeChannel points to four flags
/// @throws UsageFailure  naming the key
void ReadDevice(const nlohmann::json& chain, const Place& top, std::size_t sampleCount, DeviceConfiguration& config);

/// The device of a locked record: "samplesPerUi", "patternLengthUi" (of a single shot the whole record), and what was found of
/// "baudRateGBd", "signalCoding" and "patternSymbols".
nlohmann::json LockedDevice(const LockedCapture& capture, bool withoutGrayCoding);

/// Samples per UI as a real number; 0 when the configuration does not say.
double SamplesPerUiOf(const DeviceConfiguration& config);

}  // namespace Tarnwick::DSO::Workbench
