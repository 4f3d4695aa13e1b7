// Density eyes: how often the traces of a waveform cross each cell of a picture.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

inline constexpr double kEyeSpanUi = 2.0;  ///< shown from left to right

/// [V] what the picture shows from bottom to top.
struct VoltageRange {
    double low;
    double high;
};

/// The range of all samples with a little room around it: two pictures of the same range compare at a glance.
/// @param samples  at least one
TARNWICK_WORKBENCH_API VoltageRange RangeOf(std::span<const double> samples, std::span<const double> others = {});

/// A density eye, two UI wide with the measuring phase in the middle.
struct EyeImage {
    std::size_t columns;
    std::size_t rows;
    VoltageRange range;
    std::vector<float> shades;  ///< [rows][columns] 0 to 1, the more traces cross a cell the brighter; lowest row first
};

/// The waveform cut into pieces of two UI, drawn over each other as lines from sample to sample.
/// @param range    holds all samples
/// @param columns  even
/// @return an image without cells when a sample is not finite
TARNWICK_WORKBENCH_API EyeImage ShadeEye(std::span<const double> samples, double samplesPerUi, double phaseUi,
                                         VoltageRange range, std::size_t columns, std::size_t rows);

/// The same for a large picture: where there are few samples in a UI, lines between them would be seen as such, and would not
/// be what was measured, so the waveform is read between them as ReadBetween does.
TARNWICK_WORKBENCH_API EyeImage ShadeBetween(std::span<const double> samples, double samplesPerUi, double phaseUi,
                                             VoltageRange range, std::size_t columns, std::size_t rows);

}  // namespace Tarnwick::DSO::Workbench
