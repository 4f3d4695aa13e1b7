// One filter of a chain, run on a record.
#pragma once

#include <string>
#include <vector>

#include "workbench/chain.h"

namespace Tarnwick::DSO::Workbench {

/// Prepares the stage's filter and applies it. Settings that it refuses are the chain file's fault, records that it
/// refuses the capture's.
/// @param samples  left as they are; filters take them through a pointer to mutable samples
/// @param chain    the chain file's name, for messages
/// @param capture  the capture's name, for messages
/// @throws UsageFailure  the settings, also those that make other values than finite ones of a finite record
/// @throws DataFailure   the record
std::vector<double> RunStage(Stage& stage, std::vector<double>& samples, const std::string& chain,
                             const std::string& capture);

}  // namespace Tarnwick::DSO::Workbench
