// The transmission of an S-parameter file as a picture.
#pragma once

#include <filesystem>
#include <span>
#include <string>

#include "workbench/fixturefile.h"

namespace Tarnwick::App {

/// Magnitude and group delay one above the other, as a PNG file.
/// @param curves  at least one, each of one value or more
/// @throws DataFailure  gnuplot is missing or fails; the file is complete or absent
void DrawTransmission(const std::filesystem::path& path, std::span<const DSO::Workbench::TransmissionCurve> curves,
                      const std::string& title);

}  // namespace Tarnwick::App
