// Measured impulse responses for the SiRC filter, from waveform files.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// The table as the filter takes it: with an odd number of values the first is the sample interval [s]; an even number
/// spans 10 ns.
struct SircTable {
    std::vector<double> values;
    std::vector<std::string> notes;  ///< what was assumed, for the user to read
};

/// The table of a measured waveform. Where its times are known, their interval goes first, and if the count is then even,
/// the last value is repeated. Without times an odd count is taken as interval and values, and a note says so.
/// @param measured  [V] in any scale; at least one sample
/// @param name      the file's, for notes
TARNWICK_WORKBENCH_API SircTable TableOf(Waveform measured, const std::string& name);

/// The same of a file.
/// @throws DataFailure  naming the file and the line
TARNWICK_WORKBENCH_API SircTable ReadSircTable(const std::filesystem::path& path);

}  // namespace Tarnwick::DSO::Workbench
