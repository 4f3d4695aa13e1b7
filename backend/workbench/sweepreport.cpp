#include "workbench/sweepreport.h"

#include <algorithm>

#include <fmt/format.h>

#include "workbench/eyereport.h"
#include "workbench/plumbing/eyejson.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/text.h"

namespace Tarnwick::DSO::Workbench {

namespace {

Json ValuesOf(const SweepRun& run, std::span<const SweepAxis> axes)
{
    Json values;
    for (std::size_t k = 0; k < run.values.size(); ++k)
        values.Set(axes[k].path, Json::From(run.values[k]));
    return values;
}

}  // namespace

std::vector<std::string> ShortNamesOf(std::span<const SweepAxis> axes)
{
    std::vector<std::string> names;
    names.reserve(axes.size());
    for (const SweepAxis& axis : axes)
        names.push_back(SplitAt(axis.path, '.').back());
    if (names.size() == 2 && names[0] == names[1])
        for (std::size_t k = 0; k < names.size(); ++k)
            names[k] = axes[k].path;
    return names;
}

std::string CaptionOf(std::span<const std::string> names, std::span<const std::string> values)
{
    std::string caption;
    for (std::size_t k = 0; k < values.size(); ++k)
        caption +=
            fmt::format("{}{}{}{}", k == 0 ? "" : ", ", names[k], names[k].empty() ? "" : " ", PlainText(values[k]));
    return caption;
}

std::string SweepAsText(std::span<const SweepAxis> axes, std::span<const SweepRun> runs)
{
    const bool hasTdecq =
        std::any_of(runs.begin(), runs.end(), [](const SweepRun& run) { return run.tdecqDb.has_value(); });
    const auto opening = [](const SweepRun& run) {
        return run.eye.eyes.empty() ? "-" : fmt::format("{:.1f}", SmallestOf(run.eye, &EyeOpening::openingPercent));
    };
    std::vector<std::size_t> widths;
    std::string text = fmt::format("{:>5}", "rank");
    for (const SweepAxis& axis : axes) {
        std::size_t width = axis.path.size();
        for (const std::string& value : axis.values)
            width = std::max(width, PlainText(value).size());
        widths.push_back(width);
        text += fmt::format("  {:>{}}", axis.path, width);
    }
    text += fmt::format("  {:>9}  {:>8}  {:>11}{}  {:<16}  {}{}\n", "opening %", "width UI", "BER",
                        hasTdecq ? fmt::format("  {:>8}", "TDECQ dB") : "", "openings %", "eye heights V",
                        !runs.empty() && !runs.front().capture.empty() ? "  worst capture" : "");
    const auto tdecq = [&](const SweepRun& run) {
        return hasTdecq ? fmt::format("  {:>8}", run.tdecqDb ? fmt::format("{:.2f}", *run.tdecqDb) : "-") : "";
    };
    const auto capture = [](const SweepRun& run) { return run.capture.empty() ? "" : "  " + run.capture; };
    const auto columns = [&](const SweepRun& run) {
        std::string values;
        for (std::size_t k = 0; k < widths.size(); ++k)
            values += fmt::format("  {:>{}}", PlainText(run.values[k]), widths[k]);
        return values;
    };
    std::size_t rank = 0;
    for (const std::size_t index : Ranking(runs)) {
        const SweepRun& run = runs[index];
        text += fmt::format("{:>5}{}  {:>9}  {:>8}  {:>11}{}  {:<16}  {}{}\n", ++rank, columns(run), opening(run),
                            WidthText(SmallestOf(run.eye, &EyeOpening::widthUi)), BerText(run.eye.ber), tdecq(run),
                            OpeningsText(run.eye), HeightsText(run.eye), capture(run));
    }
    for (const SweepRun& run : runs)
        if (!run.error.empty())
            text += fmt::format("{:>5}{}  {}\n", "-", columns(run), run.error);
    return text;
}

std::string SweepAsJson(std::span<const SweepAxis> axes, std::span<const SweepRun> runs)
{
    Json list = Json::List();
    std::size_t rank = 0;
    for (const std::size_t index : Ranking(runs)) {
        const SweepRun& run = runs[index];
        Json entry = {{"rank", ++rank},
                      {"values", ValuesOf(run, axes)},
                      {"eyes", EyesToJson(run.eye)},
                      {"levels", run.eye.levels},
                      {"phaseUi", run.eye.phaseUi},
                      {"smallestOpeningPercent", nullptr},
                      {"smallestHeight", nullptr},
                      {"smallestWidthUi", nullptr}};
        AddErrorRatio(entry, run.eye);
        if (!run.eye.eyes.empty()) {
            entry.Set("smallestOpeningPercent", SmallestOf(run.eye, &EyeOpening::openingPercent));
            entry.Set("smallestHeight", SmallestOf(run.eye, &EyeOpening::height));
            if (const auto width = SmallestOf(run.eye, &EyeOpening::widthUi))
                entry.Set("smallestWidthUi", *width);
        }
        if (!run.capture.empty())
            entry.Set("worstCapture", run.capture);
        if (run.tdecqDb)
            entry.Set("tdecqDb", *run.tdecqDb);
        list.Add(std::move(entry));
    }
    for (const SweepRun& run : runs)
        if (!run.error.empty())
            list.Add({{"values", ValuesOf(run, axes)}, {"error", run.error}});
    Json paths = Json::List();
    for (const SweepAxis& axis : axes)
        paths.Add(axis.path);
    const Json report = {{"over", paths}, {"runs", list}};
    return report.Text(2);
}

}  // namespace Tarnwick::DSO::Workbench
