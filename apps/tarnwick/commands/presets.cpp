// tarnwick presets: the settings that the CTLE knows by number.
#include "commands/presets.h"

#include <cmath>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/commands.h"

namespace Tarnwick::App {

namespace {

namespace Maths = DSO::Maths;
using nlohmann::ordered_json;

constexpr double kGiga = 1e9;
constexpr double kHighest = 1e11;  // [Hz] the poles lie below 27 GHz

double Db(double ratio)
{
    return 20.0 * std::log10(ratio);
}

template <typename Response>
void Complete(PresetRow& row, const Response& response)
{
    const Maths::Peak peak = Maths::FindPeak(response, kHighest);
    row.dcGain = std::abs(response(0.0));
    row.peakingDb = Db(peak.magnitude / row.dcGain);
    row.peakGHz = peak.frequency / kGiga;
}

ordered_json ToJson(const std::vector<PresetRow>& rows)
{
    ordered_json list = ordered_json::array();
    for (const PresetRow& row : rows)
        list.push_back({{"gain", row.gain},
                        {"polesGHz", row.polesGHz},
                        {"zerosGHz", row.zerosGHz},
                        {"dcGain", row.dcGain},
                        {"dcGainDb", Db(row.dcGain)},
                        {"peakingDb", row.peakingDb},
                        {"peakFrequencyGHz", row.peakGHz}});
    return list;
}

std::string Joined(const std::vector<double>& frequencies)
{
    std::string text;
    for (const double frequency : frequencies)
        text += fmt::format("{:>9.4f}", frequency);
    return text;
}

void PrintTable(const char* title, const char* ctleType, const char* gain, const std::vector<PresetRow>& rows)
{
    const std::size_t poles = 9 * rows.front().polesGHz.size();
    const std::size_t zeros = 9 * rows.front().zerosGHz.size();
    fmt::print("{} (\"ctleType\": \"{}\")\n", title, ctleType);
    fmt::print("{:>8}  {:>{}}  {:>{}}  {:>9}  {:>7}  {:>10}  {:>6}\n", gain, "poles GHz", poles, "zeros GHz",
               std::max<std::size_t>(zeros, 9), "DC gain", "DC dB", "peaking dB", "at GHz");
    for (const PresetRow& row : rows)
        fmt::print("{:>8.1f}  {}  {}  {:>9.6f}  {:>7.3f}  {:>10.3f}  {:>6.2f}\n", row.gain, Joined(row.polesGHz),
                   Joined(row.zerosGHz), row.dcGain, Db(row.dcGain), row.peakingDb, row.peakGHz);
}

void Print(bool asJson)
{
    if (asJson) {
        const ordered_json document = {{"ieee802.3bs", ToJson(Ieee802_3bsRows())}, {"hdmi", ToJson(HdmiRows())}};
        fmt::print("{}\n", document.dump(2));
        return;
    }
    PrintTable("IEEE 802.3bs", "ieee802.3bs", "gain dB", Ieee802_3bsRows());
    fmt::print("\n");
    PrintTable("HDMI", "hdmi", "level", HdmiRows());
}

}  // namespace

std::vector<PresetRow> Ieee802_3bsRows()
{
    std::vector<PresetRow> rows;
    for (const Maths::Ieee802_3bsPreset& preset : Maths::kIeee802_3bsPresets) {
        PresetRow row;
        row.gain = preset.keyDb;
        row.polesGHz = {preset.pole1, preset.pole2, preset.pole3};
        row.zerosGHz = {preset.zero1, preset.zero2};
        Complete(row, preset.Response());
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<PresetRow> HdmiRows()
{
    std::vector<PresetRow> rows;
    for (const Maths::HdmiLevel& level : Maths::kHdmiLevels) {
        const double zero = Maths::kHdmiPole1 / level.peakingRatio;
        PresetRow row;
        row.gain = level.level;
        row.polesGHz = {Maths::kHdmiPole1 / Maths::kRadPerGHz, Maths::kHdmiPole2 / Maths::kRadPerGHz};
        row.zerosGHz = {zero / Maths::kRadPerGHz};
        Complete(row, Maths::HdmiResponse(level.peakingRatio, Maths::kHdmiPole1, Maths::kHdmiPole2, zero));
        rows.push_back(std::move(row));
    }
    return rows;
}

void AddPresets(CLI::App& program)
{
    auto asJson = std::make_shared<bool>(false);
    CLI::App* command = program.add_subcommand("presets", "List the presets of the CTLE");
    command->add_flag("--json", *asJson, "Print the presets as JSON");
    command->footer(
        "The first column is the filter's \"gain\" in a chain file:\n"
        "  {\"type\": \"ctle\", \"ctleType\": \"ieee802.3bs\", \"gain\": 4.5}");
    command->callback([asJson] { Print(*asJson); });
}

}  // namespace Tarnwick::App
