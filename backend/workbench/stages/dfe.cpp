#include <algorithm>
#include <cmath>

#include "filters/filters/dfefilter.h"
#include "maths/equalisers/decisionfeedback.h"
#include "workbench/decisions.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/json.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Filters::DFEFilterParameters;

const std::vector<Field<DFEFilterParameters>>& DfeFields()
{
    constexpr const char* kFromDevice = "taken from the device; no effect here";
    static const std::vector<Field<DFEFilterParameters>> fields = {
        {"numberOfTaps", &DFEFilterParameters::numberOfTaps, "", "how many taps, at least 1",
         "with `useManualTaps` as many as `taps` has"},
        {"useManualTaps", &DFEFilterParameters::useManualTaps, "",
         "`taps` and `samplingDelayPs` are used; otherwise they are found"},
        {"taps", Setter<DFEFilterParameters>{&SetTaps<DFEFilterParameters>, "list of numbers"}, "main cursors",
         "what a symbol leaves in the symbols 1, 2, ... UI later", "none"},
        {"samplingDelayPs", &DFEFilterParameters::samplingDelayPs, "ps",
         "from the start of a repetition to its first decision"},
        {"ignoredUi", &DFEFilterParameters::ignoredUi, "UI",
         "left out at both ends of a repetition when taps are found"},
        {"samplesPerUi", &DFEFilterParameters::samplesPerUi, "samples", kFromDevice},
        {"withoutGrayCoding", &DFEFilterParameters::withoutGrayCoding, "", kFromDevice},
    };
    return fields;
}

// [samples] of the first decision.
double Instant(const DFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    const double samples =
        Maths::SamplesFromDelay(parameters.samplingDelayPs, parameters.samplesPerUi, config.baudRateGBd);
    const double delay = std::fmod(samples, parameters.samplesPerUi);
    return delay < 0.0 ? delay + parameters.samplesPerUi : delay;
}

StageTaps TapsOf(const DFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    StageTaps taps{.kind = StageTaps::Kind::Feedback, .values = parameters.taps};
    taps.values.resize(static_cast<std::size_t>(std::max(parameters.numberOfTaps, 0)), 0.0);
    for (std::size_t k = 0; k < taps.values.size(); ++k)
        taps.offsetsUi.push_back(static_cast<double>(k) + 1.0);
    taps.instantUi = Instant(parameters, config) / SamplesPerUiOf(config);
    return taps;
}

// Decisions and errors behind the filter, where the pattern's symbols are known. Without taps to find there is no
// sampling delay either.
Json DecisionsOf(const DFEFilterParameters& parameters, const DeviceConfiguration& config,
                 std::span<const double> filtered, ValidPart valid)
{
    const int levelCount = LevelCount(config.signalCoding);
    const bool hasDelay = parameters.useManualTaps || parameters.numberOfTaps > 0;
    if (!hasDelay || levelCount == 0 || config.patternSymbols.empty() ||
        config.patternSymbols.size() != static_cast<std::size_t>(config.patternLengthUi))
        return Json::Object();
    const auto ignored = static_cast<std::size_t>(std::ceil(static_cast<double>(valid.first) / SamplesPerUiOf(config)));
    const DecisionCount count =
        CountDecisions(filtered, LevelsOf(config.patternSymbols, config.signalCoding, config.withoutGrayCoding),
                       levelCount, SamplesPerUiOf(config), Instant(parameters, config), ignored);
    return {{"decisions", count.decisions}, {"errors", count.errors}};
}

std::string Findings(const DFEFilterParameters& parameters, const DeviceConfiguration& config,
                     std::span<const double> filtered, ValidPart valid)
{
    Json findings = {{"taps", parameters.taps}, {"samplingDelayPs", parameters.samplingDelayPs}};
    findings.SetAll(DecisionsOf(parameters, config, filtered, valid));
    return findings.SortedText();
}

StagePlan PlanDfe(const nlohmann::json& settings, const Place& place, DeviceConfiguration& config)
{
    auto owned = std::make_unique<DFEFilterParameters>(&config);
    ReadSettings(*owned, DfeFields(), settings, place);
    CountManualTaps(*owned, settings);
    RequireTaps(*owned, settings, place, config);
    DFEFilterParameters& parameters = *owned;
    StagePlan plan = PlanOf<Filters::DFEFilter>(std::move(owned), place);
    plan.stage.linear = false;
    plan.stage.adaptive = !parameters.useManualTaps;
    plan.stage.needsSymbols = plan.stage.adaptive && parameters.numberOfTaps > 0;
    plan.stage.spanUi =
        static_cast<std::size_t>(std::max(parameters.numberOfTaps, 0)) + 1;  // held half a UI either way
    plan.stage.ignoredUi = &parameters.ignoredUi;
    plan.stage.findings = [&](std::span<const double> filtered, ValidPart valid) {
        return Findings(parameters, config, filtered, valid);
    };
    plan.stage.taps = [&] { return TapsOf(parameters, config); };
    plan.claimedSamples = parameters.numberOfTaps;
    plan.claimedBy = "numberOfTaps";
    return plan;
}

}  // namespace

StageType DfeStage()
{
    return {"dfe", "decision-feedback equaliser", [] { return KeysOf(DfeFields(), DFEFilterParameters()); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> {
                return std::make_unique<DFEFilterParameters>();
            },
            &PlanDfe};
}

}  // namespace Tarnwick::DSO::Workbench
