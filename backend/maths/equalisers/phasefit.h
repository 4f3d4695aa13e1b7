// Taps of a feed-forward equaliser fitted where a receiver samples: once a UI, at one phase, together with the decision
// feedback that follows it.
//     minimise sum_i (sum_j w_j x[q + i s - c_j] + sum_k b_k a_(i-k) + c - a_i)^2
// over the UI i of a record x of s samples a UI, a_i the levels that were sent, c_j the delays of the taps, k = 1 .. K. Each
// phase and each whole delay d is tried, q = phase + d s; the transitions between the symbols, which no slicer sees, do
// not count. Fits that a decision feedback behind them would mistake are left out unless there are no others: those with some
// |b_k| above 1, and those that leave the correlation with the levels inverted. Closed eyes without noise lead to such fits, of
// almost no residual. Columns are rows of samples one UI apart, so that the matrix needs the products of two such
// rows at each lag once: no matrix of samples is built. Source: J. G. Proakis, M. Salehi, "Digital Communications", 5th ed.,
// sections 9.4-4 (fractionally spaced equalisers) and 9.5 (decision feedback).
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

struct PhaseFitProblem {
    std::span<const double> samples;  ///< whole UI, finite
    std::size_t samplesPerUi;         ///< s, at least 1
    std::span<const double> levels;   ///< a: of each UI of the record, lag 0; any rotation of it is tried
    std::vector<int> tapDelays;       ///< c_j [samples], ascending from 0
    std::size_t feedbackTaps = 0;     ///< K
    /// The tap, from 0, that samples symbol i within its own UI and has to be the largest; none: all whole delays d from
    /// -1 to the span of the taps and 1 are tried.
    std::optional<std::size_t> mainCursor = std::nullopt;
    /// [UI] left out at both ends of the record, with the reach of the taps; 0: the record wraps round and all of it counts.
    std::size_t ignoredUi = 0;
    /// Added to the matrix's diagonal, as a share of the mean of it: for ill-posed fits, and only when asked for.
    double ridge = 0.0;
};

struct PhaseFit {
    std::vector<double> taps;      ///< w_j
    std::vector<double> feedback;  ///< b_k: minus what the equaliser leaves of the symbol k UI before
    double constant = 0.0;         ///< c, which is no tap
    double residual = 0.0;         ///< sum of squared errors over that of the levels about their mean
    std::size_t phase = 0;         ///< [samples] 0 to s - 1, from the start of the UI that the correlation finds
    std::size_t instant = 0;       ///< [samples] q mod s: of the first decision from the start of the record
    /// The correlation finds the levels inverted. The taps invert them back: the fit is to the levels as given.
    bool isInverted = false;
    double condition = 1.0;  ///< largest over smallest pivot of the matrix, its columns scaled to one length
};

/// UI that the fit leaves out at either end beyond those ignored: what the taps and the feedback reach over, one for the
/// neighbouring symbol and one for the phase.
TARNWICK_FRAMEWORK_API std::size_t PhaseFitReach(const PhaseFitProblem& problem);

/// @return nothing when the record cannot tell the columns apart at any phase, what is not ignored is too short for it, or
///         the main cursor is nowhere the largest tap
TARNWICK_FRAMEWORK_API std::optional<PhaseFit> FitAtSamplingPhase(const PhaseFitProblem& problem);

}  // namespace Tarnwick::DSO::Maths
