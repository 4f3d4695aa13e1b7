// Whether a capture repeats, and after how many symbols; and which known test pattern its symbols are, which also a part of
// one period tells, though it proves no period of the record.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "framework/export.h"
#include "maths/captures/symbolresponse.h"
#include "maths/patterns/codings.h"
#include "maths/patterns/prbs.h"

namespace Tarnwick::DSO::Maths {

/// Symbols that were found in a capture of a whole number of samples per UI.
struct CapturedSymbols {
    std::span<const double> samples;  // finite, samplesPerUi for each symbol at least
    std::size_t samplesPerUi;         // at least 1
    std::span<const int> symbols;     // 0 the lowest level
    SymbolRange certain;              // those to be trusted: a closed eye leaves a few at either end uncertain
};

/// How a capture agrees with itself a number of symbols later.
struct Repetition {
    std::size_t symbols = 0;  ///< the period; 0: none
    double agreement = 0.0;   ///< share of the symbols that are the same one period later
    /// [unit of the samples] of the waveform less itself one period later; noise of rms s leaves s sqrt 2
    double differenceRms = 0.0;
    /// [unit of the samples] what the symbols -8 .. +8 leave unexplained of stretches of the record, the median of them, or a
    /// thousandth of the span of the samples where that is more
    double noiseRms = 0.0;

    /// At least 99 % of the symbols agree, and the waveforms differ by less than 3 times the noise.
    TARNWICK_FRAMEWORK_API bool Holds() const;
};

/// The shortest period of which the record holds at least two: in O(n log n) by the autocorrelation of the steps between
/// symbols, which long runs of one symbol do not raise, and then symbol by symbol and sample by sample.
/// @return a repetition of 0 symbols where none Holds
TARNWICK_FRAMEWORK_API Repetition FindPeriod(const CapturedSymbols& capture);

/// The share of the trusted symbols that are the same a period later; 0 where no two are so far apart.
/// @param period  [symbols] at least 1
TARNWICK_FRAMEWORK_API double AgreementAt(const CapturedSymbols& capture, std::size_t period);

/// How well a period that is said to be one agrees, of which the record holds more than one.
/// @param period  [symbols] at least 1; with no two trusted symbols so far apart the agreement is 0
TARNWICK_FRAMEWORK_API Repetition CheckPeriod(const CapturedSymbols& capture, std::size_t period);

/// A pseudo-random sequence in the symbols of a capture.
struct KnownPattern {
    PrbsPolynomial polynomial;
    bool isOfBitPairs;   // PAM4: two bits a symbol
    SymbolMap map;       // of bit pairs
    bool highBitFirst;   // of bit pairs
    bool inverted;       // the levels: what is sent high came low. For pairs without Gray coding, and NRZ, the bits too
    bool complemented;   // the bits of Gray-coded pairs, 0 for 1
    std::size_t checks;  // of the recursion
    std::size_t failing;

    /// [symbols] 2^order - 1, of pairs too: they take the sequence twice.
    std::size_t Period() const { return polynomial.Period(); }
    /// As "PRBS15 inverted", "PRBS13Q" or "PRBS13 (x^13+x^12+x^11+x^8+1) by bit pairs, not Gray coded, inverted".
    TARNWICK_FRAMEWORK_API std::string Name() const;
};

/// By the recursion of the polynomial: less than 1 % of its checks fail, and less than 2 % of what would by chance.
/// @param symbols  of two levels, or of four
/// @return nothing for other numbers of levels, or where fewer than 64 checks can be made
TARNWICK_FRAMEWORK_API std::optional<KnownPattern> RecognisePattern(std::span<const int> symbols, int levelCount);

}  // namespace Tarnwick::DSO::Maths
