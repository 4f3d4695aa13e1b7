#include <cstddef>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "workbench/failure.h"
#include "workbench/lock.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/reportrows.h"
#include "workbench/plumbing/text.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

namespace {

const char* HowKnown(bool given)
{
    return given ? "given" : "found";
}

std::string ClockText(const LockReport& report)
{
    std::string text = fmt::format("{:.8g} ({}", report.samplesPerUi, HowKnown(report.samplesPerUiGiven));
    if (report.clockScore > 0.0)
        text += fmt::format(", clock's line {:.3g} times above its neighbourhood", report.clockScore);
    return text + ")";
}

std::string CodingText(const LockReport& report)
{
    if (report.coding == SIGNAL_CODING_UNKNOWN)
        return "not found: no levels can be made out";
    std::string text = fmt::format("{} ({})", NameOf(report.coding), HowKnown(report.codingGiven));
    if (report.levels.empty())
        return text + ", but no symbols can be made out";
    return text + fmt::format(", levels {} V", Joined(report.levels, "{:.4g}", " "));
}

std::string ModeText(const LockReport& report)
{
    if (report.mode == RecordKind::SingleShot)
        return "single shot: no period is proven, and its ends do not join";
    std::string text = fmt::format("periodic: {} whole period{} of {} UI ({})", report.repetitions,
                                   report.repetitions == 1 ? "" : "s", report.periodUi, HowKnown(report.periodGiven));
    if (report.seamRatio > 0.0)
        text += fmt::format(", seam {:.2g} times the interior", report.seamRatio);
    return text;
}

}  // namespace

void RequireLevels(const LockReport& report, const std::string& name)
{
    if (report.coding == SIGNAL_CODING_UNKNOWN)
        throw DataFailure(fmt::format("{}: no levels can be made out in it; give its coding", name));
}

std::string LockAsText(const LockReport& report)
{
    std::string text = ReportRow("samples per UI", ClockText(report));
    text += ReportRow("symbol rate", report.symbolRateGBd > 0.0 ? fmt::format("{:.8g} GBd", report.symbolRateGBd)
                                                                : "not known: the file has no times");
    if (!report.phaseUi.empty())
        text += ReportRow("clock phase", fmt::format("{:.2g} UI rms about a constant clock", report.phaseResidualUi));
    if (report.trackedUi > 0.0)
        text += ReportRow("tracked", fmt::format("{:.2g} UI rms taken off, {:.2g} UI rms left", report.trackedUi,
                                                 report.trackedResidualUi));
    text += ReportRow("record",
                      fmt::format("{} samples from sample {} on, {} per UI{}", report.samples, report.firstSample,
                                  report.samplesPerUiOut, report.resampled ? ", resampled" : ", as they were read"));
    text += ReportRow("coding", CodingText(report));
    text += ReportRow("pattern", report.pattern.empty() ? "not recognised" : report.pattern);
    text += ReportRow("kind", ModeText(report));
    if (report.leftOut > 0)
        text += ReportRow("left out", fmt::format("{} samples at the end", report.leftOut));
    if (report.removedNoiseRms > 0.0)
        text += ReportRow("averaging", fmt::format("took off {:.4g} V rms of noise", report.removedNoiseRms));
    return text;
}

std::string LockAsJson(const LockReport& report)
{
    const bool isPeriodic = report.mode == RecordKind::Periodic;
    const Json content = {{"symbolRateGBd", FoundOrNull(report.symbolRateGBd)},
                          {"samplesPerUi", report.samplesPerUi},
                          {"clockScore", FoundOrNull(report.clockScore)},
                          {"phaseResidualUi", report.phaseUi.empty() ? Json() : Json(report.phaseResidualUi)},
                          {"resampled", report.resampled},
                          {"samplesPerUiOut", report.samplesPerUiOut},
                          {"coding", report.coding == SIGNAL_CODING_UNKNOWN ? Json() : Json(NameOf(report.coding))},
                          {"levels", report.levels.empty() ? Json() : Json(report.levels)},
                          {"pattern", report.pattern.empty() ? Json() : Json(report.pattern)},
                          {"periodUi", report.periodUi > 0 ? Json(report.periodUi) : Json()},
                          {"mode", isPeriodic ? "periodic" : "single-shot"},
                          {"repetitions", report.repetitions},
                          {"firstSample", report.firstSample},
                          {"samples", report.samples},
                          {"warnings", report.warnings}};
    return content.Text(2);
}

}  // namespace Tarnwick::DSO::Workbench
