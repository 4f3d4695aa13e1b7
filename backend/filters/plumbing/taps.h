// What equalisers ask of their taps.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace Tarnwick::DSO::Filters {

/// @throws std::invalid_argument  the number is negative or above 2^20
void RequireTapCount(const char* filter, int numberOfTaps);

/// @throws std::invalid_argument  a tap is NaN or infinite; the text names the first, as `taps[k]`
void RequireFiniteTaps(const char* filter, std::span<const double> taps);

/// The taps over the sum of their magnitudes.
/// @throws std::invalid_argument  the sum is zero or not finite
std::vector<double> TapShares(const char* filter, std::span<const double> taps);

/// The taps' shares in whole steps, of which `resolution` make 1; halves away from zero.
/// @throws std::invalid_argument  as TapShares
std::vector<double> TapSteps(const char* filter, std::span<const double> taps, int resolution);

/// The taps over their sum, so that they pass a constant as it is.
/// @throws std::invalid_argument  the sum is zero or not finite
std::vector<double> WithUnitGain(const char* filter, std::vector<double> taps);

/// The ends of a record that a fit is to leave out.
struct IgnoredEnds {
    int ignoredUi;
    std::size_t recordUi;
    std::size_t reachUi;   // that the fit leaves out at each end beyond them
    std::size_t unknowns;  // that it finds

    /// @throws std::invalid_argument  ignoredUi is negative, or not 0 and leaves fewer than twice as many UI as there are
    ///         unknowns: a fit of about as many follows the noise of the few
    void Require(const char* filter) const;
};

/// Taps samplesPerUi / tapsPerUi samples apart.
struct TapGrid {
    int samplesPerUi;
    int tapsPerUi;
    int numberOfTaps;

    static TapGrid SymbolSpaced(int samplesPerUi, int numberOfTaps) { return {samplesPerUi, 1, numberOfTaps}; }

    int Spacing() const { return samplesPerUi / tapsPerUi; }
    /// Values of a kernel with these taps.
    std::size_t KernelLength() const;
    /// The taps with zeros between them; taps beyond numberOfTaps are left out, missing ones are zero.
    std::vector<double> Kernel(std::span<const double> taps) const;
    /// @throws std::invalid_argument  samplesPerUi is below 1, tapsPerUi outside 1 to samplesPerUi, or the number of taps
    ///         outside what RequireTapCount takes or too large for delays in 32 bits
    void Require(const char* filter) const;
    /// @throws std::invalid_argument  one repetition of the pattern has no room for the taps, there is none, or the main
    ///         cursor, counted from 1, lies behind the last one
    void RequireFit(const char* filter, int patternLengthUi, int mainCursorPosition) const;
};

}  // namespace Tarnwick::DSO::Filters
