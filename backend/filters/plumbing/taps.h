// What equalisers ask of their taps.
#pragma once

#include <span>

namespace Tarnwick::DSO::Filters {

/// @throws std::invalid_argument  the number is negative or above 2^20
void RequireTapCount(const char* filter, int numberOfTaps);

/// @throws std::invalid_argument  a tap is NaN or infinite; the text names the first, as `taps[k]`
void RequireFiniteTaps(const char* filter, std::span<const double> taps);

/// Taps samplesPerUi / tapsPerUi samples apart.
struct TapGrid {
    int samplesPerUi;
    int tapsPerUi;
    int numberOfTaps;

    /// @throws std::invalid_argument  samplesPerUi is below 1, tapsPerUi outside 1 to samplesPerUi, or the number of taps
    ///         outside what RequireTapCount takes or too large for delays in 32 bits
    void Require(const char* filter) const;
    /// @throws std::invalid_argument  one repetition of the pattern has no room for the taps, there is none, or the main
    ///         cursor, counted from 1, lies behind the last one
    void RequireFit(const char* filter, int patternLengthUi, int mainCursorPosition) const;
};

}  // namespace Tarnwick::DSO::Filters
