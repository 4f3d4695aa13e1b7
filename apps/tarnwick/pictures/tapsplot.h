// The taps of an equaliser and what they do to the pulse response, as a picture.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include "workbench/pulseresponse.h"

namespace Tarnwick::App {

/// The picture of a filter's taps: PREFIX-ffe-2.png.
/// @param type   as in the chain file
/// @param index  of the filter in the file, from 0
std::string TapsPicture(const std::string& prefix, const std::string& type, std::size_t index);

/// Draws the taps as bars over their offset from the main cursor and below them, where it is known, the pulse response in front
/// of the equaliser and behind it on the same axis, with dots at the instants one UI apart, as a PNG file.
/// @throws DataFailure  as for DrawPng; there are no taps
void DrawTaps(const std::filesystem::path& path, const DSO::Workbench::TapFigure& figure, const std::string& title);

}  // namespace Tarnwick::App
