// Line codings: their names, their levels, and the characters that stand for the levels in a pattern's text.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"

namespace Tarnwick::DSO::Maths {

/// How the symbols of four levels are numbered: by Gray code (a step of one level changes one bit), or by the level.
/// Source: F. Gray, "Pulse code communication", US patent 2632058 (1953).
enum class SymbolMap { Gray, Level };

struct Coding {
    E_SIGNAL_CODING coding;
    std::string_view name;
    int levelCount;
    std::string_view grayAlphabet;   // the characters of the levels, lowest level first
    std::string_view levelAlphabet;  // without Gray coding: the level's index
    constexpr std::string_view Alphabet(SymbolMap map) const
    {
        return map == SymbolMap::Gray ? grayAlphabet : levelAlphabet;
    }
};

/// Gray coding is that of symbols of two bits: NRZ and PAM3 have none.
inline constexpr std::array<Coding, 4> kCodings = {{
    {SIGNAL_CODING_NRZ, "NRZ", 2, "01", "01"},
    {SIGNAL_CODING_PAM4, "PAM4", 4, "0132", "0123"},
    {SIGNAL_CODING_PAM3, "PAM3", 3, "012", "012"},
    {SIGNAL_CODING_PAM4_PRECODED, "PAM4-precoded", 4, "0132", "0123"},
}};

/// The row of a coding; null for SIGNAL_CODING_UNKNOWN and any number outside the enumeration.
TARNWICK_FRAMEWORK_API const Coding* FindCoding(E_SIGNAL_CODING coding);
/// The row of exactly that name; null for any other text.
TARNWICK_FRAMEWORK_API const Coding* FindCoding(std::string_view name);

/// The levels of a coding: 2, 3 or 4; 0 when it is unknown.
TARNWICK_FRAMEWORK_API int LevelCount(E_SIGNAL_CODING coding);

/// The characters of a coding's levels, lowest level first. An unknown coding has the digits up to the highest one in
/// the text, and at least '0' and '1'.
TARNWICK_FRAMEWORK_API std::string Alphabet(E_SIGNAL_CODING coding, SymbolMap map, std::string_view symbols);

/// The level of each symbol, 0 the lowest. All symbols are in the alphabet.
TARNWICK_FRAMEWORK_API std::vector<int> LevelsOf(std::string_view symbols, std::string_view alphabet);

/// The symbol of each level, the way back from LevelsOf. All levels have a character in the alphabet.
TARNWICK_FRAMEWORK_API std::string SymbolsOf(std::span<const int> levels, std::string_view alphabet);

}  // namespace Tarnwick::DSO::Maths
