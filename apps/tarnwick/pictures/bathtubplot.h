// Error ratio over the phase of the decision as a picture.
#pragma once

#include <filesystem>
#include <span>
#include <string>

#include "workbench/eye.h"

namespace Tarnwick::App {

struct BathtubCurve {
    std::string name;
    DSO::Workbench::EyeReport eye;  ///< with its bathtub; without one the curve is left out
};

/// Draws bit error ratios over the phase from the measuring phase, on a logarithmic axis down to 1e-15, with a line at the
/// target ratio, as a PNG file.
/// @throws DataFailure  as for DrawPng; no curve has a bathtub
void DrawBathtub(const std::filesystem::path& path, std::span<const BathtubCurve> curves, const std::string& title);

}  // namespace Tarnwick::App
