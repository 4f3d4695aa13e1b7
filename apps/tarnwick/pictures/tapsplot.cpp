#include "pictures/tapsplot.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <fmt/format.h>

#include "pictures/eyeplot.h"
#include "pictures/gnuplot.h"
#include "workbench/failure.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::DataFailure;
using DSO::Workbench::PulseResponses;
using DSO::Workbench::StageTaps;
using DSO::Workbench::TapFigure;
using Source = PulseResponses::Source;

constexpr int kTapsWidth = 960;  // [pixels]
constexpr int kTapsHeight = 760;
constexpr int kBarsHeight = 420;                   // [pixels] of the taps alone
constexpr double kPlotWidth = 840.0;               // [pixels] within the margins
constexpr double kLabelWidth = 52.0;               // [pixels] of a tap's value
constexpr std::size_t kMostLabels = 16;            // taps; more would not be read
constexpr double kRoom = 0.2;                      // of the range of the taps, above and below, for their values
constexpr double kUprightRoom = 0.35;              // the same for values that stand upright
constexpr double kShown = 0.02;                    // of its peak: a pulse response is shown until it stays below this
constexpr double kNarrowestTapsUi[] = {2.0, 5.0};  // shown before and behind the main cursor, at least
constexpr const char* kBars = "#f9c74f";
constexpr const char* kBefore = "#a0a0b0";
constexpr const char* kAfter = "#4cc9f0";

struct UiAxis {
    double first;  // [UI]
    double last;

    void Take(double from, double to)
    {
        first = std::min(first, from);
        last = std::max(last, to);
    }
};

double TimeOf(const PulseResponses& pulses, std::size_t n)
{
    return pulses.firstUi + static_cast<double>(n) / static_cast<double>(pulses.valuesPerUi);
}

double SpacingOf(const StageTaps& taps)
{
    return taps.offsetsUi.size() > 1 ? taps.offsetsUi[1] - taps.offsetsUi[0] : 1.0;
}

double Largest(const std::vector<double>& values)
{
    double largest = 0.0;
    for (const double value : values)
        largest = std::max(largest, std::abs(value));
    return largest;
}

UiAxis AxisOf(const TapFigure& figure)
{
    UiAxis axis{-kNarrowestTapsUi[0], kNarrowestTapsUi[1]};
    const double room = std::max(0.5, 0.75 * SpacingOf(figure.taps));
    axis.Take(figure.taps.offsetsUi.front() - room, figure.taps.offsetsUi.back() + room);
    if (!figure.pulses)
        return axis;
    for (const std::vector<double>* const pulse : {&figure.pulses->before, &figure.pulses->after}) {
        const double least = kShown * Largest(*pulse);
        for (std::size_t n = 0; n < pulse->size(); ++n) {
            const double time = TimeOf(*figure.pulses, n);
            if (std::abs((*pulse)[n]) > least)
                axis.Take(time - 0.5, time + 0.5);
        }
    }
    axis.first = std::max(axis.first, std::min(figure.pulses->firstUi, figure.taps.offsetsUi.front() - room));
    return axis;
}

// The value beside each bar, standing upright where bars are close.
std::string ValuesOf(const StageTaps& taps, bool upright)
{
    std::string labels;
    for (std::size_t k = 0; k < taps.values.size(); ++k) {
        const bool isBelow = taps.values[k] < 0.0;
        const char* const place = upright
                                      ? isBelow ? "right rotate by 90 offset 0,-0.3" : "left rotate by 90 offset 0,0.3"
                                  : isBelow ? "center offset 0,-0.8"
                                            : "center offset 0,0.7";
        labels += fmt::format("set label '{:.3f}' at {},{} {} front boxed font ',11' textcolor '#e8e8f0'\n",
                              taps.values[k], taps.offsetsUi[k], taps.values[k], place);
    }
    return labels;
}

// Arrow 1: the main cursor.
std::string CursorMark(const char* from, const char* to)
{
    return fmt::format("set arrow 1 from 0,{} to 0,{} nohead back linecolor '#b0b0c0' linewidth 1 dashtype 2\n", from,
                       to);
}

// Over the bars it leaves out the side of the main tap, whose upright value it would turn into a negative one.
std::string CursorMarkOver(const StageTaps& taps)
{
    const auto main = std::find(taps.offsetsUi.begin(), taps.offsetsUi.end(), 0.0);
    if (main == taps.offsetsUi.end())
        return CursorMark("graph 0", "graph 1");
    const bool isUp = taps.values[static_cast<std::size_t>(main - taps.offsetsUi.begin())] > 0.0;
    return isUp ? CursorMark("graph 0", "0") : CursorMark("0", "graph 1");
}

std::string BarsPanel(const StageTaps& taps, const UiAxis& axis)
{
    const double spacing = SpacingOf(taps);
    const bool isLabelled = taps.values.size() <= kMostLabels;
    const bool upright = kPlotWidth / (axis.last - axis.first) * spacing < kLabelWidth;
    const auto [lowest, highest] = std::minmax_element(taps.values.begin(), taps.values.end());
    const double low = std::min(*lowest, 0.0);
    const double high = std::max(*highest, 0.0);
    const double room = (upright && isLabelled ? kUprightRoom : kRoom) * std::max(high - low, 1e-9);
    std::string script = "$taps << END\n";
    for (std::size_t k = 0; k < taps.values.size(); ++k)
        script += fmt::format("{} {}\n", taps.offsetsUi[k], taps.values[k]);
    script += fmt::format("END\nset ylabel '{}'\nset yrange [{}:{}]\nset boxwidth {}\nset style fill solid noborder\n",
                          taps.kind == StageTaps::Kind::Feedback ? "taps [main cursors]" : "taps", low - room,
                          high + room, 0.6 * std::min(spacing, 1.0));
    if (isLabelled)
        script += ValuesOf(taps, upright);
    script += CursorMarkOver(taps);
    return script + fmt::format("plot $taps using 1:2 with boxes linecolor '{}' notitle\nunset label\n", kBars);
}

std::string NameOf(const char* place, const PulseResponses& pulses, double residualRms)
{
    if (pulses.source == Source::IdealSymbol)
        return place;
    const VoltageUnit unit = UnitFor({0.0, residualRms});
    return fmt::format("{}, linear fit leaves {:.3g} {} rms", place, residualRms * unit.perVolt, unit.name);
}

std::string YLabelOf(const PulseResponses& pulses, VoltageUnit unit)
{
    switch (pulses.source) {
        case Source::IdealSymbol: return "response to an ideal symbol";
        case Source::DecidedSymbols: return fmt::format("pulse response [{}], symbols decided", unit.name);
        case Source::KnownSymbols: break;
    }
    return fmt::format("pulse response [{}]", unit.name);
}

std::string PulsePanel(const PulseResponses& pulses)
{
    const VoltageRange range = RangeOf(pulses.before, pulses.after);
    const VoltageUnit unit = pulses.source == Source::IdealSymbol ? VoltageUnit{1.0, ""} : UnitFor(range);
    const struct {
        const std::vector<double>& values;
        const char* colour;
        std::string name;
    } curves[] = {
        {pulses.before, kBefore, NameOf("in front", pulses, pulses.beforeResidualRms)},
        {pulses.after, kAfter, NameOf("behind", pulses, pulses.afterResidualRms)},
    };
    std::string data;
    std::string plot;
    for (const auto& curve : curves) {
        if (curve.values.empty())
            continue;
        const std::string name = fmt::format("$pulse{}", &curve - curves);
        data += name + " << END\n";
        for (std::size_t n = 0; n < curve.values.size(); ++n)
            data += fmt::format("{} {:.8g}\n", TimeOf(pulses, n), curve.values[n] * unit.perVolt);
        data += "END\n";
        plot += fmt::format(
            "{}{} with lines linewidth 2.5 linecolor '{}' title {}, {} every {} with points pointtype 7 pointsize 1.1 "
            "linecolor '{}' notitle",
            plot.empty() ? "plot " : ", ", name, curve.colour, Quoted(curve.name), name, pulses.valuesPerUi,
            curve.colour);
    }
    // Names as long as those of a fit fit beside each other only when gnuplot assumes less than their width.
    return data + CursorMark("graph 0", "graph 1") +
           fmt::format("set ylabel {}\nset yrange [{}:{}]\nset key above horizontal maxrows 1 samplen 2 width {}\n",
                       Quoted(YLabelOf(pulses, unit)), range.low * unit.perVolt, range.high * unit.perVolt,
                       pulses.source == Source::IdealSymbol ? 2 : -4) +
           plot + "\n";
}

}  // namespace

std::string TapsPicture(const std::string& prefix, const std::string& type, std::size_t index)
{
    return fmt::format("{}-{}-{}.png", prefix, type, index);
}

void DrawTaps(const std::filesystem::path& path, const TapFigure& figure, const std::string& title)
{
    if (figure.taps.values.empty())
        throw DataFailure(fmt::format("{}: \"{}\" has no taps to draw", path.string(), title));
    const UiAxis axis = AxisOf(figure);
    std::string script =
        Theme() + fmt::format(
                      "set multiplot layout {},1 title {} textcolor '#e8e8f0' font 'sans,14'\n"
                      "set lmargin 11\nset rmargin 3\nset grid noxtics\nset xzeroaxis linetype 1 linecolor '#a0a0b0'\n"
                      "set xrange [{}:{}]\nset xtics {}\n"
                      "set style textbox opaque noborder fillcolor '#101018' margins 0.4,0.4\n",
                      figure.pulses ? 2 : 1, Quoted(title), axis.first, axis.last,
                      std::max(1.0, std::ceil((axis.last - axis.first) / 16.0)));
    constexpr const char* kTime = "set xlabel 'time from the main cursor [UI]'\n";
    if (!figure.pulses)
        script += kTime;
    script += BarsPanel(figure.taps, axis);
    if (figure.pulses)
        script += kTime + PulsePanel(*figure.pulses);
    DrawPng(path, kTapsWidth, figure.pulses ? kTapsHeight : kBarsHeight, script + "unset multiplot\n");
}

}  // namespace Tarnwick::App
