// The runs of a sweep as text and JSON.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/sweep.h"

namespace Tarnwick::DSO::Workbench {

/// Short names by which the axes differ: their last keys, or the whole paths where those are the same.
TARNWICK_WORKBENCH_API std::vector<std::string> ShortNamesOf(std::span<const SweepAxis> axes);

/// "gain 4.5, order 2". Where the names are empty the values stand alone.
TARNWICK_WORKBENCH_API std::string CaptionOf(std::span<const std::string> names, std::span<const std::string> values);

/// A table, best run first, the refused ones with their errors last.
TARNWICK_WORKBENCH_API std::string SweepAsText(std::span<const SweepAxis> axes, std::span<const SweepRun> runs);

/// {"over": [paths], "runs": [{"rank", "values", "eyes", "levels", "phaseUi", "smallestOpeningPercent", "smallestHeight",
/// "smallestWidthUi", "worstCapture" of several, ...} or
/// {"values", "error"}]}, in the same order, indented by two.
TARNWICK_WORKBENCH_API std::string SweepAsJson(std::span<const SweepAxis> axes, std::span<const SweepRun> runs);

}  // namespace Tarnwick::DSO::Workbench
