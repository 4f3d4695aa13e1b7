#include "pictures/bathtubplot.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "pictures/gnuplot.h"
#include "workbench/failure.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::BathtubPoint;
using DSO::Workbench::DataFailure;

constexpr int kWidth = 960;  // [pixels]
constexpr int kHeight = 640;
constexpr double kLowest = 1e-15;  // shown; below, a curve leaves the picture
constexpr double kLabelAt = 0.12;  // of the width, for the target: right of an open eye's wall
constexpr const char* kColours[] = {"#4cc9f0", "#ffe650", "#ff9040", "#50dc78"};

}  // namespace

void DrawBathtub(const std::filesystem::path& path, std::span<const BathtubCurve> curves, const std::string& title)
{
    std::string data;
    std::string plot;
    double target = 0.0;
    double first = 0.0;  // [UI] of the axis
    double last = 0.0;
    double rate = 0.0;
    for (std::size_t k = 0; k < curves.size(); ++k) {
        if (curves[k].eye.bathtub.empty())
            continue;
        target = curves[k].eye.targetBer;
        rate = curves[k].eye.symbolRateGBd;
        first = std::min(first, curves[k].eye.bathtub.front().offsetUi);
        last = std::max(last, curves[k].eye.bathtub.back().offsetUi);
        data += fmt::format("$curve{} << END\n", k);
        for (const BathtubPoint& point : curves[k].eye.bathtub)
            data += fmt::format("{} {}\n", point.offsetUi, std::max(point.ber, kLowest * kLowest));
        data += "END\n";
        plot +=
            fmt::format("{}$curve{} using 1:2 with lines linewidth 2.5 linecolor '{}' title {}",
                        plot.empty() ? "plot " : ", ", k, kColours[k % std::size(kColours)], Quoted(curves[k].name));
    }
    if (plot.empty())
        throw DataFailure(fmt::format("{}: \"{}\" has no eyes; there is no bathtub to draw", path.string(), title));
    const std::string script =
        Theme() + data +
        fmt::format(
            "set title {}\nset bmargin 5\nset key below horizontal samplen 3 width 2\nset xlabel 'time from the "
            "measuring phase "
            "[UI]'\n"
            "set ylabel 'bit error ratio'\nset xrange [{}:{}]\nset logscale y\nset yrange [{}:1]\n"
            "set format y '%.0e'\nset ytics 1e3\n"
            "set arrow from {},{} to {},{} nohead front linecolor '#ff6060' linewidth 1 dashtype 2\n"
            "set label '{:g}' at {},{} offset 0,0.6 front left textcolor '#ffb0b0'\n"
            "set arrow from 0,graph 0 to 0,graph 1 nohead front linecolor '#b0b0c0' linewidth 1 dashtype 2\n",
            Quoted(rate > 0.0 ? fmt::format("{}, {:.6g} GBd", title, rate) : title), first, last, kLowest, first,
            target, last, target, target, first + kLabelAt * (last - first), target) +
        plot + "\n";
    DrawPng(path, kWidth, kHeight, script);
}

}  // namespace Tarnwick::App
