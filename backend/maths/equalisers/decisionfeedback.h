// Decision feedback: takes off what earlier symbols leave in a symbol, as known from the decisions made on them.
//     y_i = s_i - sum_j t_j (V(d_(i-j)) - mid),  d_i the level nearest to y_i
// s_i is the sample of UI i, t_j the response j UI after the main cursor over that at the main cursor, V the voltages of
// the levels and mid the mean of the outermost two. Everything is circular over a repetition of the pattern.
// Source: J. G. Proakis, M. Salehi, "Digital Communications", 5th ed., section 9.5; the taps' scale as in IEEE 802.3
// Annex 93A.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// A sampling delay of k samples in picoseconds, from which SamplesFromDelay gives exactly k again:
///     t = k 1000 / (samplesPerUi baudRateGBd), or the next double above it for which it does
/// Except at rates so high or so low that the time or the product leaves the range of normal doubles.
TARNWICK_FRAMEWORK_API double DelayFromSamples(int samples, int samplesPerUi, double baudRateGBd);

/// A sampling delay [ps] in samples: 0.001 t baudRateGBd samplesPerUi, its fraction dropped.
TARNWICK_FRAMEWORK_API double SamplesFromDelay(double delayPs, int samplesPerUi, double baudRateGBd);

/// How the UIs of a repetition lie in its samples.
struct UiGrid {
    std::size_t symbols;  ///< at least 1
    double samplesPerUi;  ///< s, at least 1; need not be whole
};

/// UI that a search leaves out at either end beyond those ignored: those whose feedback is of symbols that are ignored, and one
/// for the delay.
constexpr std::size_t FeedbackReach(int tapCount)
{
    return static_cast<std::size_t>(tapCount) + 1;
}

struct FeedbackSearch {
    enum class Outcome {
        Found,
        SymbolsAlike,     ///< the pattern cannot tell that many taps apart
        NoMainCursor,     ///< at no delay do the samples follow the symbols
        TapsAboveCursor,  ///< they do, but everywhere a tap is larger than the main cursor
    };
    Outcome outcome = Outcome::NoMainCursor;
    int delay = 0;             ///< [samples] from the start of the record to the first decision, below s
    std::vector<double> taps;  ///< over the main cursor
    double residual = 0.0;     ///< rms of what the fit leaves, over the main cursor
    double opening = 0.0;      ///< of the smallest eye behind the feedback of the known symbols, over an ideal one
    double largestTap = 0.0;   ///< the largest |t_j| of the alignment where it is smallest
};

/// The delay in the middle of the eye that feedback opens, and its taps. For each whole delay within a UI the samples are
/// fitted by
///     s_i = h_0 v_(i+q) + h_1 v_(i+q-1) + .. + h_n v_(i+q-n) + offset,  t_j = h_j / h_0
/// with the rotation q from the correlation with the held symbols and with its two neighbours; that of the smallest residual
/// over h_0 is taken, the lowest one of those equal to 1e-9, among those with every |t_j| <= 1 (a pre-cursor is not a main
/// cursor). v changes its sign where the record is inverted. The feedback is held for half a UI to either side of the
/// decision, so the delay is the middle of the longest circular run of delays whose opening is within 0.05 of the largest;
/// of two middles the later one, unless the earlier is more open by 0.01.
/// @param samples       one repetition of finite values
/// @param symbols       v, a value for each UI, evenly spaced from -1 to 1
/// @param samplesPerUi  s, at least 1
/// @param tapCount      n, at most symbols.size() - 2
/// @param ignoredUi     [UI] at both ends of the repetition that neither alignment, fit, residual nor opening come from;
///                      0: it wraps round and all of it counts
/// @return NoMainCursor as well when nothing is left that is not ignored
TARNWICK_FRAMEWORK_API FeedbackSearch FindFeedback(std::span<const double> samples, std::span<const double> symbols,
                                                   double samplesPerUi, int tapCount, std::size_t ignoredUi = 0);

/// The equaliser, with buffers that are allocated once for any number of repetitions.
class TARNWICK_FRAMEWORK_API DecisionFeedback {
public:
    static constexpr int kMostLevels = 4;
    static constexpr int kMostPasses = 8;

    /// @param taps        t_1 .. t_n
    /// @param levelCount  2 to kMostLevels
    DecisionFeedback(std::span<const double> taps, int levelCount, UiGrid grid);

    /// Decides and equalises one repetition in up to kMostPasses passes, until no decision changes. The levels start evenly
    /// spaced, as far apart as the variance of the samples says less the taps' share of it; after each pass they are the
    /// means of the values decided for them. The feedback of the first UIs comes from the last decisions of the pass before.
    /// @param samples  the repetition; samples beyond it continue the pattern
    /// @param delay    [samples] of the first decision, 0 to below s + 1
    /// @param result   as many values: each sample less the feedback of the decision that is half a UI or less away
    void Equalise(std::span<const double> samples, double delay, std::span<double> result);

    /// In the last repetition: the level of each UI, 0 the lowest, and the voltages of the levels.
    std::span<const int> Decisions() const { return decided_; }
    std::span<const double> Levels() const { return levels_; }
    int Passes() const { return passes_; }

private:
    void StartLevels();
    bool Pass();
    void RefreshLevels();

    UiGrid grid_;
    std::vector<double> taps_;  // the tap of the oldest symbol first
    double tapPower_ = 0.0;
    std::vector<double> levels_;
    std::vector<double> sampled_;
    std::vector<double> feedback_;
    std::vector<double> past_;  // V(d) - mid of the last taps_.size() symbols before the repetition, then of its own
    std::vector<int> decided_;
    int passes_ = 0;
};

/// Error of the taps on lines of known echoes without noise, behind a front end of three quarters of the symbol rate, whose
/// own echoes at the instant are most of it.
inline constexpr double kDfeTapError = 0.01;

}  // namespace Tarnwick::DSO::Maths
