// The eyes of a sweep side by side.
#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "pictures/eyeplot.h"
#include "workbench/sweep.h"

namespace Tarnwick::App {

/// Keeps an image of each run as it ends: of all runs when the sheet has room for them, otherwise of the best so far.
/// A run that ends more than once, on several captures, keeps the worst.
class ContactSheet {
public:
    /// @param axes  outlives the sheet
    explicit ContactSheet(std::span<const DSO::Workbench::SweepAxis> axes);

    void Add(std::size_t run, const DSO::Workbench::SweepRun& result, std::span<const double> samples,
             double samplesPerUi);

    /// Whether it has room for all runs.
    bool HoldsAll() const { return !holdsBestOnly_; }

    /// All runs in their order, the best of them framed and refused ones empty; or the best runs, best first.
    /// @throws DataFailure  as for DrawPng
    void Draw(const std::filesystem::path& path, std::span<const DSO::Workbench::SweepRun> runs,
              const std::string& capture);

private:
    struct RunImage {
        std::size_t run;
        DSO::Workbench::SweepRun result;
        EyeImage image;
    };
    static bool IsBefore(const RunImage& a, const RunImage& b);
    std::string Title(const std::string& capture, std::size_t runCount) const;
    std::vector<std::string> CaptionNames() const;

    std::span<const DSO::Workbench::SweepAxis> axes_;
    bool holdsBestOnly_;
    SheetGrid grid_{};
    std::vector<RunImage> images_;
};

}  // namespace Tarnwick::App
