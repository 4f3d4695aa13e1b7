// The presets of the CTLE with what their transfer functions come to.
#pragma once

#include <vector>

#include "maths/responses/ctle.h"

namespace Tarnwick::App {

struct PresetRow {
    double gain = 0.0;  ///< what the chain file calls it: a key [dB] or a level
    std::vector<double> polesGHz;
    std::vector<double> zerosGHz;
    double dcGain = 0.0;     ///< linear
    double peakingDb = 0.0;  ///< the largest gain over the one at DC
    double peakGHz = 0.0;    ///< where it is largest
};

std::vector<PresetRow> Ieee802_3bsRows();
std::vector<PresetRow> HdmiRows();

}  // namespace Tarnwick::App
