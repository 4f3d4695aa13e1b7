// S-parameter files rewritten, so that the de-embedding filter's narrow rules read them as they are meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct NormalisedFile {
    std::string text;
    std::vector<std::string> notes;  ///< which lines are no longer data, and what was calculated, for the user to read
};

/// The file with one option line in the filter's order before the data, a record on one line or, of four ports, four, and
/// every comment on a line of its own. Numbers stay as they are written, unless other parameters than S are converted.
/// Noise parameters become comments. Only the rows remain of a table.
/// @param name  the file's, which says what it is, and for messages
/// @throws DataFailure  something has more than one reading; the text names file and line
TARNWICK_WORKBENCH_API NormalisedFile NormaliseTouchstone(std::string_view text, const std::string& name);

/// The same for a file that is to be written: read again, the filter takes it as it is meant.
/// @param outputName  of the file to write
/// @throws UsageFailure  the output's name says something else than the file's
/// @throws DataFailure   also for a file whose new form would still be read otherwise
TARNWICK_WORKBENCH_API NormalisedFile NormaliseFixture(std::string_view text, const std::string& name,
                                                       const std::string& outputName);

}  // namespace Tarnwick::DSO::Workbench
