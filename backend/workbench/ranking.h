// What settings are ranked by: one figure of the eyes that they open.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

enum class RankBy {
    Opening,  ///< the smallest opening over the eyes [% of the level distance]
    Height,   ///< the smallest height [V]
    Width,    ///< the smallest width [UI]
    Ber,      ///< the bit error ratio, the smaller the better
    Tdecq,    ///< [dB] the smaller the better
};

/// opening, height, width, ber and tdecq.
TARNWICK_WORKBENCH_API std::vector<std::string> RankNames();
TARNWICK_WORKBENCH_API std::string NameOf(RankBy rank);
/// Nothing for a text that is none of these names.
TARNWICK_WORKBENCH_API std::optional<RankBy> RankOf(std::string_view name);

/// The figure, its sign such that larger is better; -infinity where there is none.
/// @param tdecqDb  read by RankBy::Tdecq alone
TARNWICK_WORKBENCH_API double FigureOf(const EyeReport& report, std::optional<double> tdecqDb, RankBy rank);

/// The smallest over the eyes; -infinity without eyes.
TARNWICK_WORKBENCH_API double SmallestOf(const EyeReport& report, double EyeOpening::*figure);

/// The smallest over the eyes that have the figure; none where no eye has it.
TARNWICK_WORKBENCH_API std::optional<double> SmallestOf(const EyeReport& report,
                                                        std::optional<double> EyeOpening::*figure);

}  // namespace Tarnwick::DSO::Workbench
