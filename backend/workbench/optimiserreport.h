// What a search for the best equaliser has tried, as text, JSON and a table that a later search reads.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "workbench/optimiser.h"

namespace Tarnwick::DSO::Workbench {

/// "peaking 4.5, FFE 5, DFE 0"
TARNWICK_WORKBENCH_API std::string CaptionOf(const EqualiserPoint& point);

/// The trials in the order of the reports, best first: indices.
TARNWICK_WORKBENCH_API std::vector<std::size_t> BestFirst(const OptimiserResult& result);

/// The trials, best first: a line each.
TARNWICK_WORKBENCH_API std::string OptimisedAsText(const OptimiserResult& result);

/// {"rank", "stopped", "trials": [{"rank", "ctle", "gain", "ffeTaps", "dfeTaps", "figure", "openingPercent", "height",
/// "widthUi", "ber", "worstCapture" of several} or {..., "error"}]}, best first, indented by two. "figure" is the one that ranks, larger is better.
TARNWICK_WORKBENCH_API std::string OptimisedAsJson(const OptimiserResult& result, RankBy rank);

/// The first line of a table of trials: it names the columns and, by a checksum, capture, facts, chain and ranking.
TARNWICK_WORKBENCH_API std::string TrialTableHead(const OptimiserInput& input);
/// One line; figures read back are the same doubles.
TARNWICK_WORKBENCH_API std::string TrialTableRow(const EqualiserTrial& trial);
/// The trials of a table; a last line that is cut off is left out.
/// @param name  the table's, for messages
/// @throws UsageFailure  the table is of other captures, another chain or ranking, or is no such table
TARNWICK_WORKBENCH_API std::vector<EqualiserTrial> ReadTrialTable(std::string_view text, const OptimiserInput& input,
                                                                  const std::string& name);

}  // namespace Tarnwick::DSO::Workbench
