// Eye diagrams as pictures.
#pragma once

#include <filesystem>
#include <span>
#include <string>

#include "eye.h"

namespace Tarnwick::App {

/// [V] what the picture shows from bottom to top.
struct VoltageRange {
    double low;
    double high;
};

/// The range of all samples with a little room around it: two pictures of the same range compare at a glance.
VoltageRange RangeOf(std::span<const double> samples, std::span<const double> others = {});

/// Draws a density eye diagram, two UI wide, axes in UI and volts, the eye heights written in, as a PNG file.
/// @param range  holds all samples
/// @throws DataFailure  gnuplot is missing or fails; the file is complete or absent
void DrawEye(const std::filesystem::path& path, std::span<const double> samples, double samplesPerUi,
             const EyeReport& report, VoltageRange range, const std::string& title);

}  // namespace Tarnwick::App
