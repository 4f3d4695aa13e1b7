// Eye measurements as text, and what a chain has to say for there to be any.
#pragma once

#include <optional>
#include <string>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/eye.h"
#include "workbench/lock.h"

namespace Tarnwick::DSO::Workbench {

/// A figure of each eye, lowest first, with blanks between: heights in V and widths in UI to four digits, openings to a
/// tenth of a per cent. "-" when there are no eyes.
TARNWICK_WORKBENCH_API std::string HeightsText(const EyeReport& report);
TARNWICK_WORKBENCH_API std::string WidthsText(const EyeReport& report);
TARNWICK_WORKBENCH_API std::string OpeningsText(const EyeReport& report);

/// One width in UI, to four decimals; "-" when there is none.
TARNWICK_WORKBENCH_API std::string WidthText(std::optional<double> widthUi);

/// "2.3e-12", "below 1e-30", "0"; "-" when there is none.
TARNWICK_WORKBENCH_API std::string BerText(std::optional<double> ber);

/// Whether 0 V is a dark line, so that levels have a ratio.
enum class ZeroVolts { Unknown, Dark };

/// Levels, modulation, openings, noise and error ratio: a line a figure.
TARNWICK_WORKBENCH_API std::string EyeAsText(const EyeReport& report, ZeroVolts zero = ZeroVolts::Unknown);

/// What the eyes of a record are measured with: as periods or as a single shot, with the symbols that were found.
TARNWICK_WORKBENCH_API EyeSettings EyeSettingsOf(const LockedCapture& capture);

/// {"acquisition": as LockAsJson, "stages": [{"name": "capture", "samples", "repetitions", "levels", "eyes", "phaseUi", ...}]}
TARNWICK_WORKBENCH_API std::string EyeAsJson(const LockedCapture& capture, const EyeReport& report);

/// What the eyes of a chain's waveforms are measured with: of whole periods, with the pattern when the chain holds it.
/// @param chain  knows the line coding and the samples per UI
TARNWICK_WORKBENCH_API EyeSettings EyeSettingsOf(const Chain& chain);

}  // namespace Tarnwick::DSO::Workbench
