#include "pictures/contactsheet.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "workbench/sweepreport.h"

namespace Tarnwick::App {

using DSO::Workbench::CaptionOf;
using DSO::Workbench::ShortNamesOf;
using DSO::Workbench::SweepAxis;
using DSO::Workbench::SweepRun;

namespace {

constexpr std::size_t kMostImages = 64;
constexpr std::size_t kLongestRow = 12;  // a matrix of two axes with a longer row or column would be all length
constexpr int kLetterWidth = 9;          // [pixels] of a tile's title

}  // namespace

ContactSheet::ContactSheet(std::span<const SweepAxis> axes)
    : axes_(axes), holdsBestOnly_(CombinationsOf(axes) > kMostImages)
{
    const bool isMatrix = !holdsBestOnly_ && axes.size() == 2 && axes[1].values.size() <= kLongestRow &&
                          axes[0].values.size() <= kLongestRow;
    grid_ = GridFor(std::min(CombinationsOf(axes), kMostImages), isMatrix ? axes[1].values.size() : 0);
}

void ContactSheet::Add(std::size_t run, const SweepRun& result, std::span<const double> samples, double samplesPerUi)
{
    const auto before =
        std::find_if(images_.begin(), images_.end(), [&](const RunImage& image) { return image.run == run; });
    if (before != images_.end()) {
        if (IsBetter(before->result, result))
            *before = {run, result, ShadeTile(samples, samplesPerUi, result.eye.phaseUi, grid_)};
        return;
    }
    if (images_.size() == kMostImages) {
        const auto worst = std::max_element(images_.begin(), images_.end(), IsBefore);
        if (IsBefore(*worst, RunImage{run, result, {}}))
            return;
        images_.erase(worst);
    }
    images_.push_back({run, result, ShadeTile(samples, samplesPerUi, result.eye.phaseUi, grid_)});
}

void ContactSheet::Draw(const std::filesystem::path& path, std::span<const SweepRun> runs, const std::string& capture)
{
    std::erase_if(images_,
                  [&](const RunImage& image) { return !runs[image.run].error.empty(); });  // on another capture
    if (!holdsBestOnly_)
        for (std::size_t run = 0; run < runs.size(); ++run)
            if (!runs[run].error.empty())
                images_.push_back({run, runs[run], {}});
    const std::size_t best = std::min_element(images_.begin(), images_.end(), IsBefore)->run;
    std::sort(images_.begin(), images_.end(),
              [this](const RunImage& a, const RunImage& b) { return holdsBestOnly_ ? IsBefore(a, b) : a.run < b.run; });
    const std::vector<std::string> names = CaptionNames();
    std::vector<EyeTile> tiles;
    for (RunImage& image : images_) {
        EyeTile tile{CaptionOf(names, image.result.values), std::nullopt, std::move(image.image), false};
        if (!image.result.eye.eyes.empty()) {
            tile.openingPercent = SmallestOf(image.result.eye, &DSO::Workbench::EyeOpening::openingPercent);
            tile.isBest = image.run == best;
        }
        tiles.push_back(std::move(tile));
    }
    DrawEyeSheet(path, grid_, tiles, Title(capture, runs.size()));
}

bool ContactSheet::IsBefore(const RunImage& a, const RunImage& b)
{
    return IsBetter(a.result, b.result) || (!IsBetter(b.result, a.result) && a.run < b.run);
}

std::string ContactSheet::Title(const std::string& capture, std::size_t runCount) const
{
    std::string title = fmt::format("{}: {}", capture, axes_[0].path);
    if (axes_.size() == 2)
        title += " and " + axes_[1].path;
    if (holdsBestOnly_)
        title += fmt::format(", the best {} of {}, best first", images_.size(), runCount);
    return title;
}

// Empty ones when they would make a caption wider than its tile.
std::vector<std::string> ContactSheet::CaptionNames() const
{
    const auto room = static_cast<std::size_t>(grid_.tileWidth / kLetterWidth);
    std::vector<std::string> names = ShortNamesOf(axes_);
    if (std::any_of(images_.begin(), images_.end(),
                    [&](const RunImage& image) { return CaptionOf(names, image.result.values).size() > room; }))
        names.assign(names.size(), "");
    return names;
}

}  // namespace Tarnwick::App
