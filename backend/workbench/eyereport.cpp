#include "workbench/eyereport.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "maths/patterns/leveldecisions.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/eyejson.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/reportrows.h"
#include "workbench/plumbing/text.h"

namespace Tarnwick::DSO::Workbench {

namespace {

// One figure of each eye, lowest first; "-" without eyes.
template <typename Figure>
std::string EachEye(const EyeReport& report, const char* format, Figure figure)
{
    std::string text;
    for (const EyeOpening& eye : report.eyes)
        text += fmt::format("{}{}", text.empty() ? "" : " ", fmt::format(fmt::runtime(format), figure(eye)));
    return text.empty() ? "-" : text;
}

std::string QText(const EyeOpening& eye)
{
    return std::isfinite(eye.q) ? fmt::format("{:.3g}", eye.q) : "unbounded";
}

std::string ExtinctionText(const EyeReport& report)
{
    const auto ratio = ExtinctionRatioDb(report);
    return ratio ? fmt::format("{:.2f} dB", *ratio) : "none: the lowest level is not above 0 V";
}

// The error ratio in so many digits; smaller ones than 1e-30 stand for nothing that could ever be counted.
std::string RatioText(double ratio, int digits)
{
    constexpr double kSmallest = 1e-30;
    return ratio > 0.0 && ratio < kSmallest ? fmt::format("below {:g}", kSmallest)
                                            : fmt::format("{:.{}g}", ratio, digits);
}

// At every tenth of a UI that it reaches; the JSON report has all phases.
std::string BathtubText(const EyeReport& report)
{
    constexpr int kTenths = 10;  // to either side, at most
    constexpr double kNear = 0.01;
    std::string text;
    for (int tenth = -kTenths; tenth <= kTenths; ++tenth) {
        const double offset = 0.1 * tenth;
        const auto nearest = std::min_element(report.bathtub.begin(), report.bathtub.end(),
                                              [&](const BathtubPoint& a, const BathtubPoint& b) {
                                                  return std::abs(a.offsetUi - offset) < std::abs(b.offsetUi - offset);
                                              });
        if (nearest != report.bathtub.end() && std::abs(nearest->offsetUi - offset) < kNear)
            text +=
                fmt::format("{}{:+.2f} {}", text.empty() ? "" : ", ", nearest->offsetUi, RatioText(nearest->ber, 2));
    }
    return text;
}

}  // namespace

Json EyesToJson(const EyeReport& report)
{
    Json eyes = Json::List();
    for (const EyeOpening& eye : report.eyes)
        eyes.Add({{"height", eye.height},
                  {"openingPercent", eye.openingPercent},
                  {"widthUi", eye.widthUi},
                  {"widthPs", eye.widthPs},
                  {"threshold", eye.threshold},
                  {"heightAtBer", eye.heightAtBer},
                  {"q", eye.q}});
    return eyes;
}

void AddErrorRatio(Json& target, const EyeReport& report)
{
    target.Set("ber", report.ber);
    target.Set("noiseRms", report.noiseRms);
    target.Set("symbolsKnown", report.symbolsKnown);
    target.Set("valid", {{"first", report.valid.first}, {"count", report.valid.count}});
}

std::string HeightsText(const EyeReport& report)
{
    return EachEye(report, "{:.4g}", [](const EyeOpening& one) { return one.height; });
}

std::string WidthsText(const EyeReport& report)
{
    return report.eyes.empty() || !report.eyes.front().widthUi
               ? "-"
               : EachEye(report, "{:.4g}", [](const EyeOpening& one) { return *one.widthUi; });
}

std::string WidthText(std::optional<double> widthUi)
{
    return widthUi ? fmt::format("{:.4f}", *widthUi) : "-";
}

std::string OpeningsText(const EyeReport& report)
{
    return EachEye(report, "{:.1f}", [](const EyeOpening& one) { return one.openingPercent; });
}

std::string BerText(std::optional<double> ber)
{
    return ber ? RatioText(*ber, 2) : "-";
}

std::string EyeAsText(const EyeReport& report, ZeroVolts zero)
{
    std::string text = ReportRow("levels V", report.levels.empty() ? "-" : Joined(report.levels, "{:.4g}", " "));
    if (!report.levels.empty())
        text += ReportRow("OMA V", fmt::format("{:.4g}", OuterModulationAmplitude(report)));
    if (zero == ZeroVolts::Dark)
        text += ReportRow("extinction ratio", ExtinctionText(report));
    text += ReportRow("eye openings %", OpeningsText(report)) +
            ReportRow("eye widths UI", report.eyes.empty() || report.eyes.front().widthUi
                                           ? WidthsText(report)
                                           : "not known: fewer than 2 samples per UI");
    if (!report.eyes.empty() && report.eyes.front().widthPs)
        text +=
            ReportRow("eye widths ps", EachEye(report, "{:.4g}", [](const EyeOpening& one) { return *one.widthPs; }));
    text += ReportRow("eye heights V", HeightsText(report));
    if (!report.eyes.empty()) {
        text +=
            ReportRow("thresholds V", EachEye(report, "{:.4g}", [](const EyeOpening& one) { return one.threshold; })) +
            ReportRow("phase UI", fmt::format("{:.3f}, symbols {}", report.phaseUi,
                                              report.symbolsKnown
                                                  ? "found"
                                                  : "decided from the samples, which flatters an eye that is closed")) +
            ReportRow("Q", EachEye(report, "{}", QText));
    }
    if (report.ber) {
        text += ReportRow("noise rms V", fmt::format("{:.4g}", *report.noiseRms)) +
                ReportRow("BER", BerText(report.ber)) +
                ReportRow(fmt::format("heights at {:g}", report.targetBer),
                          EachEye(report, "{:.4g}", [](const EyeOpening& one) { return *one.heightAtBer; }));
    }
    if (!report.bathtub.empty())
        text += ReportRow("bathtub UI, BER", BathtubText(report));
    return text;
}

EyeSettings EyeSettingsOf(const LockedCapture& capture)
{
    const LockReport& report = capture.report;
    EyeSettings settings{.samplesPerUi = static_cast<double>(report.samplesPerUiOut),
                         .levelCount = LevelCount(report.coding),
                         .symbolRateGBd = report.symbolRateGBd};
    settings.holdsWaveform = report.samplesPerUi >= kFewestSamplesPerUi;
    settings.pattern = capture.symbols;
    settings.circular = report.mode == RecordKind::Periodic;
    // The symbols at the ends of a single shot were decided without all of their neighbours.
    const std::size_t ends = Maths::kEqualiserReachUi * static_cast<std::size_t>(report.samplesPerUiOut);
    if (!settings.circular && capture.samples.size() > 4 * ends)
        settings.valid = ValidPart{ends, capture.samples.size() - 2 * ends};
    if (settings.circular && report.repetitions > 1 && report.removedNoiseRms == 0.0)
        settings.periodUi = static_cast<std::size_t>(report.periodUi);
    return settings;
}

std::string EyeAsJson(const LockedCapture& capture, const EyeReport& report)
{
    Json stage = {
        {"name", "capture"},       {"samples", capture.samples.size()}, {"repetitions", capture.report.repetitions},
        {"levels", report.levels}, {"eyes", EyesToJson(report)},        {"phaseUi", report.phaseUi}};
    AddErrorRatio(stage, report);
    Json content;
    content.Set("acquisition", Json::From(LockAsJson(capture.report)));
    Json stages = Json::List();
    stages.Add(std::move(stage));
    content.Set("stages", std::move(stages));
    return content.Text(2);
}

EyeSettings EyeSettingsOf(const Chain& chain)
{
    const DeviceConfiguration& device = chain.Device();
    EyeSettings settings{.samplesPerUi = chain.SamplesPerUi(),
                         .levelCount = LevelCount(device.signalCoding),
                         .symbolRateGBd = device.baudRateGBd};
    settings.pattern = LevelsOf(device.patternSymbols, device.signalCoding, device.withoutGrayCoding);
    if (device.patternRepeats > 1 && device.patternLengthUi > 0)
        settings.periodUi = static_cast<std::size_t>(device.patternLengthUi);
    return settings;
}

}  // namespace Tarnwick::DSO::Workbench
