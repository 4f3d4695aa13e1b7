#include "filters/plumbing/channel.h"

#include <type_traits>

#include "framework/patternlockfailed.h"
#include "framework/plumbing/error.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Refuse;

void RequireChannel(const char* filter, int channel)
{
    if (channel < 0 || channel >= static_cast<int>(std::extent_v<decltype(DeviceConfiguration::patternLocked)>))
        Refuse(filter, "channel", channel, "0 to 3");
}

void RequirePatternLock(const char* filter, const SystemFramework::BaseFilterParameters* parameters)
{
    if (parameters == nullptr)
        Refuse(filter, "parameters", "null", "a parameters object");
    const DeviceConfiguration* config = parameters->GetConfig();
    if (config == nullptr)
        return;
    RequireChannel(filter, parameters->channel);
    if (!config->patternLocked[parameters->channel])
        throw PatternLockFailed();
}

bool IsOpticalChannel(const char* filter, const DeviceConfiguration& config, int channel)
{
    RequireChannel(filter, channel);
    return config.oeChannel != nullptr && config.oeChannel[channel];
}

}  // namespace Tarnwick::DSO::Filters
