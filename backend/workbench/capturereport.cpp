#include "workbench/capturereport.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/eyereport.h"
#include "workbench/plumbing/eyejson.h"
#include "workbench/plumbing/reportrows.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::ordered_json;

// Of the TDECQ, beyond the clause that defines it.
constexpr const char* kAssumptions[] = {
    "the capture was taken behind the reference receiver, a fourth-order Bessel-Thomson response of half the symbol "
    "rate",
    "noise behind that receiver is white; the capture's own noise counts as part of the signal",
    "the symbols are those decided from the capture, the levels evenly spaced between the outer ones",
    "the target symbol error ratio is 4.8e-4 in two time slices 0.1 UI apart; the taps sum to 1, the largest is tap 1, "
    "2 or 3",
};

constexpr int kContentNameWidth = 18;

ordered_json ToJson(const std::optional<Estimate>& estimate)
{
    if (!estimate)
        return nullptr;
    return {{"value", estimate->value}, {"confidence", NameOf(estimate->confidence)}};
}

std::string PeriodText(const CaptureContent& content)
{
    if (!content.period)
        return "not found: the record holds one repetition or less, or none";
    const double period = content.period->value;
    std::string text = fmt::format("{} samples", period);
    if (content.samplesPerUi)
        text += fmt::format(" = {:.6g} UI", period / content.samplesPerUi->value);
    return text + fmt::format(" ({}), {:.6g} repetitions", NameOf(content.period->confidence),
                              static_cast<double>(content.sampleCount) / period);
}

ordered_json BathtubToJson(const EyeReport& report)
{
    ordered_json list = ordered_json::array();
    for (const BathtubPoint& point : report.bathtub) {
        ordered_json openings = ordered_json::array();
        for (const BathtubPoint::Opening& opening : point.openings)
            openings.push_back({{"low", opening.low}, {"high", opening.high}});
        list.push_back({{"offsetUi", point.offsetUi}, {"ber", point.ber}, {"openings", openings}});
    }
    return list;
}

}  // namespace

std::string ContentAsText(const CaptureContent& content)
{
    const auto row = [](const char* name, const std::string& value) {
        return ReportRow(name, value, kContentNameWidth);
    };
    const SampleStatistics& statistics = content.statistics;
    return row("samples", fmt::format("{}", content.sampleCount)) +
           row("sample interval",
               content.interval > 0.0 ? fmt::format("{:.6g} s", content.interval) : "not in the file") +
           row("range", fmt::format("{:.6g} to {:.6g} V", statistics.low, statistics.high)) +
           row("mean, rms", fmt::format("{:.6g} V, {:.6g} V", statistics.mean, statistics.rms)) +
           row("samples per UI", content.samplesPerUi ? fmt::format("{:.6g} ({})", content.samplesPerUi->value,
                                                                    NameOf(content.samplesPerUi->confidence))
                                                      : "not found") +
           row("symbol rate",
               content.symbolRateGBd > 0.0 ? fmt::format("{:.6g} GBd", content.symbolRateGBd) : "not found") +
           row("pattern period", PeriodText(content)) +
           row("levels", content.levels.empty()
                             ? "not found: no level stands apart from the next"
                             : fmt::format("{}: {:.5g} V", content.levels.size(), fmt::join(content.levels, ", ")));
}

std::string ContentAsJson(const CaptureContent& content)
{
    const ordered_json report = {{"samples", content.sampleCount},
                                 {"interval", FoundOrNull(content.interval)},
                                 {"min", content.statistics.low},
                                 {"max", content.statistics.high},
                                 {"mean", content.statistics.mean},
                                 {"rms", content.statistics.rms},
                                 {"samplesPerUi", ToJson(content.samplesPerUi)},
                                 {"symbolRateGBd", FoundOrNull(content.symbolRateGBd)},
                                 {"period", ToJson(content.period)},
                                 {"levels", content.levels}};
    return report.dump(2);
}

std::string QualityAsText(const SignalQuality& quality, const SignalDescription& signal, ZeroVolts zero)
{
    const auto row = [](const char* name, const std::string& value) { return ReportRow(name, value); };
    const EyeReport& eye = quality.eye;
    std::string text =
        row("coding", NameOf(signal.coding)) + row("samples per UI", fmt::format("{:.6g}", signal.samplesPerUi)) +
        row("pattern", signal.patternLengthUi > 0 ? fmt::format("{} UI", signal.patternLengthUi) : "length not known") +
        row("symbols", quality.symbols ? quality.symbols->Description(signal.coding) : "not found");
    if (quality.levelMismatchRatio)
        text += row("RLM", fmt::format("{:.4f}", *quality.levelMismatchRatio));
    text += EyeAsText(eye, zero);
    if (!quality.equaliser)
        return text + row("TDECQ", "not measured: " + quality.whyNoTdecq);
    const ReferenceEqualiser& equaliser = *quality.equaliser;
    text += row("TDECQ", equaliser.leavesEyeClosed ? "the eye stays closed behind the reference equaliser"
                                                   : fmt::format("{:.2f} dB", equaliser.tdecqDb));
    text +=
        row("  taps", fmt::format("{:.5f}, main cursor {}", fmt::join(equaliser.taps, " "), equaliser.mainCursor + 1));
    text += row("  OMA, noise V", fmt::format("{:.4g}, {:.4g} (noise gain {:.4f})", equaliser.oma, equaliser.noiseRms,
                                              equaliser.noiseGain));
    const char* heading = "  assuming that";
    for (const char* const assumption : kAssumptions)
        text += row(std::exchange(heading, ""), assumption);
    return text;
}

std::string QualityAsJson(const SignalQuality& quality, const SignalDescription& signal, ZeroVolts zero)
{
    ordered_json report = {{"coding", NameOf(signal.coding)},           {"samplesPerUi", signal.samplesPerUi},
                           {"patternLengthUi", signal.patternLengthUi}, {"levels", quality.eye.levels},
                           {"eyes", EyesToJson(quality.eye)},           {"phaseUi", quality.eye.phaseUi}};
    AddErrorRatio(report, quality.eye);
    report["oma"] = FoundOrNull(OuterModulationAmplitude(quality.eye));
    const auto extinctionRatio = ExtinctionRatioDb(quality.eye);
    report["extinctionRatioDb"] =
        zero == ZeroVolts::Dark && extinctionRatio ? ordered_json(*extinctionRatio) : ordered_json();
    report["targetBer"] = quality.eye.targetBer;
    report["bathtub"] = BathtubToJson(quality.eye);
    for (const char* const key : {"symbolQuality", "rlm", "tdecqDb"})
        report[key] = nullptr;
    if (quality.symbols)
        report["symbolQuality"] = quality.symbols->quality;
    if (quality.levelMismatchRatio)
        report["rlm"] = *quality.levelMismatchRatio;
    if (const auto& equaliser = quality.equaliser) {
        report["closed"] = equaliser->leavesEyeClosed;
        if (!equaliser->leavesEyeClosed)
            report["tdecqDb"] = equaliser->tdecqDb;
        report["taps"] = equaliser->taps;
        report["mainCursor"] = equaliser->mainCursor + 1;
        report["equalisedOma"] = equaliser->oma;
        report["tolerableNoiseRms"] = equaliser->noiseRms;
        report["noiseGain"] = equaliser->noiseGain;
        report["assumptions"] = kAssumptions;
    } else {
        report["whyNoTdecq"] = quality.whyNoTdecq;
    }
    return report.dump(2);
}

}  // namespace Tarnwick::DSO::Workbench
