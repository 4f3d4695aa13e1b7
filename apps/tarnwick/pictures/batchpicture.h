// The eye behind the chain, for each capture of a batch.
#pragma once

#include <filesystem>
#include <string>

#include "workbench/batch.h"

namespace Tarnwick::App {

/// Where the picture of a capture goes: folder/NAME.png.
/// @param name  what the capture's outputs are called, without ending
std::filesystem::path BatchPictureFile(const std::filesystem::path& folder, const std::string& name);

/// What draws each capture of a batch into its BatchPictureFile, by DrawEye. May be called on any thread.
DSO::Workbench::BatchPicture BatchPictureIn(const std::filesystem::path& folder);

}  // namespace Tarnwick::App
