// The response of a chain as text, JSON and columns.
#pragma once

#include <string>

#include "framework/export.h"
#include "workbench/chainresponse.h"

namespace Tarnwick::DSO::Workbench {

/// A table of figures, one line per filter and one for the whole; then a line for each corrected channel.
TARNWICK_WORKBENCH_API std::string ResponseAsText(const ChainResponse& response);

/// {"symbolRateGBd", "samplesPerUi", "samples", "filters": [figures], "whole": figures, "leftOut": [labels]}, indented by two.
TARNWICK_WORKBENCH_API std::string ResponseAsJson(const ChainResponse& response);

/// CSV by frequency: magnitude and group delay of each filter and the whole. What is not finite is left empty.
TARNWICK_WORKBENCH_API std::string FrequencyColumns(const ChainResponse& response);

/// CSV by time: the impulse responses over half a repetition to either side of the whole's peak; time 0 is the impulse.
TARNWICK_WORKBENCH_API std::string ImpulseColumns(const ChainResponse& response);

/// CSV by frequency: the measured channel, the target, the correction and the corrected channel.
TARNWICK_WORKBENCH_API std::string ChannelColumns(const CorrectedChannel& channel);

}  // namespace Tarnwick::DSO::Workbench
