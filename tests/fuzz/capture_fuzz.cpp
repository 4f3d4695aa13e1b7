// The host program's readers of captures and of measured impulse responses on any bytes, and the acquisition of what they
// read. The first byte chooses what the file is, the lines to skip, a column, and facts.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "workbench/eye.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/lock.h"
#include "workbench/sirctable.h"
#include "workbench/waveform.h"

namespace {

using namespace Tarnwick::DSO::Workbench;

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// Found, or with facts that may be wrong.
void LockIt(const Waveform& capture, unsigned choice)
{
    CaptureFacts facts;
    if (choice % 2 == 1) {
        facts.samplesPerUi = 1.0 + 0.25 * (choice / 2 % 32);
        facts.patternLengthUi = static_cast<int>(choice % 7);
        facts.average = choice % 5 == 0;
    }
    try {
        const LockedCapture locked = Lock(capture, facts, "capture");
        Require(!locked.samples.empty() && locked.samples.size() == locked.report.samples);
        for (const double sample : locked.samples)
            Require(std::isfinite(sample));
        (void)LockAsText(locked.report);
        if (locked.report.coding != SIGNAL_CODING_UNKNOWN)
            (void)EyeAsJson(locked, MeasureEyes(locked.samples, EyeSettingsOf(locked)));
    } catch (const DataFailure&) {  // NOLINT(bugprone-empty-catch): a refusal is an answer
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned kind = data[0] / 64;
    const char* const names[][4] = {{"c.csv", "c.npy", "c.csv", "c.npy"},
                                    {"c.csv", "c.txt", "c.csv", "c.txt"},
                                    {"c.csv.gz", "c.npy.gz", "c.f32.gz", "c.gz"},
                                    {"c.f32", "c.f64", "c.i16", "c.i16"}};
    const std::string name = names[kind][data[0] % 4];
    WaveformOptions options;
    if (data[0] / 2 % 4 > 0)
        options.skipLines = data[0] / 2 % 4;
    options.column = kind == 1 ? "2" : "";
    const std::string_view content(reinterpret_cast<const char*>(data + 1), size - 1);
    try {
        Waveform read = WaveformFrom(content, name, options);
        // The shortest samples are a digit and a newline, or two bytes.
        Require(!read.samples.empty());
        Require(kind == 2 || read.samples.size() <= (content.size() + 1) / 2);
        for (const double sample : read.samples)
            Require(std::isfinite(sample));
        Require(std::isfinite(read.interval) && read.interval >= 0.0 && std::isfinite(read.start));
        LockIt(read, data[0] + static_cast<unsigned>(content.size()));
        Require(!TableOf(std::move(read), "capture").values.empty());
    } catch (const DataFailure&) {   // NOLINT(bugprone-empty-catch): a refusal is an answer
    } catch (const UsageFailure&) {  // NOLINT(bugprone-empty-catch): of a column that there is not
    }
    return 0;
}
