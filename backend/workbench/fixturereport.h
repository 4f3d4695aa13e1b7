// An S-parameter file's description as text, JSON and columns.
#pragma once

#include <span>
#include <string>

#include "framework/export.h"
#include "workbench/fixturefile.h"

namespace Tarnwick::DSO::Workbench {

/// What the file holds, how the filter reads it, what JudgeNetwork makes of it, and a table of values.
/// @param name         the file's
/// @param frequencies  [Hz] of the table, between the points straight in dB and degrees; empty: a few spread evenly
TARNWICK_WORKBENCH_API std::string FixtureAsText(const FixtureFile& file, const std::string& name,
                                                 std::span<const double> frequencies = {});

/// The same as JSON, indented by two, with up to 10000 differences.
/// @param normalised  name of the rewritten file; empty: none
TARNWICK_WORKBENCH_API std::string FixtureAsJson(const FixtureFile& file, const std::string& name,
                                                 const std::string& normalised = "",
                                                 std::span<const double> frequencies = {});

/// CSV by frequency: magnitude, phase and group delay of each curve, empty where it has no value.
TARNWICK_WORKBENCH_API std::string TransmissionColumns(std::span<const TransmissionCurve> curves);

}  // namespace Tarnwick::DSO::Workbench
