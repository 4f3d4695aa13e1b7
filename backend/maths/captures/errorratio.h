// The bit error ratio of a slicer, and what noise leaves of an eye. At one phase the values x_i of the symbols are split into
// what the symbols explain, m_i, and Gaussian noise of rms sigma. Of eye k with threshold t, over N symbols of levels a_i,
//     above(t) = 1/N sum {Q((m_i - t)/sigma): a_i > k},   below(t) = 1/N sum {Q((t - m_i)/sigma): a_i <= k}
//     error ratio = sum_k (above(t_k) + below(t_k)) / bits a symbol,   Q(z) = erfc(z / sqrt 2) / 2
// An eye's height at a ratio lies between the thresholds at which either side alone reaches it. Without noise the sums count
// the symbols on the wrong side: an open eye has ratio 0 and its own height. Source: J. G. Proakis, M. Salehi, "Digital
// Communications", 5th ed., sections 4.3 and 9.3; N. S. Bergano et al., "Margin measurements in optical amplifier systems",
// IEEE Photonics Technology Letters 5 (1993) 304-306 (Q of an eye).
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/captures/eyes.h"
#include "maths/captures/symbolresponse.h"

namespace Tarnwick::DSO::Maths {

/// From this many repetitions of a pattern on, their mean is taken for what the symbols explain.
inline constexpr std::size_t kFewestRepetitions = 4;

struct NoiseSplit {
    std::vector<double> explained;  ///< [V] m_i of the symbols of the range
    SymbolRange range;              ///< the symbols that were split; where all repetitions are alike, those of one
    double residualRms = 0.0;       ///< [V] sigma: the mean of the repetitions carries the part that it lacks
    double noiseRms = 0.0;          ///< [V] of the noise itself
    bool byRepetitions = false;
};

/// Splits the values of one pattern at any number of phases; what is the pattern's alone is found once.
class TARNWICK_FRAMEWORK_API NoiseSplitter {
public:
    /// @param levels  of each UI
    /// @param period  [UI] that the symbols are proven to repeat after; 0: none is
    NoiseSplitter(std::span<const int> levels, Wrapping wrapping, std::size_t period);
    // The fit refers to the levels.
    NoiseSplitter(const NoiseSplitter&) = delete;
    NoiseSplitter& operator=(const NoiseSplitter&) = delete;

    /// As SplitNoise.
    NoiseSplit Of(const PhaseValues& phase);

private:
    NoiseSplit SplitBySymbols(const PhaseValues& phase);
    NoiseSplit SplitByRepetitions(const PhaseValues& phase, std::size_t repetitions) const;

    std::vector<double> sent_;
    Wrapping wrapping_;
    std::size_t period_;
    SymbolRange fitted_{};  // the range of values that fit_ is for
    std::optional<SymbolFit> fit_;
    bool areAlike_ = false;  // all repetitions of the symbols
};

/// The mean of the repetitions of the pattern where the values hold four or more of them, otherwise least squares on the
/// levels of the symbols from 8 before to 8 behind and a constant; what symbols farther off do then counts as noise.
/// @param levels  of each UI
/// @param period  [UI] that the symbols are proven to repeat after; 0: none is
TARNWICK_FRAMEWORK_API NoiseSplit SplitNoise(const PhaseValues& phase, std::span<const int> levels, Wrapping wrapping,
                                             std::size_t period);

/// The wrong side of a threshold. Explained values are gathered in bins of sigma/16 at the mean of their bin, because a tail
/// for each of a million symbols would take too long: a ratio of 1e-9 is right to 2 %, one of 1e-3 to 0.5 %.
class TARNWICK_FRAMEWORK_API WrongSide {
public:
    /// @param values  at least one
    /// @param sigma   0 or more
    /// @param total   N, symbols of all levels
    WrongSide(std::vector<double> values, double sigma, std::size_t total);
    /// 1/N sum Q((v - t)/sigma): 0 far below the values, their share of the symbols far above.
    double Beyond(double threshold) const;
    /// The threshold at which it reaches the ratio; without noise the smallest value.
    /// @param ratio  above 0; one that the values never reach counts as reached 9 sigma beyond the largest
    double ThresholdAt(double ratio) const;

private:
    double Beyond(double threshold, double reach) const;  // reach [sigma]: values farther above count nothing
    void Append(double mean, double count);
    std::vector<double> means_;           // of the bins that hold values, ascending
    std::vector<double> counts_;          // as many
    std::vector<double> before_ = {0.0};  // values in the bins before each, and in all
    double sigma_;
    double total_;
};

/// A ratio that noise leaves is at least this, the smallest normal double: tails beyond 37 sigma are smaller.
inline constexpr double kLeastRatio = std::numeric_limits<double>::min();

/// Error ratios at one phase.
class TARNWICK_FRAMEWORK_API ErrorRatios {
public:
    /// @param levels      of each UI of the record; every level below levelCount occurs in the split's range
    ErrorRatios(const NoiseSplit& split, std::span<const int> levels, int levelCount);
    /// @param thresholds  of each eye
    /// @return of bits, which carry 1, log2 3 and 2 a symbol of two, three and four levels; Gray coding, or one wrong bit a
    ///         wrong symbol in any case. 0 only without noise and with every symbol on its side: what noise leaves below
    ///         kLeastRatio is given as that
    double OfBits(std::span<const double> thresholds) const;
    struct Opening {
        double low;   ///< [V]
        double high;  ///< [V] below low: the eye is closed at that ratio
    };
    Opening At(std::size_t eye, double ratio) const;

private:
    int levelCount_;
    double least_;                  // that noise leaves
    std::vector<WrongSide> above_;  // of each eye
    std::vector<WrongSide> below_;  // of each eye, of negated values
};

/// Distance of the means of two neighbouring levels over the sum of the rms of their values about them, of each eye;
/// infinite without any spread.
TARNWICK_FRAMEWORK_API std::vector<double> QFactors(const PhaseValues& phase, std::span<const int> levels,
                                                    int levelCount);

}  // namespace Tarnwick::DSO::Maths
