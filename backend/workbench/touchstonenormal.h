// S-parameter files written anew, so that the de-embedding filter's narrow rules read them as they are meant.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "maths/touchstone/touchstone.h"

namespace Tarnwick::DSO::Workbench {

/// What a file's name says in any case; nothing for numbers of ports that the filter has no use for.
std::optional<DSO::Maths::FileKind> MeantKind(std::string_view name);

/// The ending, in lower case, by which the filter knows a kind.
const char* EndingOf(DSO::Maths::FileKind kind);

/// A text that holds words of a file, which may be anything, for a terminal: no control characters, of moderate length.
std::string Printable(std::string text);

/// The keyword of an option line.
std::string UnitName(double unit);
std::string FormatName(DSO::Maths::PairFormat format);

/// What an option line gives behind R; "50", the default, where it gives nothing.
std::string ReferenceOf(std::string_view optionLine);

struct NormalisedFile {
    std::string text;
    std::vector<std::string> notes;  ///< what is no longer data, or was calculated, for the user to read
};

/// The file with one option line in the filter's order before the data, a record on one line or, of four ports, four, and
/// every comment on a line of its own. Numbers stay as they are written, unless other parameters than S are converted.
/// Noise parameters become comments. Of a table stay the rows.
/// @param name  the file's, which says what it is, and for messages
/// @throws DataFailure  what has no one meaning, naming file and line
NormalisedFile NormaliseTouchstone(std::string_view text, const std::string& name);

}  // namespace Tarnwick::DSO::Workbench
