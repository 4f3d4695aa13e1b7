// Measured impulse responses for the SiRC filter, from waveform files.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// The filter's table: of an odd number of values the first is the sample interval [s], an even number spans 10 ns.
struct SircTable {
    std::vector<double> values;
    std::vector<std::string> notes;  ///< what was assumed, for the user to read
};

/// The interval of a file with a column of times goes first; should the count then be even, the last value is repeated.
/// Without times an odd count is taken as it stands, the interval first, and a note says so.
/// @param name  the file's, for notes
TARNWICK_WORKBENCH_API SircTable TableOf(Waveform measured, const std::string& name);

/// The same of a file.
/// @throws DataFailure  naming the file and the line
TARNWICK_WORKBENCH_API SircTable ReadSircTable(const std::filesystem::path& path);

}  // namespace Tarnwick::DSO::Workbench
