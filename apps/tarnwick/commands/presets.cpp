// tarnwick presets: the settings that the CTLE knows by number.
#include "workbench/ctlepresets.h"

#include <algorithm>
#include <memory>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "workbench/units.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::CtlePreset;
using DSO::Workbench::Decibels;
using nlohmann::ordered_json;

constexpr std::size_t kFrequencyWidth = 9;  // characters of a frequency's column

ordered_json ToJson(const std::vector<CtlePreset>& presets)
{
    ordered_json list = ordered_json::array();
    for (const CtlePreset& preset : presets)
        list.push_back({{"gain", preset.gain},
                        {"polesGHz", preset.polesGHz},
                        {"zerosGHz", preset.zerosGHz},
                        {"dcGain", preset.dcGain},
                        {"dcGainDb", Decibels(preset.dcGain)},
                        {"peakingDb", preset.peakingDb},
                        {"peakFrequencyGHz", preset.peakFrequencyGHz}});
    return list;
}

std::string Columns(const std::vector<double>& frequencies)
{
    std::string text;
    for (const double frequency : frequencies)
        text += fmt::format("{:>{}.4f}", frequency, kFrequencyWidth);
    return text;
}

void PrintTable(const char* title, const char* ctleType, const char* gain, const std::vector<CtlePreset>& presets)
{
    const std::size_t poles = kFrequencyWidth * presets.front().polesGHz.size();
    const std::size_t zeros = kFrequencyWidth * presets.front().zerosGHz.size();
    fmt::print("{} (\"ctleType\": \"{}\")\n", title, ctleType);
    fmt::print("{:>8}  {:>{}}  {:>{}}  {:>9}  {:>7}  {:>10}  {:>6}\n", gain, "poles GHz", poles, "zeros GHz", zeros,
               "DC gain", "DC dB", "peaking dB", "at GHz");
    for (const CtlePreset& preset : presets)
        fmt::print("{:>8.1f}  {}  {}  {:>9.6f}  {:>7.3f}  {:>10.3f}  {:>6.2f}\n", preset.gain, Columns(preset.polesGHz),
                   Columns(preset.zerosGHz), preset.dcGain, Decibels(preset.dcGain), preset.peakingDb,
                   preset.peakFrequencyGHz);
}

void Print(bool asJson)
{
    const auto ieee = DSO::Workbench::Ieee802_3bsPresets();
    const auto hdmi = DSO::Workbench::HdmiPresets();
    if (asJson) {
        const ordered_json document = {{"ieee802.3bs", ToJson(ieee)}, {"hdmi", ToJson(hdmi)}};
        fmt::print("{}\n", document.dump(2));
        return;
    }
    PrintTable("IEEE 802.3bs", "ieee802.3bs", "gain dB", ieee);
    fmt::print("\n");
    PrintTable("HDMI", "hdmi", "level", hdmi);
}

}  // namespace

void AddPresets(CLI::App& command)
{
    auto asJson = std::make_shared<bool>(false);
    command.add_flag("--json", *asJson, "Print the presets as JSON");
    command.footer(
        "The first column is the filter's \"gain\" in a chain file:\n"
        "  {\"type\": \"ctle\", \"ctleType\": \"ieee802.3bs\", \"gain\": 4.5}\n");
    command.callback([asJson] { Print(*asJson); });
}

}  // namespace Tarnwick::App
