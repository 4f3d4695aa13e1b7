// Eye diagrams as pictures.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "workbench/eye.h"
#include "workbench/eyeimage.h"

namespace Tarnwick::App {

using DSO::Workbench::EyeImage;
using DSO::Workbench::RangeOf;
using DSO::Workbench::ShadeEye;
using DSO::Workbench::VoltageRange;

struct VoltageUnit {
    double perVolt;
    const char* name;
};

/// The unit that labels a range: mV below half a volt.
VoltageUnit UnitFor(VoltageRange range);

/// Draws a density eye diagram, two UI wide, axes in UI and volts, as a PNG file: an arrow in each opening with its height,
/// and around it, when the report has the bathtub, what is left of it at the target error ratio. The symbol rate and the
/// widths follow the title. Where there are few samples in a UI the waveform is drawn between them as it was measured.
/// @param range  holds all samples
/// @throws DataFailure  as for DrawPng; a sample is not finite
void DrawEye(const std::filesystem::path& path, std::span<const double> samples, double samplesPerUi,
             const DSO::Workbench::EyeReport& report, VoltageRange range, const std::string& title);

/// One eye of a sheet.
struct EyeTile {
    std::string title;
    std::optional<double> openingPercent;  ///< the smallest over its eyes; none: there are none
    EyeImage image;                        ///< without cells: none
    bool isBest;                           ///< drawn in a bright frame
};

/// How the tiles of a sheet are laid out.
struct SheetGrid {
    std::size_t rows;
    std::size_t columns;
    int tileWidth;   ///< [pixels]
    int tileHeight;  ///< [pixels]
};

/// @param columns  0: as many as make the sheet about as wide as high
SheetGrid GridFor(std::size_t tiles, std::size_t columns = 0);

/// An eye in as many cells as a tile of the grid shows, over the range of its own samples.
EyeImage ShadeTile(std::span<const double> samples, double samplesPerUi, double phaseUi, const SheetGrid& grid);

/// Draws small eyes side by side, row by row, all on one voltage scale, as a PNG file.
/// @throws DataFailure  as for DrawPng
void DrawEyeSheet(const std::filesystem::path& path, const SheetGrid& grid, std::span<const EyeTile> tiles,
                  const std::string& title);

}  // namespace Tarnwick::App
