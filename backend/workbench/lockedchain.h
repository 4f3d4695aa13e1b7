// A chain file and a capture: what the file's device says of the capture, and the device completed from what was found.
#pragma once

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/lock.h"

namespace Tarnwick::DSO::Workbench {

/// What the device of a chain file says of a capture: its rate, samples per UI, coding and pattern, and the keys "record",
/// "clock" and "loopBandwidthMHz".
/// @throws UsageFailure  naming the key
TARNWICK_WORKBENCH_API CaptureFacts FactsOf(const ChainFile& file);

/// Whether the file wants its capture as it is: "resample" is false, and its samples per UI are no whole number. The
/// library's own rules for them hold then.
TARNWICK_WORKBENCH_API bool KeepsFractionalSampling(const ChainFile& file);

/// Whether some filter of the file needs to know the UI. Moving averages and copies do not.
TARNWICK_WORKBENCH_API bool NeedsTiming(const ChainFile& file);

/// The file with a device for the record: what it leaves out comes from what was found; samples per UI, and of a single shot
/// the pattern, are those of the record.
TARNWICK_WORKBENCH_API ChainFile CompletedFor(const ChainFile& file, const LockedCapture& capture);

}  // namespace Tarnwick::DSO::Workbench
