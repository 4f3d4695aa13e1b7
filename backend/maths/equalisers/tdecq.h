// Transmitter and dispersion eye closure of a repeated multilevel pattern, and the reference equaliser of least closure.
//     TDECQ = 10 log10(OMA C_eq / (2 (n - 1) Q_t sigma)),  Q_t = 3.414, n = 4 levels
// sigma is the largest Gaussian noise at which the symbol error ratio stays at or below 4.8e-4 in two time slices 0.1 UI
// apart, C_eq the gain of the equaliser for the noise behind the reference receiver, OMA the outer modulation amplitude.
// The equaliser is symbol-spaced, its taps sum to 1. Source: IEEE 802.3 clause 121.8.5.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// The symbols of a waveform, and where they lie in it.
struct ReferenceSymbols {
    std::vector<int> levels;      // of each UI, 0 the lowest
    int levelCount = 0;           // 2 to 4, each of which occurs
    std::size_t firstCentre = 0;  // sample at the middle of UI 0; may be beyond the last: the record is periodic
};

/// The symbols of a pattern's held waveform, whose sample 0 begins UI 0; the pattern is repeated until there are uiCount.
/// Levels that it does not use are not counted. For a capture that lags behind that waveform, add the lag to firstCentre.
/// @param pattern  level of each UI
/// @return nothing when the pattern uses fewer than 2 or more than 4 levels
TARNWICK_FRAMEWORK_API std::optional<ReferenceSymbols> SymbolsOfPattern(std::span<const int> pattern,
                                                                        std::size_t uiCount, std::size_t samplesPerUi);

/// The symbols of a capture of a pattern, where the pattern correlates best with it, as they are on the line: the levels of
/// an inverted capture (P and N exchanged) are inverted with it.
/// @param capture  a whole number of UI of samplesPerUi samples
/// @param pattern  level of each UI, any rotation
/// @param ignoredUi  [UI] at both ends of the capture that are not looked at
/// @return nothing when the pattern uses fewer than 2 or more than 4 levels, or all of the capture is ignored
TARNWICK_FRAMEWORK_API std::optional<ReferenceSymbols> LocatePattern(std::span<const double> capture,
                                                                     std::span<const int> pattern,
                                                                     std::size_t samplesPerUi,
                                                                     std::size_t ignoredUi = 0);

/// The same for a pattern that is given as its waveform, of held symbols with any spacing of the levels.
/// @param reference  as long as the capture; rotated against it by any amount
/// @return nothing when the reference has fewer than 2 or more than 4 levels
TARNWICK_FRAMEWORK_API std::optional<ReferenceSymbols> LocateReference(std::span<const double> capture,
                                                                       std::span<const double> reference,
                                                                       std::size_t samplesPerUi);

struct EyeClosure {
    double tdecqDb = 0.0;    // above 50 when the eye is closed: then it only ranks
    bool closed = true;      // no noise at all leaves the symbol error ratio
    double oma = 0.0;        // [V]
    double sigma = 0.0;      // [V] largest noise behind the equaliser
    double noiseGain = 0.0;  // C_eq
};

struct ReferenceEqualizer {
    std::vector<double> taps;  // sum 1
    std::size_t cursor = 0;    // the largest tap
    double phaseUi = 0.0;      // of the decision, from the middle of the UI
    EyeClosure closure;
};

/// [UI] by which the phases tried, their time slices and the sample behind them may lie off a symbol's UI. Where ends are
/// ignored, this many more are left out at each.
inline constexpr std::size_t kTdecqReachUi = 2;

/// The closure of a capture behind given taps, at the best of 16 phases.
/// @param symbols    those of the capture
/// @param taps       sum 1; the largest is the cursor
/// @param ignoredUi  [UI] at both ends of the capture that no figure comes from, as behind filters that took it for periodic:
///                   a symbol counts when it and all that its taps see lie kTdecqReachUi within. That the taps reach over is
///                   seen to; what earlier filters reach over is the caller's to say. 0: it wraps round and all of it counts
/// @return closed, and infinite, when no symbol is left
TARNWICK_FRAMEWORK_API EyeClosure MeasureClosure(std::span<const double> capture, const ReferenceSymbols& symbols,
                                                 std::size_t samplesPerUi, std::span<const double> taps,
                                                 std::size_t ignoredUi = 0);

/// The taps of least closure: minimum mean-square error under several noise loads for each cursor and phase, scored by
/// TDECQ, the best of each cursor refined by a simplex search. Of eight channels it ends at most 0.02 dB above the least that a
/// general optimiser finds from ten starts (tests/numbers/tdecq.py).
/// @param cursor     the place of the largest tap; none: the first three are tried
/// @param ignoredUi  as MeasureClosure
/// @return nothing when no taps have their largest where it has to be, or no symbol is left
TARNWICK_FRAMEWORK_API std::optional<ReferenceEqualizer> FindReferenceEqualizer(
    std::span<const double> capture, const ReferenceSymbols& symbols, std::size_t samplesPerUi,
    std::size_t numberOfTaps, std::optional<std::size_t> cursor, std::size_t ignoredUi = 0);

}  // namespace Tarnwick::DSO::Maths
