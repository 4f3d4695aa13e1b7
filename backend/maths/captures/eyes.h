// The eyes of a multilevel signal whose symbols are known or decided: openings, levels and widths. The waveform is read at 64
// phases a UI; symbols, not voltages, say on which side of an eye a sample belongs, so that a closed eye has a negative
// height. Of eye k at phase p, over the symbols i of levels a_i:
//     height = min {x_i(p): a_i > k} - max {x_i(p): a_i <= k},  opening = height / (mean of level k + 1 - mean of level k)
// The measuring phase is where the smallest opening is largest, resolved to an eighth of a phase. The width is the span of
// phases about it in which no sample crosses the middle between the two samples of the height there, which is what a
// slicer with a fixed threshold sees. At one sample a UI there is no phase but the samples', and no width. Sources:
// IEEE 802.3 clauses 120D.3.1 (levels) and 120E.4.2 (eye openings).
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/captures/symbolresponse.h"

namespace Tarnwick::DSO::Maths {

inline constexpr std::size_t kEyePhases = 64;  // a UI

/// A record and the part of it that may be measured.
struct EyeRecord {
    std::span<const double> samples;  ///< [V] finite, at least one
    double samplesPerUi;              ///< real, at least 1
    int levelCount;                   ///< at least 2
    std::size_t first;                ///< [samples] of the valid part
    std::size_t count;                ///< [samples] in it
    Wrapping wrapping;                ///< Circular: whole periods, all of them valid

    /// Whole UI in the record.
    TARNWICK_FRAMEWORK_API std::size_t UiCount() const;
};

/// All of a record of whole periods.
TARNWICK_FRAMEWORK_API EyeRecord WholePeriods(std::span<const double> samples, double samplesPerUi, int levelCount);

/// The symbols of a record, and where they lie in it.
struct AlignedSymbols {
    std::vector<int> levels;  ///< of each UI, 0 the lowest
    double centre = 0.0;      ///< [samples] 0 to below a UI: symbol i is in sight at centre + i samplesPerUi
    SymbolRange known;        ///< the UI that have a level
};

/// Decides the symbols from the samples, at the phase where their levels stand farthest apart; an eye that is closed
/// everywhere has wrong decisions, which flatter it.
/// @return nothing when at no phase the samples fall into that many levels
TARNWICK_FRAMEWORK_API std::optional<AlignedSymbols> DecideSymbols(const EyeRecord& record);

/// Finds a known pattern in the record, where the two correlate best.
/// @param pattern  level of each UI of one period, any rotation; it is repeated to the end of the record
/// @return nothing when the record is shorter than the pattern, or correlates with it by less than 0.3: of random symbols
///         and a wrong pattern of 127 UI that is what may come by chance
TARNWICK_FRAMEWORK_API std::optional<AlignedSymbols> LocateSymbols(const EyeRecord& record,
                                                                   std::span<const int> pattern);

struct Eye {
    double height;     ///< [V] at the measuring phase; negative: closed
    double opening;    ///< height over the distance of the two levels
    double threshold;  ///< [V] middle between the two samples of the height
    double widthUi;    ///< [UI] 0 to 1
    double leftUi;     ///< [UI] where the width begins, from the measuring phase
    double rightUi;    ///< [UI] where it ends; both 0 of a closed eye
};

/// One value a UI.
struct PhaseValues {
    std::vector<double> values;  ///< [V] of each UI of the record; 0 outside the range
    SymbolRange range;           ///< the UI whose value the valid part holds
};

struct EyeFigures {
    std::vector<double> levels;  ///< [V] means at the measuring phase, lowest first
    std::vector<Eye> eyes;       ///< one fewer
    double position;     ///< [samples] of symbol 0 at the measuring phase; may lie a UI before or behind the record
    PhaseValues values;  ///< there, of the UI whose symbols are known
};

/// In one pass over the record. The phases looked at reach from a UI before the symbols' centre to a UI behind it.
/// @return nothing when a level has no symbols in the valid part, or at no phase the levels' means ascend
TARNWICK_FRAMEWORK_API std::optional<EyeFigures> MeasureEyes(const EyeRecord& record, const AlignedSymbols& symbols);

/// The UI whose values from a position on are valid; all of a record that wraps.
/// @param position  [samples] of symbol 0
/// @param span      [samples] beyond it
TARNWICK_FRAMEWORK_API SymbolRange ValidUi(const EyeRecord& record, double position, double span);

/// @param position  [samples] of symbol 0
TARNWICK_FRAMEWORK_API PhaseValues ValuesAt(const EyeRecord& record, double position);

/// At several positions in one pass over the record.
/// @param positions  [samples] of symbol 0, ascending
TARNWICK_FRAMEWORK_API std::vector<PhaseValues> ValuesAt(const EyeRecord& record, const AlignedSymbols& symbols,
                                                         std::span<const double> positions);

/// The same of the UI whose symbols are known.
TARNWICK_FRAMEWORK_API PhaseValues ValuesAt(const EyeRecord& record, const AlignedSymbols& symbols, double position);

}  // namespace Tarnwick::DSO::Maths
