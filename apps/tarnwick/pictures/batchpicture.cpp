#include "pictures/batchpicture.h"

#include <span>

#include "framework/filenames.h"
#include "pictures/eyeplot.h"
#include "workbench/eye.h"
#include "workbench/eyeimage.h"

namespace Tarnwick::App {

namespace fs = std::filesystem;
using DSO::Workbench::BatchJob;
using DSO::Workbench::BatchPicture;
using DSO::Workbench::EyeReport;

fs::path BatchPictureFile(const fs::path& folder, const std::string& name)
{
    return folder / DSO::PathOf(name + ".png");
}

BatchPicture BatchPictureIn(const fs::path& folder)
{
    return
        [folder](const BatchJob& job, std::span<const double> samples, double samplesPerUi, const EyeReport& report) {
            DrawEye(BatchPictureFile(folder, job.name), samples, samplesPerUi, report, RangeOf(samples),
                    DSO::FileNameOf(job.capture));
        };
}

}  // namespace Tarnwick::App
