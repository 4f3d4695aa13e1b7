// The preset tables of the CTLE and what their transfer functions amount to.
#pragma once

#include <string>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct CtlePreset {
    double gain = 0.0;  ///< the chain file's "gain": a key [dB] or a level
    std::vector<double> polesGHz;
    std::vector<double> zerosGHz;
    double dcGain = 0.0;            ///< linear
    double peakingDb = 0.0;         ///< the largest gain over the gain at DC
    double peakFrequencyGHz = 0.0;  ///< of the largest gain
};

/// IEEE 802.3bs, in the order of their gain.
TARNWICK_WORKBENCH_API std::vector<CtlePreset> Ieee802_3bsPresets();
/// HDMI, in the order of their level.
TARNWICK_WORKBENCH_API std::vector<CtlePreset> HdmiPresets();

/// Both tables for a terminal.
TARNWICK_WORKBENCH_API std::string PresetsAsText();

/// {"ieee802.3bs": [presets], "hdmi": [presets]}, indented by two.
TARNWICK_WORKBENCH_API std::string PresetsAsJson();

}  // namespace Tarnwick::DSO::Workbench
