// Pictures drawn by gnuplot, all of one look.
#pragma once

#include <filesystem>
#include <string>

namespace Tarnwick::App {

/// Whether gnuplot is there.
bool HasGnuplot();

/// Draws a picture as a PNG file on a dark background.
/// @param width, height  [pixels]
/// @param script  gnuplot's commands, inline binary data among them; without those that set the terminal and the output
/// @throws DataFailure  the name or its directory takes no file, gnuplot is missing or fails; the file is complete or absent
void DrawPng(const std::filesystem::path& path, int width, int height, const std::string& script);

/// A text as a script quotes it. Control characters, which gnuplot refuses, become blanks; its text markup is off in these
/// pictures.
std::string Quoted(const std::string& text);

/// Commands that colour border, tics, grid, title and axis labels.
std::string Theme();

}  // namespace Tarnwick::App
