// Decimal prefixes and decibels, as reports and pictures use them.
#pragma once

#include <cmath>

namespace Tarnwick::DSO::Workbench {

inline constexpr double kGiga = 1e9;
inline constexpr double kPicoPerUnit = 1e12;  // picoseconds in a second

/// [dB] of a ratio of amplitudes.
inline double Decibels(double amplitudeRatio)
{
    return 20.0 * std::log10(amplitudeRatio);
}

}  // namespace Tarnwick::DSO::Workbench
