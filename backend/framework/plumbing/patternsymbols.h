// The symbols of a repeated pattern, checked before the maths sees them. Public operations and filters share the checks,
// and each refuses in its own name.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"
#include "maths/patterns/codings.h"
#include "maths/patterns/symboldetection.h"

namespace Tarnwick::DSO::SystemFramework {

/// Hosts ask for one or the other with a flag.
constexpr Maths::SymbolMap SymbolMapOf(bool withoutGrayCoding)
{
    return withoutGrayCoding ? Maths::SymbolMap::Level : Maths::SymbolMap::Gray;
}

/// The levels that a pattern's symbols stand for.
struct SymbolLevels {
    std::vector<int> levels;  // of each symbol, 0 the lowest
    int levelCount;           // of the coding
};

/// @param field  what the refusal calls the text
/// @throws std::invalid_argument  a character is no symbol of the coding
TARNWICK_FRAMEWORK_API SymbolLevels LevelsOfSymbols(std::string_view where, std::string_view field,
                                                    std::string_view symbols, E_SIGNAL_CODING coding,
                                                    Maths::SymbolMap map);

/// How the PAM4 symbols of a capture are found.
struct Pam4Detection {
    int patternLengthUi;
    Maths::SymbolMap map;
    const char* userPattern;  // null-terminated; unless null or empty it is the answer
    Maths::Decisions decisions;
};

/// One period of PAM4 symbols, a character for each UI.
/// @param count  values in `samples`, one period
/// @throws std::invalid_argument  patternLengthUi is below 1 or above count; samples is null or holds a value that is not
///         finite; the user's pattern is not patternLengthUi symbols '0' to '3'; the samples show no four levels
TARNWICK_FRAMEWORK_API std::string DetectedPam4Symbols(std::string_view where, const double* samples, int count,
                                                       const Pam4Detection& detection);

/// @throws std::invalid_argument  a value is NaN or infinite; the text names the first, as `samples[k]`
TARNWICK_FRAMEWORK_API void RequireFiniteSamples(std::string_view where, std::span<const double> samples);

}  // namespace Tarnwick::DSO::SystemFramework
