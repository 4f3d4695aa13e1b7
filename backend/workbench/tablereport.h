// Tables with an eye a row: the runs of a sweep, the trials of a search, the captures of a batch.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "framework/export.h"
#include "workbench/batch.h"
#include "workbench/eyecounts.h"
#include "workbench/optimiser.h"
#include "workbench/sweep.h"

namespace Tarnwick::DSO::Workbench {

struct TableReport {
    struct Column {
        std::string key;  ///< unique
        std::string label;
        std::string unit;
        bool isNumber = true;
    };
    using Value = std::variant<std::monostate, double, std::string>;  ///< the first: not known
    struct Row {
        std::string label;  ///< that names it by itself
        std::vector<Value> values;
        std::string failure;                ///< why it has no figures; empty: it succeeded
        const RowEyes::Eye* eye = nullptr;  ///< null: none was kept
        double symbolRateGBd = 0.0;         ///< of its own capture; 0: not known
    };
    std::vector<Column> columns;
    std::vector<Row> rows;
    std::vector<std::string> notes;  ///< for the user
};

/// What names a run in RowEyes.
inline std::string RowOf(std::size_t run)
{
    return std::to_string(run);
}

/// The runs best first, then those that failed.
/// @param eyes  by RowOf; outlives the table
TARNWICK_WORKBENCH_API TableReport TableOf(std::span<const SweepAxis> axes, std::span<const SweepRun> runs,
                                           const RowEyes& eyes);

/// The trials best first, then those that failed.
/// @param eyes  by CaptionOf the point; outlives the table
TARNWICK_WORKBENCH_API TableReport TableOf(const OptimiserResult& result, const RowEyes& eyes);

/// The captures in their order.
/// @param eyes  by capture; outlives the table
TARNWICK_WORKBENCH_API TableReport TableOf(std::span<const BatchRow> rows, const RowEyes& eyes);

}  // namespace Tarnwick::DSO::Workbench
