#include "workbench/ctlepresets.h"

#include <cmath>
#include <utility>

#include "maths/responses/ctle.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr double kHighestFrequency = 1e11;  // [Hz] far above every peak: the poles lie below 27 GHz

template <typename Response>
CtlePreset PresetOf(double gain, std::vector<double> polesGHz, std::vector<double> zerosGHz, const Response& response)
{
    const Maths::Peak peak = Maths::FindPeak(response, kHighestFrequency);
    const double dcGain = std::abs(response(0.0));
    return {gain,
            std::move(polesGHz),
            std::move(zerosGHz),
            dcGain,
            Decibels(peak.magnitude / dcGain),
            peak.frequency / kGiga};
}

}  // namespace

std::vector<CtlePreset> Ieee802_3bsPresets()
{
    std::vector<CtlePreset> presets;
    for (const Maths::Ieee802_3bsPreset& preset : Maths::kIeee802_3bsPresets)
        presets.push_back(PresetOf(preset.keyDb, {preset.pole1, preset.pole2, preset.pole3},
                                   {preset.zero1, preset.zero2}, preset.Response()));
    return presets;
}

std::vector<CtlePreset> HdmiPresets()
{
    std::vector<CtlePreset> presets;
    for (const Maths::HdmiLevel& level : Maths::kHdmiLevels) {
        const double zero = Maths::kHdmiPole1 / level.peakingRatio;
        presets.push_back(
            PresetOf(level.level, {Maths::kHdmiPole1 / Maths::kRadPerGHz, Maths::kHdmiPole2 / Maths::kRadPerGHz},
                     {zero / Maths::kRadPerGHz},
                     Maths::HdmiResponse(level.peakingRatio, Maths::kHdmiPole1, Maths::kHdmiPole2, zero)));
    }
    return presets;
}

}  // namespace Tarnwick::DSO::Workbench
