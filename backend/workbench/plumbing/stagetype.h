// What a type of stage consists of, and what the files of stages/ have in common.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "workbench/chain.h"
#include "workbench/plumbing/fields.h"

namespace Tarnwick::DSO::Workbench {

/// A stage as its settings describe it, before the files that they name are read.
struct StagePlan {
    Stage stage;  ///< with its parameters, without its filter
    /// Samples whose memory the filter takes, whatever the record, and the settings that make it so.
    double claimedSamples = 0.0;
    const char* claimedBy = "";
    /// Reads the files and makes the filter.
    /// @throws UsageFailure  @throws DataFailure  naming the place or the file
    std::function<void(Stage& stage)> complete;
};

struct StageType {
    const char* name;  ///< as in the file
    const char* meaning;
    /// Its own keys, without those that every filter takes.
    std::vector<ChainKey> (*keys)();
    std::unique_ptr<SystemFramework::BaseFilterParameters> (*defaults)();
    /// @param config  of the chain; outlives the stage
    StagePlan (*plan)(const nlohmann::json& settings, const Place& place, DeviceConfiguration& config);
    bool needsTiming = true;  ///< it needs to know the UI, or the length of the pattern
};

/// The keys that every filter takes.
const std::vector<Field<SystemFramework::BaseFilterParameters>>& CommonFields();

/// Sets the parameters' fields from the keys.
template <typename Parameters>
void ReadSettings(Parameters& parameters, const std::vector<Field<Parameters>>& own, const nlohmann::json& settings,
                  const Place& place)
{
    ForEachMember(settings, [&](const std::string& name, const nlohmann::json& value) {
        const Place here = place.Below(name);
        if (const auto* field = FindField(own, name)) {
            SetField(parameters, *field, value, here);
        } else if (const auto* common = FindField(CommonFields(), name)) {
            SetField<SystemFramework::BaseFilterParameters>(parameters, *common, value, here);
        } else {
            std::vector<std::string> known;
            AppendNames(own, known);
            AppendNames(CommonFields(), known);
            RefuseUnknownKey(name, known, place);
        }
    });
}

/// Makes the stage's filter on its parameters, which it may refuse.
template <typename Filter, typename Parameters>
Filter& MakeFilter(Stage& stage, Parameters& parameters, const Place& place)
{
    try {
        stage.filter = std::make_unique<Filter>(&parameters);
    } catch (const PatternLockFailed& failure) {
        place.Fail<NoPatternLockFailure>(failure.what());
    } catch (const std::exception& failure) {
        place.Fail(failure.what());
    }
    return static_cast<Filter&>(*stage.filter);
}

/// The plan of a filter that reads no files and finds nothing, on parameters that have read their settings.
template <typename Filter, typename Parameters>
StagePlan PlanOf(std::unique_ptr<Parameters> parameters, const Place& place)
{
    StagePlan plan;
    plan.complete = [&own = *parameters, place](Stage& stage) { MakeFilter<Filter>(stage, own, place); };
    plan.stage.parameters = std::move(parameters);
    return plan;
}

/// Setter for the list of an equaliser's taps.
template <typename Parameters>
void SetTaps(Parameters& parameters, const nlohmann::json& value, const Place& place)
{
    parameters.taps = NumbersFrom(value, place);
}

/// With manual taps there are as many as are given, unless the settings say otherwise.
template <typename Parameters>
void CountManualTaps(Parameters& parameters, const nlohmann::json& settings)
{
    if (parameters.useManualTaps && !Has(settings, "numberOfTaps"))
        parameters.numberOfTaps = static_cast<std::int32_t>(parameters.taps.size());
}

/// An equaliser that is switched on needs taps: without them it would write zeros or change nothing.
/// @throws UsageFailure  naming the key
template <typename Parameters>
void RequireTaps(const Parameters& parameters, const nlohmann::json& settings, const Place& place,
                 const DeviceConfiguration& config)
{
    if (!IsEnabled(settings))
        return;
    const std::int32_t count = parameters.numberOfTaps;
    const bool isCounted = Has(settings, "numberOfTaps");
    if (count < 1 && (isCounted || !parameters.useManualTaps))
        place.Below("numberOfTaps")
            .Fail(fmt::format(
                "is {}; expected at least 1{}", isCounted ? std::to_string(count) : "missing",
                Has(settings, "taps") && !parameters.useManualTaps ? " (taps count with useManualTaps)" : ""));
    const auto& taps = parameters.taps;
    const auto used = taps.begin() + std::min<std::ptrdiff_t>(count, static_cast<std::ptrdiff_t>(taps.size()));
    if (parameters.useManualTaps && std::all_of(taps.begin(), used, [](double tap) { return tap == 0.0; }))
        place.Below("taps").Fail("hold no number other than 0; expected at least one");
    const std::string& symbols = config.patternSymbols;
    if (!parameters.useManualTaps && !symbols.empty() && symbols.find_first_not_of(symbols[0]) == std::string::npos)
        Place{place.file, "device.patternSymbols"}.Fail(
            fmt::format("hold \"{}\" alone; {} finds its taps by different ones", symbols[0], place.key));
}

}  // namespace Tarnwick::DSO::Workbench
