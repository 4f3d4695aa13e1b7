#include "filters/filters/movingaveragesmoothingfilter.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Filters::MovingAverageWindowSmoothingParameters;

constexpr int kDefaultWindow = 3;  // [samples] the shortest that the filter uses

const std::vector<Field<MovingAverageWindowSmoothingParameters>>& MovingAverageFields()
{
    static const std::vector<Field<MovingAverageWindowSmoothingParameters>> fields = {
        {"WindowLength", &MovingAverageWindowSmoothingParameters::WindowLength, "samples",
         "length of the average; rounded up to an odd number of at least 3"},
    };
    return fields;
}

std::unique_ptr<MovingAverageWindowSmoothingParameters> NewParameters()
{
    // Without the configuration the whole record is smoothed with the centred window; with one, a record of several
    // repetitions would be smoothed with half of it.
    return std::make_unique<MovingAverageWindowSmoothingParameters>(kDefaultWindow);
}

}  // namespace

StageType MovingAverageStage()
{
    return {"moving-average",
            "centred moving average",
            [] { return KeysOf(MovingAverageFields(), *NewParameters()); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> { return NewParameters(); },
            [](const nlohmann::json& settings, const Place& place, DeviceConfiguration&) {
                auto parameters = NewParameters();
                ReadSettings(*parameters, MovingAverageFields(), settings, place);
                return PlanOf<Filters::MovingAverageSmoothingFilter>(std::move(parameters), place);
            },
            false};
}

}  // namespace Tarnwick::DSO::Workbench
