// A chain file's device and stages before any file is read: enough to ask what the stages need.
#pragma once

#include <cstddef>
#include <vector>

#include "workbench/chain.h"
#include "workbench/plumbing/stagetype.h"

namespace Tarnwick::DSO::Workbench {

/// @param config  new; oeChannel points to four flags
/// @throws UsageFailure  naming the key
void ReadChainDevice(const ChainFile& file, std::size_t sampleCount, DeviceConfiguration& config);

/// Whether some filter that is enabled needs to know the UI. Those that PlanStages refuses count as if they did.
bool NeedsTiming(const ChainFile& file);

/// The stages that are enabled, in their order.
/// @param config  has read the file's device; outlives the plans
/// @throws UsageFailure  naming the key
std::vector<StagePlan> PlanStages(const ChainFile& file, DeviceConfiguration& config);

}  // namespace Tarnwick::DSO::Workbench
