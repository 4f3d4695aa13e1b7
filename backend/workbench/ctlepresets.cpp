#include "workbench/ctlepresets.h"

#include <cmath>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "maths/responses/ctle.h"
#include "workbench/plumbing/json.h"
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

constexpr std::size_t kFrequencyWidth = 9;  // characters of a frequency's column

std::string Columns(const std::vector<double>& frequencies)
{
    std::string text;
    for (const double frequency : frequencies)
        text += fmt::format("{:>{}.4f}", frequency, kFrequencyWidth);
    return text;
}

std::string Table(const char* title, const char* ctleType, const char* gain, const std::vector<CtlePreset>& presets)
{
    const std::size_t poles = kFrequencyWidth * presets.front().polesGHz.size();
    const std::size_t zeros = kFrequencyWidth * presets.front().zerosGHz.size();
    std::string text = fmt::format("{} (\"ctleType\": \"{}\")\n", title, ctleType);
    text += fmt::format("{:>8}  {:>{}}  {:>{}}  {:>9}  {:>7}  {:>10}  {:>6}\n", gain, "poles GHz", poles, "zeros GHz",
                        zeros, "DC gain", "DC dB", "peaking dB", "at GHz");
    for (const CtlePreset& preset : presets)
        text += fmt::format("{:>8.1f}  {}  {}  {:>9.6f}  {:>7.3f}  {:>10.3f}  {:>6.2f}\n", preset.gain,
                            Columns(preset.polesGHz), Columns(preset.zerosGHz), preset.dcGain, Decibels(preset.dcGain),
                            preset.peakingDb, preset.peakFrequencyGHz);
    return text;
}

Json ToJson(const std::vector<CtlePreset>& presets)
{
    Json list = Json::List();
    for (const CtlePreset& preset : presets)
        list.Add({{"gain", preset.gain},
                  {"polesGHz", preset.polesGHz},
                  {"zerosGHz", preset.zerosGHz},
                  {"dcGain", preset.dcGain},
                  {"dcGainDb", Decibels(preset.dcGain)},
                  {"peakingDb", preset.peakingDb},
                  {"peakFrequencyGHz", preset.peakFrequencyGHz}});
    return list;
}

}  // namespace

std::vector<CtlePreset> Ieee802_3bsPresets()
{
    std::vector<CtlePreset> presets;
    presets.reserve(std::size(Maths::kIeee802_3bsPresets));
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

std::string PresetsAsText()
{
    return Table("IEEE 802.3bs", "ieee802.3bs", "gain dB", Ieee802_3bsPresets()) + "\n" +
           Table("HDMI", "hdmi", "level", HdmiPresets());
}

std::string PresetsAsJson()
{
    const Json presets = {{"ieee802.3bs", ToJson(Ieee802_3bsPresets())}, {"hdmi", ToJson(HdmiPresets())}};
    return presets.Text(2);
}

}  // namespace Tarnwick::DSO::Workbench
