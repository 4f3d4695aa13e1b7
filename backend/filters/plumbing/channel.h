// What a filter asks the configuration about its channel.
#pragma once

#include "framework/basefilterparameters.h"
#include "framework/deviceconfiguration.h"

namespace Tarnwick::DSO::Filters {

/// @throws std::invalid_argument  the channel is outside 0 to 3
void RequireChannel(const char* filter, int channel);

/// The pattern-lock check of every filter that builds on a configuration; without a configuration nothing is checked.
/// @throws PatternLockFailed      the configuration reports no lock on the parameters' channel
/// @throws std::invalid_argument  parameters is null, or the channel is outside 0 to 3
void RequirePatternLock(const char* filter, const SystemFramework::BaseFilterParameters* parameters);

/// Whether the channel is fed through an optical-to-electrical converter; a null `oeChannel` means that none is.
/// @throws std::invalid_argument  the channel is outside 0 to 3
bool IsOpticalChannel(const char* filter, const DeviceConfiguration& config, int channel);

}  // namespace Tarnwick::DSO::Filters
