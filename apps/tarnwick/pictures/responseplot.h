// The response of a chain as a picture.
#pragma once

#include <filesystem>
#include <string>

#include "workbench/chainresponse.h"

namespace Tarnwick::App {

/// Magnitude, group delay and impulse response one above the other, one line per filter and a thick one for the whole, as a
/// PNG file.
/// @throws DataFailure  gnuplot is missing or fails; the file is complete or absent
void DrawResponse(const std::filesystem::path& path, const DSO::Workbench::ChainResponse& response,
                  const std::string& title);

/// Measured, target, correction and corrected magnitude relative to DC over frequency, as a PNG file.
/// @throws DataFailure  as DrawResponse
void DrawChannel(const std::filesystem::path& path, const DSO::Workbench::CorrectedChannel& channel,
                 const std::string& title);

}  // namespace Tarnwick::App
