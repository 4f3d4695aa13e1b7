// The symbols decided behind a decision-feedback equaliser, held against the pattern's.
#pragma once

#include <cstddef>
#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct DecisionCount {
    std::size_t decisions = 0;  ///< symbols of all whole repetitions of the pattern
    std::size_t errors = 0;     ///< those that are not the pattern's, at the rotation where they are fewest
};

/// Decides equalised samples once a UI, each repetition of the pattern by levels of its own, with thresholds midway
/// between them. One rotation of the pattern holds for all repetitions.
/// @param samples       [V] finite values; where less than one repetition, nothing is decided
/// @param pattern       level of each UI, 0 the lowest; at least one
/// @param levelCount    2 to 4
/// @param samplesPerUi  real, at least 1
/// @param delay         [samples] of the first decision, 0 to below samplesPerUi
TARNWICK_WORKBENCH_API DecisionCount CountDecisions(std::span<const double> samples, std::span<const int> pattern,
                                                    int levelCount, double samplesPerUi, double delay);

}  // namespace Tarnwick::DSO::Workbench
