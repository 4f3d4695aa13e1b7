#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "filters/filters/ffefilter.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/json.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Filters::FFEFilterParameters;

const std::vector<Field<FFEFilterParameters>>& FfeFields()
{
    constexpr const char* kFromDevice = "taken from the device; no effect here";
    static const std::vector<Field<FFEFilterParameters>> fields = {
        {"numberOfTaps", &FFEFilterParameters::numberOfTaps, "", "how many taps, at least 1",
         "with `useManualTaps` as many as `taps` has"},
        {"tapsPerUi", &FFEFilterParameters::tapsPerUi, "", "taps in a UI, 1 to `samplesPerUi`"},
        {"mainCursorPosition", &FFEFilterParameters::mainCursorPosition, "",
         "place of the main cursor among the taps, from 1; 0: searched"},
        {"useTdecqEqualizer", &FFEFilterParameters::useTdecqEqualizer, "",
         "the TDECQ reference equaliser instead of least-squares taps"},
        {"fitAtSamplingPhase", &FFEFilterParameters::fitAtSamplingPhase, "",
         "least squares where a receiver samples, once a UI, instead of over the whole waveform"},
        {"dfeTaps", &FFEFilterParameters::dfeTaps, "",
         "`fitAtSamplingPhase`: taps of the `dfe` behind, to which the fit leaves what they take off"},
        {"ridge", &FFEFilterParameters::ridge, "",
         "`fitAtSamplingPhase`: added to the diagonal of its equations, which is 1, where they are ill-posed"},
        {"ignoredUi", &FFEFilterParameters::ignoredUi, "UI", "left out at both ends of the record when taps are found"},
        {"useManualTaps", &FFEFilterParameters::useManualTaps, "", "`taps` are used; otherwise they are found"},
        {"taps", Setter<FFEFilterParameters>{&SetTaps<FFEFilterParameters>, "list of numbers"}, "",
         "the taps, first to last", "none"},
        {"quantizeTaps", &FFEFilterParameters::quantizeTaps, "", "taps are reported as steps of `tapResolution`"},
        {"tapResolution", &FFEFilterParameters::tapResolution, "", "steps in the sum of the taps' magnitudes"},
        {"samplesPerUi", &FFEFilterParameters::samplesPerUi, "samples", kFromDevice},
        {"withoutGrayCoding", &FFEFilterParameters::withoutGrayCoding, "", kFromDevice},
        {"useUserPattern", &FFEFilterParameters::useUserPattern, "", kFromDevice},
        {"spareFlag", &FFEFilterParameters::spareFlag, "", "carried; no effect"},
    };
    return fields;
}

std::unique_ptr<FFEFilterParameters> NewParameters(DeviceConfiguration* config)
{
    auto parameters = std::make_unique<FFEFilterParameters>(config);
    parameters->tapsPerUi = 1;  // the usual equaliser, where the chain does not say
    return parameters;
}

std::ptrdiff_t LargestTap(const FFEFilterParameters& parameters)
{
    const auto& taps = parameters.appliedTaps;
    return std::max_element(taps.begin(), taps.end(), [](double a, double b) { return std::abs(a) < std::abs(b); }) -
           taps.begin();
}

std::string Findings(const FFEFilterParameters& parameters, const Filters::FFEFilter& filter)
{
    Json findings = {{"taps", parameters.taps}, {"appliedTaps", parameters.appliedTaps}};
    if (!parameters.appliedTaps.empty())
        findings.Set("mainCursor", LargestTap(parameters) + 1);
    if (std::isfinite(filter.residualError))
        findings.Set("residualError", filter.residualError);
    if (std::isfinite(filter.conditionNumber)) {
        findings.Set("conditionNumber", filter.conditionNumber);
        findings.Set("samplingPhaseUi", filter.samplingPhaseUi);
        findings.Set("fitConstant", filter.fitConstant);
    }
    if (!filter.feedbackTaps.empty())
        findings.Set("feedbackTaps", filter.feedbackTaps);
    return findings.SortedText();
}

// A symbol-spaced reference equaliser, or taps a whole number of samples apart.
double SpacingUi(const FFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    if (parameters.useTdecqEqualizer)
        return 1.0;
    const std::int32_t samples = parameters.samplesPerUi / std::max(parameters.tapsPerUi, 1);
    return samples / SamplesPerUiOf(config);
}

StageTaps TapsOf(const FFEFilterParameters& parameters, const Filters::FFEFilter& filter,
                 const DeviceConfiguration& config)
{
    StageTaps taps{.values = parameters.appliedTaps};
    const double spacing = SpacingUi(parameters, config);
    const auto cursor = static_cast<double>(LargestTap(parameters));
    for (std::size_t k = 0; k < taps.values.size(); ++k)
        taps.offsetsUi.push_back((static_cast<double>(k) - cursor) * spacing);
    taps.delayUi = cursor * spacing;
    if (std::isfinite(filter.samplingPhaseUi))
        taps.instantUi = filter.samplingPhaseUi;
    return taps;
}

// From the first tap to the last, whole UI.
std::size_t SpanUi(const FFEFilterParameters& parameters)
{
    const std::int32_t perUi = parameters.useTdecqEqualizer ? 1 : std::max(parameters.tapsPerUi, 1);
    return static_cast<std::size_t>(std::max((std::max(parameters.numberOfTaps, 1) + perUi - 2) / perUi, 1));
}

StagePlan PlanFfe(const nlohmann::json& settings, const Place& place, DeviceConfiguration& config)
{
    auto owned = NewParameters(&config);
    ReadSettings(*owned, FfeFields(), settings, place);
    CountManualTaps(*owned, settings);
    RequireTaps(*owned, settings, place, config);
    FFEFilterParameters& parameters = *owned;
    StagePlan plan;
    plan.stage.parameters = std::move(owned);
    plan.stage.adaptive = !parameters.useManualTaps;
    plan.stage.spanUi = SpanUi(parameters);
    plan.stage.ignoredUi = &parameters.ignoredUi;
    plan.stage.needsSymbols = plan.stage.adaptive;
    plan.claimedSamples = parameters.numberOfTaps * std::max(SamplesPerUiOf(config), 1.0);
    plan.claimedBy = "numberOfTaps * samplesPerUi";
    plan.complete = [&parameters, &config, place](Stage& stage) {
        const auto& filter = MakeFilter<Filters::FFEFilter>(stage, parameters, place);
        stage.findings = [&](std::span<const double>, ValidPart) { return Findings(parameters, filter); };
        stage.taps = [&] { return TapsOf(parameters, filter, config); };
    };
    return plan;
}

}  // namespace

StageType FfeStage()
{
    return {"ffe", "feed-forward equaliser", [] { return KeysOf(FfeFields(), *NewParameters(nullptr)); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> { return NewParameters(nullptr); },
            &PlanFfe};
}

}  // namespace Tarnwick::DSO::Workbench
