#include "pictures/clockplot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include <fmt/format.h>

#include "pictures/gnuplot.h"
#include "workbench/units.h"

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;
using DSO::Workbench::ClockSpectrum;
using DSO::Workbench::LockedCapture;
using DSO::Workbench::LockReport;

constexpr int kClockWidth = 960;  // [pixels]
constexpr int kClockHeight = 640;
constexpr double kLeastShownUi = 0.01;   // to either side: what any clean capture stays within looks flat
constexpr std::size_t kMostMarked = 64;  // phases that get a dot each
constexpr double kLowestDb = -10.0;      // shown of a spectrum whose median is 0 dB
constexpr double kRoomDb = 6.0;          // above the line, for its label
constexpr double kRoomOfSearch = 0.06;   // of the frequencies that are searched, shown on either side of them
constexpr const char* kCurve = "#4cc9f0";
constexpr const char* kMark = "#ffe650";

// [s] from sample to sample of the capture as read; 0 where it is not known.
double CaptureInterval(const LockedCapture& capture)
{
    return capture.interval * capture.report.samplesPerUiOut / capture.report.samplesPerUi;
}

std::string TitleOf(const LockReport& report, const std::string& name)
{
    const std::string samplesPerUi = fmt::format("{:.8g} samples per UI", report.samplesPerUi);
    return report.symbolRateGBd > 0.0 ? fmt::format("{}, {:.6g} GBd, {}", name, report.symbolRateGBd, samplesPerUi)
                                      : fmt::format("{}, {}", name, samplesPerUi);
}

struct Axis {
    double perUnit;  // of what is drawn
    std::string label;
};

// In the unit that leaves one to three digits before the point.
Axis TimeAxis(double seconds)
{
    constexpr struct {
        double perSecond;
        const char* name;
    } kUnits[] = {{1.0, "s"}, {1e3, "ms"}, {1e6, "us"}, {1e9, "ns"}, {1e12, "ps"}};
    const auto* const unit = std::find_if(std::begin(kUnits), std::end(kUnits) - 1,
                                          [&](const auto& row) { return seconds * row.perSecond >= 1.0; });
    return {unit->perSecond, fmt::format("time from the first sample [{}]", unit->name)};
}

std::string PhaseData(const char* name, const LockReport& report, const std::vector<double>& phases, double perSample)
{
    std::string data = fmt::format("${} << END\n", name);
    for (std::size_t k = 0; k < phases.size(); ++k)
        data += fmt::format("{:.8g} {:.6g}\n",
                            (report.phaseFirst + static_cast<double>(k) * report.phaseSpacing) * perSample, phases[k]);
    data += "END\n";
    return data;
}

}  // namespace

void DrawClockPhase(const fs::path& path, const LockedCapture& capture, const std::string& title)
{
    const LockReport& report = capture.report;
    const double interval = CaptureInterval(capture);
    const double end = 2.0 * report.phaseFirst + static_cast<double>(report.phaseUi.size() - 1) * report.phaseSpacing;
    const Axis axis = interval > 0.0 ? TimeAxis(end * interval) : Axis{1.0, "sample"};
    const double perSample = interval > 0.0 ? interval * axis.perUnit : 1.0;
    double largest = kLeastShownUi;
    for (const double ui : report.phaseUi)
        largest = std::max(largest, std::abs(ui));
    const bool isTracked = !report.trackedPhaseUi.empty();
    const char* const style = report.phaseUi.size() <= kMostMarked ? "linespoints pointtype 7 pointsize 0.8" : "lines";

    std::string script = Theme() + PhaseData("phase", report, report.phaseUi, perSample);
    if (isTracked)
        script += PhaseData("tracked", report, report.trackedPhaseUi, perSample);
    script += fmt::format(
        "set title {}\nset key inside top center samplen 3 width 2\nset xlabel '{}'\nset ylabel 'clock phase [UI]'\n"
        "set xrange [0:{}]\nset yrange [{}:{}]\n"
        "set arrow from graph 0,first 0 to graph 1,first 0 nohead back linecolor '#b0b0c0' linewidth 1 dashtype 2\n",
        Quoted(TitleOf(report, title)), axis.label, end * perSample, -1.15 * largest, 1.4 * largest);
    script += fmt::format(
        "plot $phase using 1:2 with {} linewidth 2 linecolor '{}' title "
        "'found, {:.2g} UI rms about a constant clock'",
        style, kCurve, report.phaseResidualUi);
    if (isTracked)
        script += fmt::format(
            ", $tracked using 1:2 with lines linewidth 2 linecolor '{}' title "
            "'tracked, {:.2g} UI rms left'",
            kMark, report.trackedResidualUi);
    DrawPng(path, kClockWidth, kClockHeight, script + "\n");
}

void DrawClockSpectrum(const fs::path& path, const LockedCapture& capture, const std::string& title)
{
    const ClockSpectrum& spectrum = capture.report.spectrum;
    const double interval = CaptureInterval(capture);
    const double perCycle = interval > 0.0 ? 1.0 / interval / DSO::Workbench::kGiga : 1.0;  // [GHz] or [1/sample]
    const auto at = [&](std::size_t k) { return spectrum.first + static_cast<double>(k) * spectrum.spacing; };
    const double first = at(0);
    const double last = at(spectrum.scoreDb.size() - 1);
    const double room = kRoomOfSearch * (last - first);
    const auto line = static_cast<std::size_t>(std::lround((spectrum.line - spectrum.first) / spectrum.spacing));
    const double highest = *std::max_element(spectrum.scoreDb.begin(), spectrum.scoreDb.end());
    const bool isRight = at(line) > 0.5 * (first + last);  // the label stays in the picture
    const double top = std::max(highest, spectrum.leastDb) + kRoomDb;

    std::string data = "$spectrum << END\n";
    for (std::size_t k = 0; k < spectrum.scoreDb.size(); ++k)
        data += fmt::format("{:.8g} {:.5g}\n", at(k) * perCycle, std::max(spectrum.scoreDb[k], kLowestDb));
    data += "END\n";
    std::string script = Theme() + data +
                         fmt::format(
                             "set title {}\nunset key\nset xlabel 'frequency [{}]'\n"
                             "set ylabel 'spectrum of the squared slope over its median [dB]'\n"
                             "set style textbox opaque noborder fillcolor '#101018' margins 0.3,0.3\n"
                             "set xrange [{}:{}]\nset yrange [{}:{}]\n",
                             Quoted(TitleOf(capture.report, title)), interval > 0.0 ? "GHz" : "1/sample",
                             std::max(0.0, first - room) * perCycle, (last + room) * perCycle, kLowestDb, top);
    // What lies outside the search is shaded.
    for (const auto& [limit, from, to] : {std::array{first, 0.0, first}, std::array{last, last, last + room}})
        script += fmt::format(
            "set object rectangle from first {0},graph 0 to first {1},graph 1 behind fillcolor '#303040' fillstyle "
            "solid "
            "noborder\n"
            "set label '{2:.3g} samples per UI' at first {3},graph 0.97 rotate right offset 0.8,0 front textcolor "
            "'#b0b0c0'\n",
            from * perCycle, to * perCycle, 1.0 / limit, limit * perCycle);
    script += fmt::format(
        "set arrow from graph 0,first {0} to graph 1,first {0} nohead front linecolor '#ff6060' linewidth 1 dashtype "
        "2\n"
        "set label '{0:g} dB: the least that is a clock' at graph 0.92,first {0} right offset 0,0.7 front boxed "
        "textcolor "
        "'#ffb0b0'\n"
        "set arrow from first {1},first {2} to first {1},first {3} front filled linecolor '{4}' linewidth 1.5\n"
        "set label 'the clock, {3:.1f} dB' at first {1},first {2} {5} offset {6},0 front textcolor '{4}'\n",
        spectrum.leastDb, at(line) * perCycle, top - 1.0, spectrum.scoreDb[line], kMark, isRight ? "right" : "left",
        isRight ? -0.8 : 0.8);
    script += fmt::format("plot $spectrum using 1:2 with lines linewidth 1 linecolor '{}'\n", kCurve);
    DrawPng(path, kClockWidth, kClockHeight, script);
}

}  // namespace Tarnwick::App
