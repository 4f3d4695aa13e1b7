// What can be told from a capture alone.
#pragma once

#include <optional>
#include <span>
#include <vector>

namespace Tarnwick::App {

enum class Confidence { Likely, Certain };

struct Found {
    double value;
    Confidence confidence;
};

/// Samples per UI, from the line that the symbol clock leaves in the spectrum of the squared slope; nothing when no line
/// stands out. At least 2 samples per UI and some hundred symbols are needed.
std::optional<Found> FindSamplesPerUi(std::span<const double> samples);

/// Samples of one repetition of the pattern, from the autocorrelation; nothing when the record does not repeat itself, as
/// when it holds one repetition or less.
/// @param shortest  lags up to this one are not looked at [samples]
std::optional<Found> FindPeriod(std::span<const double> samples, double shortest);

/// The levels [V], lowest first, of two to four that fit best; empty when none stand apart.
std::vector<double> FindLevels(std::span<const double> samples, double samplesPerUi);

}  // namespace Tarnwick::App
