#include "pictures/touchstoneplot.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numbers>

#include <fmt/format.h>

#include "pictures/gnuplot.h"

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 1100;
constexpr int kHeight = 850;
constexpr double kGiga = 1e9;
constexpr double kShownDb = 80.0;      // of the magnitude, below the largest
constexpr std::size_t kPoints = 4000;  // of a line: more than the picture has columns
constexpr std::size_t kMarked = 200;   // values that are marked one by one
constexpr double kFarAbove = 0.3;      // of the last frequency
constexpr const char* kColours[] = {"#4cc9f0", "#f9c74f"};

std::string Data(const std::vector<TransmissionLine>& lines)
{
    fmt::memory_buffer data;
    for (std::size_t k = 0; k < lines.size(); ++k) {
        const TransmissionLine& line = lines[k];
        const std::size_t stride = std::max<std::size_t>(1, line.frequency.size() / kPoints);
        fmt::format_to(std::back_inserter(data), "$line{} << EOD\n", k);
        for (std::size_t i = 0; i < line.frequency.size(); i += stride)
            if (std::isfinite(line.magnitudeDb[i]))
                fmt::format_to(std::back_inserter(data), "{:.8g} {:.8g} {:.8g}\n", line.frequency[i] / kGiga,
                               line.magnitudeDb[i], line.phaseDeg[i]);
        fmt::format_to(std::back_inserter(data), "EOD\n");
    }
    return fmt::to_string(data);
}

std::string StyleOf(const TransmissionLine& line, std::size_t k)
{
    switch (line.role) {
        case TransmissionLine::Role::OtherOrder: return "lines linewidth 1 linecolor '#7d8597'";
        case TransmissionLine::Role::AsRead:
            return fmt::format("{} pointtype 7 pointsize 0.8 linewidth 1.5 dashtype 2 linecolor '#ff6b6b'",
                               line.frequency.size() > kMarked ? "lines" : "linespoints");
        case TransmissionLine::Role::Meant: break;
    }
    return fmt::format("{} linewidth 2.5 linecolor '{}'", line.frequency.size() == 1 ? "points pointtype 7" : "lines",
                       kColours[k % std::size(kColours)]);
}

// The weaker port order first, so that nothing hides behind it.
std::string Plot(const std::vector<TransmissionLine>& lines, int column)
{
    std::string command;
    for (const bool isBehind : {true, false})
        for (std::size_t k = 0; k < lines.size(); ++k)
            if ((lines[k].role == TransmissionLine::Role::OtherOrder) == isBehind)
                command += fmt::format("{}$line{} using 1:{} with {} title {}", command.empty() ? "plot " : ", ", k,
                                       column, StyleOf(lines[k], k), Quoted(lines[k].name));
    return command + "\n";
}

}  // namespace

TransmissionLine LineOf(std::string name, const std::map<double, std::complex<double>>& transmission)
{
    constexpr double kTurn = 2.0 * std::numbers::pi;
    TransmissionLine line;
    line.name = std::move(name);
    double phase = 0.0;
    for (const auto& [frequency, value] : transmission) {
        // A zero has no phase of its own; the first one counts as it stands.
        const double step = value == 0.0 ? 0.0 : std::arg(value) - phase;
        phase += line.frequency.empty() ? step : std::remainder(step, kTurn);
        line.frequency.push_back(frequency);
        line.magnitudeDb.push_back(20.0 * std::log10(std::abs(value)));
        line.phaseDeg.push_back(phase * 360.0 / kTurn);
    }
    return line;
}

void DrawTransmission(const fs::path& path, const std::vector<TransmissionLine>& lines, const std::string& title)
{
    double highest = -std::numeric_limits<double>::infinity();
    double lowest = std::numeric_limits<double>::infinity();
    double first = std::numeric_limits<double>::infinity();
    double last = -std::numeric_limits<double>::infinity();
    for (const TransmissionLine& line : lines) {
        first = std::min(first, line.frequency.front() / kGiga);
        last = std::max(last, line.frequency.back() / kGiga);
        for (const double db : line.magnitudeDb) {
            if (!std::isfinite(db))
                continue;
            highest = std::max(highest, db);
            lowest = std::min(lowest, db);
        }
    }
    if (highest < lowest)
        highest = lowest = 0.0;
    lowest = std::max(lowest, highest - kShownDb);
    const double room = std::max(1.0, 0.06 * (highest - lowest));
    // From 0 Hz, unless the data lie far above.
    const double begin = first > kFarAbove * last ? first : std::min(first, 0.0);
    const double end = last > begin ? last : begin + 1.0;
    const std::string script = Theme() + Data(lines) +
                               fmt::format(
                                   "set multiplot layout 2,1 title {} textcolor '#e8e8f0' font 'sans,14'\n"
                                   "set lmargin 11\nset rmargin 3\nset key above horizontal samplen 3 width 2\n"
                                   "set xlabel 'frequency [GHz]'\nset xrange [{}:{}]\n"
                                   "set ylabel 'magnitude [dB]'\nset yrange [{}:{}]\n",
                                   Quoted(title), begin, end, lowest - room, highest + room) +
                               Plot(lines, 2) + "unset key\nset ylabel 'phase, unwrapped [deg]'\nset autoscale y\n" +
                               Plot(lines, 3) + "unset multiplot\n";
    DrawPng(path, kWidth, kHeight, script);
}

}  // namespace Tarnwick::App
