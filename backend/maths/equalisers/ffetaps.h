// Tap finding for a feed-forward equaliser: least squares against an ideal copy of the captured pattern.
//     minimise sum_i (sum_j w_j x[i - c_j] - y[i - e])^2
// over one or more whole periods, or over a stretch of their rows i, x the capture, y the reference, c_j the delays of
// the taps, e a candidate delay of the reference. Every column of the regression is a rotation of one record: X'X needs
// the capture's autocorrelation at the differences of the taps' delays, X'Y its correlation with the reference at the
// differences to e, and the residual of a candidate is y'y - (X'Y)' w. No matrix of samples is built. Source:
// J. G. Proakis, "Digital Communications", minimum mean-square error equalisation.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Delays of `numberOfTaps` taps [samples]: j samplesPerUi / tapsPerUi, multiplied first, without the fraction.
TARNWICK_FRAMEWORK_API std::vector<int> TapDelays(int numberOfTaps, int samplesPerUi, int tapsPerUi);

/// Candidate delays of the reference [samples], a quarter of a tap apart, nearest to the middle of the taps first:
/// o samplesPerUi / (4 tapsPerUi) + (numberOfTaps samplesPerUi / tapsPerUi) / 2 for o = 0, -1, 1, -2, 2, .., an odd
/// number of at least 4 numberOfTaps, or 7 in a narrow search. Divisions drop the fraction.
TARNWICK_FRAMEWORK_API std::vector<int> CandidateDelays(int numberOfTaps, int samplesPerUi, int tapsPerUi, bool narrow);

/// Consecutive rows of a regression over a circular record.
struct RowStretch {
    long long first;
    std::size_t count;
};

struct TapSolution {
    std::vector<double> taps;
    std::size_t candidate = 0;  ///< index of the delay chosen; the first of equal ones
    double residual = 0.0;      ///< sum of squared errors over that of the reference
};

/// @param tapDelays        c_j
/// @param referenceDelays  the candidates e
/// @param rows             the i that count; none: all
/// @return nothing when the capture cannot tell the taps apart (the system is singular to working precision)
TARNWICK_FRAMEWORK_API std::optional<TapSolution> SolveTaps(std::span<const double> capture,
                                                            std::span<const double> reference,
                                                            std::span<const int> tapDelays,
                                                            std::span<const int> referenceDelays,
                                                            std::optional<RowStretch> rows = std::nullopt);

/// Error of taps of about 1 against those of the matrices of samples, for captures correlated like held symbols: both solve
/// one system, whose condition is then below 1e3.
inline constexpr double kFfeTapError = 1e-12;

}  // namespace Tarnwick::DSO::Maths
