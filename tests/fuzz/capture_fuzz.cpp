// The host program's readers of captures and of measured impulse responses on any bytes. The first byte chooses text or
// .npy and the lines to skip.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "workbench/failure.h"
#include "workbench/sirctable.h"
#include "workbench/waveform.h"

namespace {

using namespace Tarnwick::DSO::Workbench;

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const bool isNpy = data[0] % 2 == 1;
    const std::size_t skipLines = data[0] / 2 % 4;
    const std::string_view content(reinterpret_cast<const char*>(data + 1), size - 1);
    try {
        Waveform read = WaveformFrom(content, isNpy ? "capture.npy" : "capture.csv", skipLines);
        // The shortest samples are a digit and a newline, or four bytes.
        Require(!read.samples.empty() && read.samples.size() <= (content.size() + 1) / 2);
        for (const double sample : read.samples)
            Require(std::isfinite(sample));
        Require(std::isfinite(read.interval) && read.interval >= 0.0 && std::isfinite(read.start));
        Require(!TableOf(std::move(read), "capture").values.empty());
    } catch (const DataFailure&) {  // NOLINT(bugprone-empty-catch): a refusal is an answer
    }
    return 0;
}
