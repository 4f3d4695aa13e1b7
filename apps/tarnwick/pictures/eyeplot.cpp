#include "pictures/eyeplot.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "pictures/gnuplot.h"
#include "workbench/failure.h"

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;
using DSO::Workbench::DataFailure;
using DSO::Workbench::EyeImage;
using DSO::Workbench::EyeReport;
using DSO::Workbench::kEyeSpanUi;

constexpr std::size_t kColumns = 480;  // cells of a picture of one eye
constexpr std::size_t kRows = 320;
constexpr int kEyeWidth = 960;  // [pixels] two by two of a cell
constexpr int kEyeHeight = 640;
constexpr double kMillivoltRange = 0.5;  // [V] a smaller range is labelled in millivolts

// Commands common to all pictures of eyes.
std::string EyeTheme()
{
    std::string theme = Theme();
    theme +=
        "unset key\nunset colorbox\n"
        "set palette defined (0 '#101018', 0.15 '#14288c', 0.4 '#1e96c8', 0.65 '#50dc78', 0.85 '#ffe650', 1 "
        "'#ffffff')\n"
        "set cbrange [0:1]\n"
        "set style textbox opaque noborder fillcolor '#101018' margins 0.6,0.6\n"
        "set xrange [-1:1]\n";
    return theme;
}

std::string NoteOf(const EyeTile& tile)
{
    if (!tile.openingPercent)
        return tile.image.shades.empty() ? "no result" : "no eye";
    return fmt::format("{:.1f} % open", *tile.openingPercent);
}

// The command and the data behind it.
std::string PlotOf(const EyeImage& image, double perVolt)
{
    const double rowHeight = (image.range.high - image.range.low) / static_cast<double>(image.rows) * perVolt;
    std::string plot = fmt::format(
        "plot '-' binary array=({},{}) format='%float32' origin=({},{}) dx={} dy={} with image\n", image.columns,
        image.rows, -1.0 + 1.0 / static_cast<double>(image.columns), image.range.low * perVolt + 0.5 * rowHeight,
        kEyeSpanUi / static_cast<double>(image.columns), rowHeight);
    plot.append(reinterpret_cast<const char*>(image.shades.data()), image.shades.size() * sizeof(float));
    return plot + "\n";
}

// The symbol rate and what a slicer has of it in time, or in UI without a symbol rate.
std::string FiguresOf(const EyeReport& report)
{
    const bool isTimed = report.symbolRateGBd > 0.0;
    std::string text = isTimed ? fmt::format(", {:.6g} GBd", report.symbolRateGBd) : "";
    const auto isClosed = [](const auto& eye) { return !(eye.height > 0.0); };
    if (std::all_of(report.eyes.begin(), report.eyes.end(), isClosed))
        return text + (report.eyes.empty() ? "" : ", closed");
    if (!report.eyes.front().widthUi)
        return text;
    text += report.eyes.size() == 1 ? ", eye width" : ", eye widths";
    for (const DSO::Workbench::EyeOpening& eye : report.eyes)
        text += fmt::format(" {:.3g}", isTimed ? *eye.widthPs : *eye.widthUi);
    return text + (isTimed ? " ps" : " UI");
}

// What is left of an eye at the target error ratio, about the phase that leaves most.
std::string ContourOf(const EyeReport& report, std::size_t eye, double perVolt)
{
    const std::vector<DSO::Workbench::BathtubPoint>& points = report.bathtub;
    const auto heightOf = [&](std::size_t k) { return points[k].openings[eye].high - points[k].openings[eye].low; };
    std::size_t most = 0;
    for (std::size_t k = 1; k < points.size(); ++k)
        if (heightOf(k) > heightOf(most))
            most = k;
    if (points.empty() || !(heightOf(most) > 0.0))
        return "";
    std::string path;
    const auto append = [&](double offsetUi, double volt) {
        path += fmt::format("{}{},{}", path.empty() ? "from " : " to ", offsetUi, volt * perVolt);
    };
    // Where it closes, on a straight line from the last open phase to the first closed one.
    const auto appendEnd = [&](std::size_t open, std::size_t closed) {
        const double part = heightOf(open) / (heightOf(open) - heightOf(closed));
        const auto between = [&](double a, double b) { return a + part * (b - a); };
        const auto middle = [&](std::size_t k) {
            return 0.5 * (points[k].openings[eye].low + points[k].openings[eye].high);
        };
        append(between(points[open].offsetUi, points[closed].offsetUi), between(middle(open), middle(closed)));
    };
    std::size_t first = most;
    while (first > 0 && heightOf(first - 1) > 0.0)
        --first;
    std::size_t last = most;
    while (last + 1 < points.size() && heightOf(last + 1) > 0.0)
        ++last;
    if (first > 0)
        appendEnd(first, first - 1);
    for (std::size_t k = first; k <= last; ++k)
        append(points[k].offsetUi, points[k].openings[eye].high);
    if (last + 1 < points.size())
        appendEnd(last, last + 1);
    for (std::size_t k = last + 1; k-- > first;)
        append(points[k].offsetUi, points[k].openings[eye].low);
    const std::string start = path.substr(5, path.find(" to ") - 5);
    return fmt::format("set object polygon {} to {} front fillstyle empty border linecolor '#ff9040' linewidth 1.5\n",
                       path, start);
}

}  // namespace

VoltageUnit UnitFor(VoltageRange range)
{
    return range.high - range.low < kMillivoltRange ? VoltageUnit{1e3, "mV"} : VoltageUnit{1.0, "V"};
}

void DrawEye(const fs::path& path, std::span<const double> samples, double samplesPerUi, const EyeReport& report,
             VoltageRange range, const std::string& title)
{
    const VoltageUnit unit = UnitFor(range);
    std::string script = EyeTheme() + "set title " + Quoted(title + FiguresOf(report)) + "\n";
    script += "set xlabel 'time from the measuring phase [UI]'\n";
    script += fmt::format("set ylabel 'voltage [{}]'\nset yrange [{}:{}]\n", unit.name, range.low * unit.perVolt,
                          range.high * unit.perVolt);
    std::string contours;
    for (std::size_t eye = 0; eye < report.eyes.size(); ++eye) {
        const double middle = report.eyes[eye].threshold;
        const double height = report.eyes[eye].height;
        if (height > 0.0)
            script +=
                fmt::format("set arrow from 0,{} to 0,{} heads size 0.015,25 front linecolor '#ff6060' linewidth 1.5\n",
                            (middle - 0.5 * height) * unit.perVolt, (middle + 0.5 * height) * unit.perVolt);
        script += fmt::format("set label '{}{:.4g} {} ({:.1f} %)' at -0.97,{} front left boxed textcolor '#ffb0b0'\n",
                              height > 0.0 ? "" : "closed ", height * unit.perVolt, unit.name,
                              report.eyes[eye].openingPercent, middle * unit.perVolt);
        contours += ContourOf(report, eye, unit.perVolt);
    }
    script += contours;
    if (!contours.empty())
        script += fmt::format(
            "set label 'contour: what is left at a bit error ratio of {:g}' at graph 0.985,0.04 right front boxed "
            "textcolor "
            "'#ff9040'\n",
            report.targetBer);
    const EyeImage image = ShadeBetween(samples, samplesPerUi, report.phaseUi, range, kColumns, kRows);
    if (image.shades.empty())
        throw DataFailure(
            fmt::format("{}: a sample of \"{}\" is not finite; there is no eye to draw", path.string(), title));
    script += PlotOf(image, unit.perVolt);
    DrawPng(path, kEyeWidth, kEyeHeight, script);
}

SheetGrid GridFor(std::size_t tiles, std::size_t columns)
{
    constexpr int kSheetWidth = 1600;  // [pixels]
    constexpr int kNarrowestTile = 180;
    constexpr int kWidestTile = 440;
    if (columns == 0)
        columns = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(tiles))));
    const int width = std::clamp(kSheetWidth / static_cast<int>(columns), kNarrowestTile, kWidestTile);
    return {(tiles + columns - 1) / columns, columns, width, width * 7 / 10};
}

EyeImage ShadeTile(std::span<const double> samples, double samplesPerUi, double phaseUi, const SheetGrid& grid)
{
    const std::size_t columns = static_cast<std::size_t>(grid.tileWidth) / 4 * 2;
    const std::size_t rows = static_cast<std::size_t>(grid.tileHeight) / 2;
    return ShadeEye(samples, samplesPerUi, phaseUi, RangeOf(samples), columns, rows);
}

void DrawEyeSheet(const fs::path& path, const SheetGrid& grid, std::span<const EyeTile> tiles, const std::string& title)
{
    // [pixels] Room for the labels around the tiles, and in a tile for its title and the gap to the next.
    constexpr int kLeft = 80;
    constexpr int kRight = 16;
    constexpr int kTop = 48;
    constexpr int kBottom = 64;
    constexpr int kTitle = 26;
    constexpr int kGap = 12;
    const int width = kLeft + kRight + static_cast<int>(grid.columns) * grid.tileWidth;
    const int height = kTop + kBottom + static_cast<int>(grid.rows) * grid.tileHeight;

    std::optional<VoltageRange> shown;
    for (const EyeTile& tile : tiles) {
        const VoltageRange range = tile.image.range;
        if (!tile.image.shades.empty())
            shown = shown ? VoltageRange{std::min(shown->low, range.low), std::max(shown->high, range.high)} : range;
    }
    const VoltageRange range = shown.value_or(VoltageRange{0.0, 1.0});
    const VoltageUnit unit = UnitFor(range);

    std::string script = EyeTheme() + "set multiplot\n";
    script += fmt::format("set yrange [{}:{}]\n", range.low * unit.perVolt, range.high * unit.perVolt);
    script += "set tics font ',9'\nset xtics -1,0.5 add ('' 1)\n";
    script += fmt::format("set label 1 {} at screen 0.5,{} center front font ',14' textcolor '#e8e8f0'\n",
                          Quoted(title), 1.0 - 0.5 * kTop / height);
    script += fmt::format(
        "set label 2 'time from the measuring phase [UI]' at screen 0.5,{} center front textcolor '#e8e8f0'\n",
        20.0 / height);
    script += fmt::format("set label 3 'voltage [{}]' at screen {},0.5 center rotate front textcolor '#e8e8f0'\n",
                          unit.name, 18.0 / width);
    for (std::size_t k = 0; k < tiles.size(); ++k) {
        const EyeTile& tile = tiles[k];
        const auto column = static_cast<int>(k % grid.columns);
        const auto row = static_cast<int>(k / grid.columns);
        const bool isLowest = k + grid.columns >= tiles.size();
        const int left = kLeft + column * grid.tileWidth;
        const int top = kTop + row * grid.tileHeight;
        script += fmt::format("set lmargin at screen {}\nset rmargin at screen {}\n", static_cast<double>(left) / width,
                              static_cast<double>(left + grid.tileWidth - kGap) / width);
        script += fmt::format("set tmargin at screen {}\nset bmargin at screen {}\n",
                              1.0 - static_cast<double>(top + kTitle) / height,
                              1.0 - static_cast<double>(top + grid.tileHeight) / height);
        script += fmt::format("set format y '{}'\nset format x '{}'\n", column == 0 ? "%g" : "", isLowest ? "%g" : "");
        script += fmt::format("set border linecolor '{}' linewidth {}\n", tile.isBest ? "#ffe650" : "#a0a0b0",
                              tile.isBest ? 3 : 1);
        script += fmt::format("set title {} offset 0,-0.7 font ',11' textcolor '{}'\n", Quoted(tile.title),
                              tile.isBest ? "#ffe650" : "#e8e8f0");
        script += fmt::format("set label 4 {} at graph 0.04,0.09 left front boxed font ',10' textcolor '#ffb0b0'\n",
                              Quoted(NoteOf(tile)));
        script += !tile.image.shades.empty() ? PlotOf(tile.image, unit.perVolt) : std::string("plot NaN\n");
        if (k == 0)
            script += "unset label 1\nunset label 2\nunset label 3\n";
    }
    script += "unset multiplot\n";
    DrawPng(path, width, height, script);
}

}  // namespace Tarnwick::App
