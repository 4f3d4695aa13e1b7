// Density eyes as whole numbers: how many traces of a waveform cross each cell, for reports in which a cell can be read and the
// hits within a mask be counted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/eye.h"
#include "workbench/eyeimage.h"

namespace Tarnwick::DSO::Workbench {

/// Two UI wide with the measuring phase in the middle: column c begins at (c / columns - 1/2) kEyeSpanUi from it, row r at
/// low + r (high - low) / rows, the lowest first.
struct EyeCounts {
    std::size_t columns = 0;
    std::size_t rows = 0;
    VoltageRange range = {0.0, 0.0};
    std::vector<std::uint32_t> hits = {};  ///< [rows][columns]
};

struct EyeGrid {
    std::size_t columns;  ///< even, at least 2
    std::size_t rows;     ///< at least 1
};

/// A trace is the waveform of one UI; each is drawn in the left and in the right half. It hits a cell once, however long it stays
/// there. Where there are few samples in a UI, the waveform is read between them as ReadBetween does; what then leaves
/// the range hits nothing.
/// @param range  holds all samples
/// @return counts without cells when a sample is not finite
TARNWICK_WORKBENCH_API EyeCounts CountEye(std::span<const double> samples, double samplesPerUi, double phaseUi,
                                          VoltageRange range, EyeGrid grid);

/// This many eyes, each of this many traces, on a grid fine enough to look at and coarse enough for one report to hold them all.
TARNWICK_WORKBENCH_API EyeGrid GridForReport(std::size_t eyes, std::size_t traces);

/// The small eyes of a table's rows as they are measured: of all rows, or of those that matter most.
class TARNWICK_WORKBENCH_API RowEyes {
public:
    enum class Keep { Best, Worst };
    struct Eye {
        double figure;
        EyeReport report;  ///< without its bathtub
        EyeCounts counts;
    };

    /// @param rows  that there will be at most
    RowEyes(std::size_t rows, Keep keep);

    /// On any thread. A row that is measured on several captures keeps the eye with the smallest figure.
    /// @param row      what names it
    /// @param figure   larger is better
    /// @param samples  [V] the valid ones, from the start of a UI on
    void Add(const std::string& row, double figure, const EyeReport& report, std::span<const double> samples,
             double samplesPerUi);
    /// Null: none was added, or others mattered more.
    const Eye* Find(const std::string& row) const;

private:
    bool IsToMakeWay(double figure) const;

    std::size_t kept_;
    Keep keep_;
    std::map<std::string, Eye> eyes_;  // by row
    std::mutex mutex_;
};

}  // namespace Tarnwick::DSO::Workbench
