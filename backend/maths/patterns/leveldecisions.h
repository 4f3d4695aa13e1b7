// Which level each symbol has, from one sample a UI with those of the UI about it. Open eyes: by the thresholds between the
// levels that the samples lie about (levels.h). For closed ones a short linear equaliser is fitted to the decisions by least
// squares, and new decisions are made behind it, until none of them changes.
//     y_i = sum_d w_d x_(i+d) + c,   d = -3 .. 3
// Source: J. G. Proakis, M. Salehi, "Digital Communications", 5th ed., section 10.1 (decision-directed equalisation).
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Above this quality the samples hold no pattern of that many levels; white noise has about 0.14.
inline constexpr double kWorstQuality = 0.05;

/// Whether symbols are decided from the samples themselves or behind a linear equaliser.
enum class Decisions { AsSampled, Equalised };

inline constexpr std::size_t kEqualiserReachUi = 3;
inline constexpr std::size_t kEqualiserTaps = 2 * kEqualiserReachUi + 1;

/// Samples with their neighbours: kEqualiserTaps columns of as many rows, the samples themselves in the middle column.
/// They had better be free of their mean: a large offset swamps what the other columns say.
class TARNWICK_FRAMEWORK_API NeighbourColumns {
public:
    /// From one sample per UI round a period, at least one.
    explicit NeighbourColumns(std::span<const double> period);
    /// From stretches of a record, one after the other in rows: rows first .. first + count - 1 of its UI.
    struct Stretch {
        std::size_t first, count;
    };
    /// @param values    a sample a UI
    /// @param stretches kEqualiserReachUi UI or more from either end
    NeighbourColumns(std::span<const double> values, std::span<const Stretch> stretches);

    std::size_t Rows() const { return rows_; }
    std::span<const double> Column(std::size_t tap) const { return {columns_.data() + tap * rows_, rows_}; }
    std::span<const double> Samples() const { return Column(kEqualiserReachUi); }
    const double* Data() const { return columns_.data(); }

private:
    std::size_t rows_;
    std::vector<double> columns_;
};

struct LevelDecisions {
    std::vector<int> levels;  ///< of each row, 0 the lowest; empty when the samples do not show as many levels
    /// Mean squared distance of the decided values from their level, over the square of the smallest level spacing.
    double quality = std::numeric_limits<double>::infinity();
    std::vector<double> thresholds;                   ///< between the levels, for y
    std::vector<double> means;                        ///< of y, level by level
    std::array<double, kEqualiserTaps> weights = {};  ///< w, from the earliest neighbour on; a single 1 as sampled
    double constant = 0.0;                            ///< c
};

/// @param levelCount  at least 2; see PartitionIntoLevels
TARNWICK_FRAMEWORK_API LevelDecisions DecideLevels(const NeighbourColumns& columns, int levelCount,
                                                   Decisions decisions);

}  // namespace Tarnwick::DSO::Maths
