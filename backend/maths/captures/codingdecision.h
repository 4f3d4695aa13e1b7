// Which line coding a capture carries, and its symbols, from the samples alone. For two, three and four levels the symbols
// are decided behind a short linear equaliser (leveldecisions.h) at each of several phases of the UI, and the tightest phase
// counts. Interference makes of NRZ what lies about three or four levels more tightly than about two; but then the levels
// follow each other as the echoes dictate. So a coding is ruled out when some pair of neighbouring symbols occurs less than a
// tenth as often as by chance. Among the rest, the fewest levels win whose quality is within a factor of 1.5 of the best.
#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"
#include "maths/captures/symbolresponse.h"

namespace Tarnwick::DSO::Maths {

/// How well the symbols of one coding explain a capture.
struct CodingFit {
    E_SIGNAL_CODING coding = SIGNAL_CODING_UNKNOWN;
    /// At its best phase: mean squared distance from the levels over the square of their smallest spacing. Infinite where
    /// not as many levels can be seen.
    double quality = std::numeric_limits<double>::infinity();
    /// How often the scarcest pair of neighbouring symbols comes, over how often chance would have it; 1 where the symbols
    /// are too few to say.
    double scarcestPair = 1.0;

    TARNWICK_FRAMEWORK_API bool IsPossible() const;  ///< the quality is at most kWorstQuality
    TARNWICK_FRAMEWORK_API bool LacksPairs() const;  ///< the scarcest pair says that its levels are interference
};

struct CodingDecision {
    /// SIGNAL_CODING_UNKNOWN: no levels can be made out, and only `fits` says anything.
    E_SIGNAL_CODING coding = SIGNAL_CODING_UNKNOWN;
    std::vector<int> symbols;    ///< level of each UI, 0 the lowest
    std::vector<double> levels;  ///< [unit of the samples] mean sample of each level at the phase, lowest first
    std::size_t phase = 0;       ///< [samples] symbol i is that of the sample i samplesPerUi + phase
    /// As in CodingFit, over all of the symbols. Below 0.01 the thresholds are five times as far as the rms distance.
    double quality = std::numeric_limits<double>::infinity();
    /// This many symbols at either end of a record that does not wrap were decided without all of their neighbours, in whose
    /// place stood the nearest ones.
    std::size_t uncertainEnds = 0;
    /// Some pair of neighbours hardly comes in any possible coding, as in a clock pattern or a code that avoids some steps:
    /// the fewest levels were taken, and may be wrong.
    bool lacksPairs = false;
    std::vector<CodingFit> fits;  ///< of every coding that was tried: NRZ, PAM3, PAM4, or the one given
};

/// Takes time and memory in proportion to the record: the phases and codings are judged by at most 8192 symbols from all
/// over it, and only the decision is carried through.
/// @param samples       finite
/// @param samplesPerUi  at least 1. What is left of the samples after the last whole UI is left out
/// @param given         the coding, where it is known; SIGNAL_CODING_UNKNOWN where it is to be found
/// @return a decision without coding or symbols also where the record has fewer than 16 UI or is constant
TARNWICK_FRAMEWORK_API CodingDecision DecideCoding(std::span<const double> samples, std::size_t samplesPerUi,
                                                   Wrapping wrapping, E_SIGNAL_CODING given = SIGNAL_CODING_UNKNOWN);

/// Symbols that should be the same agree in at least this share.
inline constexpr double kLeastAgreement = 0.99;

/// How symbols that are said to be in a capture lie in it.
struct SymbolAgreement {
    double share = 0.0;     ///< of the symbols found that are the given ones, 0 to 1
    std::size_t shift = 0;  ///< found symbol i is given symbol (i + shift) mod count
    bool inverted = false;  ///< the given ones come with the highest level lowest
};

/// Where a pattern, repeated without end, agrees best with the symbols found. A share below kLeastAgreement contradicts it.
/// @param found       levels below levelCount, at least one
/// @param given       one repetition, at least one
/// @param levelCount  at least 2
TARNWICK_FRAMEWORK_API SymbolAgreement CompareSymbols(std::span<const int> found, std::span<const int> given,
                                                      int levelCount);

}  // namespace Tarnwick::DSO::Maths
