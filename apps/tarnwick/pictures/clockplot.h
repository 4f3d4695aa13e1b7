// The symbol clock of a capture as pictures.
#pragma once

#include <filesystem>
#include <string>

#include "workbench/lock.h"

namespace Tarnwick::App {

/// Draws the clock's phase over the record, about a constant clock, in seconds where the capture's interval is known, else in
/// samples, as a PNG file; of a tracked clock also what it follows.
/// @param title  the capture's name; the symbol rate follows it
/// @throws DataFailure  as for DrawPng
void DrawClockPhase(const std::filesystem::path& path, const DSO::Workbench::LockedCapture& capture,
                    const std::string& title);

/// Draws the spectrum in which the clock is a line, between the limits of the search, with the line and the least that
/// would be one marked, as a PNG file.
/// @throws DataFailure  as for DrawPng
void DrawClockSpectrum(const std::filesystem::path& path, const DSO::Workbench::LockedCapture& capture,
                       const std::string& title);

}  // namespace Tarnwick::App
