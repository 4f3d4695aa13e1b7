// Pulse responses by linear fit: the waveform p that a symbol adds to a record, by least squares over all its symbols
//     x(t) = c(t mod T) + sum_i a_i p(t - i T) + rest,   a_i from 0 for the lowest level to 1 for the highest
// so that p is what one symbol of the highest level among many of the lowest would show.
// Levels that are not evenly spaced, jitter, noise and whatever a symbol does beyond the span stay in the rest. Source: IEEE
// 802.3 clause 85.8.3.3.5 (linear fit pulse response; symbols are -1 to 1 there, which makes p half as large).
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/captures/eyes.h"

namespace Tarnwick::DSO::Maths {

inline constexpr std::size_t kPulseUiBefore = 5;  // of the cursor
inline constexpr std::size_t kPulseUiAfter = 20;

/// Values a UI: the samples of a record that has enough of them and not too many; otherwise it is read between its samples, as
/// eyes are, which rings where a DFE steps.
TARNWICK_FRAMEWORK_API std::size_t PulsePhases(double samplesPerUi);

struct PulseResponse {
    std::vector<double> values;  ///< [V] value n at n / PulsePhases - kPulseUiBefore [UI] from the cursor
    double residualRms = 0.0;    ///< [V] of the rest
};

/// A record, and where its symbols are looked at.
struct PulseRecord {
    EyeRecord record;
    double position;  ///< [samples] of symbol 0
};

/// The responses of records that carry the same symbols, of one rate and one wrapping, on one axis of time. Its cursor is, of
/// the positions a UI apart, the one within 2 UI of symbol 0 at which the response of the first record is largest.
/// At most the first 131072 valid UI are fitted.
/// @param records  at least one
/// @param symbols  of their UI; the positions say which is which, not the centre
/// @return nothing when the symbols that are known and in the valid parts of all records cannot tell that many UI apart, or
///         are fewer than twice the unknowns
TARNWICK_FRAMEWORK_API std::optional<std::vector<PulseResponse>> FitPulseResponses(std::span<const PulseRecord> records,
                                                                                   const AlignedSymbols& symbols);

}  // namespace Tarnwick::DSO::Maths
