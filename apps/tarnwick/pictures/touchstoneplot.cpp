#include "pictures/touchstoneplot.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <fmt/format.h>

#include "pictures/gnuplot.h"
#include "workbench/units.h"

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;
using DSO::Workbench::kGiga;
using DSO::Workbench::TransmissionCurve;

constexpr double kNano = 1e9;                    // nanoseconds in a second
constexpr int kTouchstoneWidth = 1100;           // [pixels]
constexpr int kTouchstoneHeight = 850;           // [pixels]
constexpr double kTouchstoneShownDb = 80.0;      // magnitudes are shown down to this far below the largest
constexpr std::size_t kTouchstonePoints = 4000;  // of a line: more than the picture has columns
constexpr std::size_t kMarked = 200;             // up to this many values are marked one by one
constexpr double kFarAbove = 0.3;  // of the last frequency: data that begin above leave 0 Hz out of the picture
constexpr int kMagnitude = 2;      // columns of the data
constexpr int kDelay = 3;
constexpr const char* kTouchstoneColours[] = {"#4cc9f0", "#f9c74f"};

std::string Data(std::span<const TransmissionCurve> curves)
{
    std::string data;
    for (std::size_t k = 0; k < curves.size(); ++k) {
        const TransmissionCurve& curve = curves[k];
        const std::size_t stride = std::max<std::size_t>(1, curve.frequency.size() / kTouchstonePoints);
        data += fmt::format("$line{} << EOD\n", k);
        for (std::size_t i = 0; i < curve.frequency.size(); i += stride)
            if (std::isfinite(curve.magnitudeDb[i]))
                data += fmt::format("{:.8g} {:.8g} {:.8g}\n", curve.frequency[i] / kGiga, curve.magnitudeDb[i],
                                    curve.delay[i] * kNano);
        data += "EOD\n";
    }
    return data;
}

std::string StyleOf(const TransmissionCurve& curve, std::size_t k)
{
    switch (curve.role) {
        case TransmissionCurve::Role::OtherOrder: return "lines linewidth 1 linecolor '#7d8597'";
        case TransmissionCurve::Role::AsRead:
            return fmt::format("{} pointtype 7 pointsize 0.8 linewidth 1.5 dashtype 2 linecolor '#ff6b6b'",
                               curve.frequency.size() > kMarked ? "lines" : "linespoints");
        case TransmissionCurve::Role::Meant: break;
    }
    return fmt::format("{} linewidth 2.5 linecolor '{}'", curve.frequency.size() == 1 ? "points pointtype 7" : "lines",
                       kTouchstoneColours[k % std::size(kTouchstoneColours)]);
}

// The weaker port order first, so that nothing hides behind it; it carries coupling, whose delay means nothing.
std::string Plot(std::span<const TransmissionCurve> curves, int column)
{
    std::string command;
    for (const bool isBehind : {true, false})
        for (std::size_t k = 0; k < curves.size(); ++k)
            if ((curves[k].role == TransmissionCurve::Role::OtherOrder) == isBehind &&
                (column == kMagnitude || !isBehind))
                command += fmt::format("{}$line{} using 1:{} with {} title {}", command.empty() ? "plot " : ", ", k,
                                       column, StyleOf(curves[k], k), Quoted(curves[k].name));
    return command + "\n";
}

// Without the extreme values at either end, which stand where the magnitude has a notch.
std::string DelayRange(std::span<const TransmissionCurve> curves, double lowestDb)
{
    constexpr std::size_t kOutlierShare = 50;  // one in this many at either end
    constexpr double kRoom = 0.25;
    std::vector<double> delays;
    for (const TransmissionCurve& curve : curves)
        for (std::size_t k = 0; k < curve.delay.size(); ++k)
            if (curve.role == TransmissionCurve::Role::Meant && std::isfinite(curve.delay[k]) &&
                curve.magnitudeDb[k] >= lowestDb)
                delays.push_back(curve.delay[k] * kNano);
    if (delays.empty())
        return "set autoscale y\n";
    std::sort(delays.begin(), delays.end());
    const double low = delays[delays.size() / kOutlierShare];
    const double high = delays[delays.size() - 1 - delays.size() / kOutlierShare];
    const double room = std::max(kRoom * (high - low), 0.01);
    return fmt::format("set yrange [{}:{}]\n", low - room, high + room);
}

}  // namespace

void DrawTransmission(const fs::path& path, std::span<const TransmissionCurve> curves, const std::string& title)
{
    double highest = -std::numeric_limits<double>::infinity();
    double lowest = std::numeric_limits<double>::infinity();
    double first = std::numeric_limits<double>::infinity();
    double last = -std::numeric_limits<double>::infinity();
    for (const TransmissionCurve& curve : curves) {
        first = std::min(first, curve.frequency.front() / kGiga);
        last = std::max(last, curve.frequency.back() / kGiga);
        for (const double db : curve.magnitudeDb) {
            if (!std::isfinite(db))
                continue;
            highest = std::max(highest, db);
            lowest = std::min(lowest, db);
        }
    }
    if (highest < lowest)
        highest = lowest = 0.0;
    lowest = std::max(lowest, highest - kTouchstoneShownDb);
    const double room = std::max(1.0, 0.06 * (highest - lowest));
    const double begin = first > kFarAbove * last ? first : std::min(first, 0.0);
    const double end = last > begin ? last : begin + 1.0;
    const std::string script = Theme() + Data(curves) +
                               fmt::format(
                                   "set multiplot layout 2,1 title {} textcolor '#e8e8f0' font 'sans,14'\n"
                                   "set lmargin 11\nset rmargin 3\nset key above horizontal samplen 3 width 2\n"
                                   "set xlabel 'frequency [GHz]'\nset xrange [{}:{}]\n"
                                   "set ylabel 'magnitude [dB]'\nset yrange [{}:{}]\n",
                                   Quoted(title), begin, end, lowest - room, highest + room) +
                               Plot(curves, kMagnitude) + "unset key\nset ylabel 'group delay [ns]'\n" +
                               DelayRange(curves, lowest) + Plot(curves, kDelay) + "unset multiplot\n";
    DrawPng(path, kTouchstoneWidth, kTouchstoneHeight, script);
}

}  // namespace Tarnwick::App
