// Captures as text: one value a line, all values on one line, or columns.
#pragma once

#include <string>
#include <string_view>

#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// Columns stand between commas, semicolons (then a comma may be the decimal mark) or blanks; fields may be quoted as in
/// RFC 4180. Units in the header ("time [ps]", "CH1 (mV)", or a row of units) are honoured. The times are those of a column
/// that is named so, else of a first column that never falls.
/// @param options  its lines to skip and its column; the rest is the caller's
/// @throws DataFailure  naming the file and the line; also where the file leaves open which numbers are the samples
Waveform ReadTextCapture(std::string_view content, const std::string& name, const WaveformOptions& options);

}  // namespace Tarnwick::DSO::Workbench
