// From a capture and a chain file to what runs: the capture locked with what the file says of it, cut and resampled as filters
// take it, and the file's device completed from what was found.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/eye.h"
#include "workbench/lock.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// A record as a chain takes it, and what is known of it.
struct ChainInput {
    ChainFile chain;                             ///< the file with a device for the record
    std::vector<double> samples = {};            ///< [V]
    double interval = 0.0;                       ///< [s] 0: not known
    double start = 0.0;                          ///< [s] of the first sample
    EyeSettings eyes = {};                       ///< what its eyes are measured with; without levels none are
    std::optional<LockReport> acquisition = {};  ///< none: the record is the capture as it was read
    std::vector<std::string> notes = {};  ///< for the user: what was found, assumed or left out, and what contradicts
};

/// What the device of a chain file says of a capture: its rate, samples per UI, coding and pattern, and the keys "record",
/// "clock" and "loopBandwidthMHz". What `given` holds goes before.
/// @throws UsageFailure  naming the key
TARNWICK_WORKBENCH_API CaptureFacts FactsOf(const ChainFile& file, CaptureFacts given = {});

/// Locks the capture and completes the chain file for the record. The capture goes through as it was read where the file asks
/// for its fractional sampling ("resample" false), and where no filter needs to know the UI and no clock is found.
/// @param capture  taken: its samples become the record's
/// @param given  goes before what the file says
/// @param name   the capture's, for messages
/// @throws UsageFailure  the file
/// @throws DataFailure   as Lock
TARNWICK_WORKBENCH_API ChainInput InputFor(const ChainFile& file, Waveform capture, const CaptureFacts& given,
                                           const std::string& name);
/// The same of a capture that is locked already.
TARNWICK_WORKBENCH_API ChainInput InputFor(const ChainFile& file, LockedCapture locked, const std::string& name);

/// @param user  what needs eyes, for messages
/// @throws DataFailure   no levels were made out in the capture
/// @throws UsageFailure  it was not looked for them, and the chain file says nothing of line coding or samples per UI
TARNWICK_WORKBENCH_API void RequireEyes(const ChainInput& input, const std::string& name, const std::string& user);

}  // namespace Tarnwick::DSO::Workbench
