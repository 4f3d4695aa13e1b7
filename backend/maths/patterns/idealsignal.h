// Symbols of a pattern, their levels, and the noise-free waveform that they stand for.
#pragma once

#include <cstddef>
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

/// The characters of a coding's levels, lowest level first. An unknown coding has the digits up to the highest one in
/// the text, and at least '0' and '1'.
TARNWICK_FRAMEWORK_API std::string Alphabet(E_SIGNAL_CODING coding, SymbolMap map, std::string_view symbols);

/// The level of each symbol, 0 the lowest. All symbols are in the alphabet.
TARNWICK_FRAMEWORK_API std::vector<int> LevelsOf(std::string_view symbols, std::string_view alphabet);

struct Swing {
    double low;      // of the lowest level
    double high;     // of the highest
    int levelCount;  // evenly spaced, at least 2
};

/// The waveform of a repeated pattern. Sample m holds the level of symbol floor(m/s) mod symbols, s the samples per UI:
///     y = low + (high - low) level / (levelCount - 1)
/// An edge of more than 0 UI turns each step into a straight line of that duration about the symbol boundary, which is
/// read at the middle of each sample's interval.
/// @param levels        at least one
/// @param samplesPerUi  s, positive; need not be whole
/// @param count         samples to make; the pattern starts anew as often as it takes
/// @param edgeUi        0 to 1
TARNWICK_FRAMEWORK_API std::vector<double> IdealSignal(std::span<const int> levels, Swing swing, double samplesPerUi,
                                                       std::size_t count, double edgeUi = 0.0);

}  // namespace Tarnwick::DSO::Maths
