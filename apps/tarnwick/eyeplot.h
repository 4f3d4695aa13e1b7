// Eye diagrams as pictures.
#pragma once

#include <filesystem>
#include <span>
#include <string>

#include "eye.h"

namespace Tarnwick::App {

/// Draws a density eye diagram, two UI wide, axes in UI and volts, the eye heights written in, as a PNG file.
/// @throws DataFailure  gnuplot is missing or fails; the file is complete or absent
void DrawEye(const std::filesystem::path& path, std::span<const double> samples, double samplesPerUi,
             const EyeReport& report, const std::string& title);

}  // namespace Tarnwick::App
