// An S-parameter file's description as text, JSON and columns.
#pragma once

#include <span>
#include <string>

#include "framework/export.h"
#include "workbench/fixturefile.h"

namespace Tarnwick::DSO::Workbench {

/// What the file holds, how the filter reads it and a table of a few values.
/// @param name  the file's
TARNWICK_WORKBENCH_API std::string FixtureAsText(const FixtureFile& file, const std::string& name);

/// The same as JSON, indented by two, with up to 10000 differences.
/// @param normalised  name of the file that was written anew; empty: none
TARNWICK_WORKBENCH_API std::string FixtureAsJson(const FixtureFile& file, const std::string& name,
                                                 const std::string& normalised = "");

/// CSV by frequency: magnitude and phase of each curve, empty where it has no value.
TARNWICK_WORKBENCH_API std::string TransmissionColumns(std::span<const TransmissionCurve> curves);

}  // namespace Tarnwick::DSO::Workbench
