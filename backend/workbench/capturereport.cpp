#include "workbench/capturereport.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/plumbing/eyejson.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/reportrows.h"
#include "workbench/plumbing/text.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

namespace {

// Of the TDECQ, beyond the clause that defines it.
const std::vector<std::string>& Assumptions()
{
    static const std::vector<std::string> assumptions = {
        "the capture was taken behind the reference receiver, a fourth-order Bessel-Thomson response of half the "
        "symbol "
        "rate",
        "noise behind that receiver is white; the capture's own noise counts as part of the signal",
        "the symbols are those decided from the capture, the levels evenly spaced between the outer ones",
        "the target symbol error ratio is 4.8e-4 in two time slices 0.1 UI apart; the taps sum to 1, the largest is "
        "tap 1, "
        "2 or 3",
    };
    return assumptions;
}

Json ToJson(const LockReport& report)
{
    return Json::From(LockAsJson(report));
}

Json BathtubToJson(const EyeReport& report)
{
    Json list = Json::List();
    for (const BathtubPoint& point : report.bathtub) {
        Json openings = Json::List();
        for (const BathtubPoint::Opening& opening : point.openings)
            openings.Add({{"low", opening.low}, {"high", opening.high}});
        list.Add({{"offsetUi", point.offsetUi}, {"ber", point.ber}, {"openings", openings}});
    }
    return list;
}

}  // namespace

CaptureContent FindContent(const Waveform& capture, const CaptureFacts& facts, const std::string& name)
{
    CaptureContent content;
    content.sampleCount = capture.samples.size();
    content.interval = capture.interval;
    content.statistics = StatisticsOf(capture.samples);
    try {
        content.acquisition = Lock(capture, facts, name).report;
    } catch (const DataFailure& failure) {
        // Samples that are not finite have no statistics either.
        if (!AreFinite(capture.samples))
            throw;
        content.whyNoAcquisition = failure.what();
    }
    return content;
}

std::string ContentAsText(const CaptureContent& content)
{
    const SampleStatistics& statistics = content.statistics;
    return ReportRow("samples", fmt::format("{}", content.sampleCount)) +
           ReportRow("sample interval",
                     content.interval > 0.0 ? fmt::format("{:.6g} s", content.interval) : "not in the file") +
           ReportRow("range", fmt::format("{:.6g} to {:.6g} V", statistics.low, statistics.high)) +
           ReportRow("mean, rms", fmt::format("{:.6g} V, {:.6g} V", statistics.mean, statistics.rms)) +
           (content.acquisition ? LockAsText(*content.acquisition)
                                : ReportRow("acquisition", "none: " + content.whyNoAcquisition));
}

std::string ContentAsJson(const CaptureContent& content)
{
    const Json report = {{"samples", content.sampleCount},
                         {"interval", FoundOrNull(content.interval)},
                         {"min", content.statistics.low},
                         {"max", content.statistics.high},
                         {"mean", content.statistics.mean},
                         {"rms", content.statistics.rms},
                         {"acquisition", content.acquisition ? ToJson(*content.acquisition) : Json()},
                         {"whyNoAcquisition", content.acquisition ? Json() : Json(content.whyNoAcquisition)}};
    return report.Text(2);
}

std::string QualityAsText(const LockedCapture& capture, const SignalQuality& quality, ZeroVolts zero)
{
    const auto row = [](const char* name, const std::string& value) { return ReportRow(name, value); };
    std::string text = LockAsText(capture.report);
    if (quality.levelMismatchRatio)
        text += row("RLM", fmt::format("{:.4f}", *quality.levelMismatchRatio));
    text += EyeAsText(quality.eye, zero);
    if (!quality.equaliser)
        return text + row("TDECQ", "not measured: " + quality.whyNoTdecq);
    const ReferenceEqualiser& equaliser = *quality.equaliser;
    text += row("TDECQ", equaliser.leavesEyeClosed ? "the eye stays closed behind the reference equaliser"
                                                   : fmt::format("{:.2f} dB", equaliser.tdecqDb));
    text += row("  taps",
                fmt::format("{}, main cursor {}", Joined(equaliser.taps, "{:.5f}", " "), equaliser.mainCursor + 1));
    text += row("  OMA, noise V", fmt::format("{:.4g}, {:.4g} (noise gain {:.4f})", equaliser.oma, equaliser.noiseRms,
                                              equaliser.noiseGain));
    const char* heading = "  assuming that";
    for (const std::string& assumption : Assumptions())
        text += row(std::exchange(heading, ""), assumption);
    return text;
}

std::string QualityAsJson(const LockedCapture& capture, const SignalQuality& quality, ZeroVolts zero)
{
    const LockReport& acquisition = capture.report;
    Json report;
    report.Set("acquisition", ToJson(acquisition));
    report.Set("coding", NameOf(acquisition.coding));
    report.Set("samplesPerUi", acquisition.samplesPerUi);
    report.Set("patternLengthUi", acquisition.periodUi > 0 ? Json(acquisition.periodUi) : Json());
    report.Set("levels", quality.eye.levels);
    report.Set("eyes", EyesToJson(quality.eye));
    report.Set("phaseUi", quality.eye.phaseUi);
    AddErrorRatio(report, quality.eye);
    report.Set("oma", FoundOrNull(OuterModulationAmplitude(quality.eye)));
    const auto extinctionRatio = ExtinctionRatioDb(quality.eye);
    report.Set("extinctionRatioDb", zero == ZeroVolts::Dark ? Json(extinctionRatio) : Json());
    report.Set("targetBer", quality.eye.targetBer);
    report.Set("bathtub", BathtubToJson(quality.eye));
    for (const char* const key : {"symbolQuality", "rlm", "tdecqDb"})
        report.Set(key, nullptr);
    if (!capture.symbols.empty())
        report.Set("symbolQuality", acquisition.symbolQuality);
    if (quality.levelMismatchRatio)
        report.Set("rlm", *quality.levelMismatchRatio);
    if (const auto& equaliser = quality.equaliser) {
        report.Set("closed", equaliser->leavesEyeClosed);
        if (!equaliser->leavesEyeClosed)
            report.Set("tdecqDb", equaliser->tdecqDb);
        report.Set("taps", equaliser->taps);
        report.Set("mainCursor", equaliser->mainCursor + 1);
        report.Set("equalisedOma", equaliser->oma);
        report.Set("tolerableNoiseRms", equaliser->noiseRms);
        report.Set("noiseGain", equaliser->noiseGain);
        report.Set("assumptions", Assumptions());
    } else {
        report.Set("whyNoTdecq", quality.whyNoTdecq);
    }
    return report.Text(2);
}

}  // namespace Tarnwick::DSO::Workbench
