// Pseudo-random test patterns and what their symbols stand for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"

namespace Tarnwick::DSO::Workbench {

/// Levels of a coding: 2 (NRZ), 3 (PAM3), 4 (PAM4, precoded or not); 0 when unknown.
TARNWICK_WORKBENCH_API int LevelCount(E_SIGNAL_CODING coding);

/// The names of all codings, NRZ, PAM4, PAM3 and PAM4-precoded, as chain files and reports have them.
TARNWICK_WORKBENCH_API std::vector<std::string> CodingNames();
/// The coding of one of these names; SIGNAL_CODING_UNKNOWN for any other text.
TARNWICK_WORKBENCH_API E_SIGNAL_CODING CodingOf(std::string_view name);

/// One whole period of a pseudo-random binary sequence as the text of a pattern: 2^n - 1 characters, or the first of them.
/// x^7+x^6+1, x^9+x^5+1, x^11+x^9+1, x^13+x^12+x^2+x+1, x^15+x^14+1, x^23+x^18+1, x^31+x^28+1, started from all ones.
/// NRZ: the bits. PAM4: the bit pairs (first bit high) of the sequence taken twice; the pair's value is the Gray-coded
/// character, without Gray coding the level. Source: ITU-T O.150 section 5; IEEE 802.3 table 94-11 for n = 13.
/// @param count  0: the whole period
/// @throws UsageFailure  another order, more than 2^30 symbols, or PAM3, which has no such pattern
TARNWICK_WORKBENCH_API std::string PrbsSymbols(int order, E_SIGNAL_CODING coding, std::size_t count = 0);

/// Level indices (0 the lowest) of a pattern's text. PAM4 with Gray coding: '0', '1', '3', '2' from lowest to highest.
/// @throws UsageFailure  a character that is not a symbol of the coding, named with its position
TARNWICK_WORKBENCH_API std::vector<int> LevelsOf(std::string_view symbols, E_SIGNAL_CODING coding,
                                                 bool withoutGrayCoding);

}  // namespace Tarnwick::DSO::Workbench
