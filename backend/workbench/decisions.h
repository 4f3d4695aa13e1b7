// Decisions behind a decision-feedback equaliser, compared with the symbols that were sent.
#pragma once

#include <cstddef>
#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct DecisionCount {
    std::size_t decisions = 0;  ///< symbols in all whole repetitions of the pattern, but for those ignored
    std::size_t errors = 0;     ///< decisions that differ from the pattern, at the rotation where they are fewest
};

/// Decides equalised samples once a UI. Each repetition of the pattern has levels of its own, with thresholds midway between
/// them; all repetitions share one rotation of the pattern.
/// @param samples       [V] finite values; of less than one repetition nothing is decided
/// @param pattern       level of each UI, 0 the lowest; at least one
/// @param levelCount    2 to 4
/// @param samplesPerUi  real, at least 1
/// @param delay         [samples] of the first decision, 0 to below samplesPerUi
/// @param ignoredUi     [UI] at both ends of the samples that are not counted
TARNWICK_WORKBENCH_API DecisionCount CountDecisions(std::span<const double> samples, std::span<const int> pattern,
                                                    int levelCount, double samplesPerUi, double delay,
                                                    std::size_t ignoredUi = 0);

}  // namespace Tarnwick::DSO::Workbench
