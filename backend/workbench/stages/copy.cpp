#include "filters/filters/copy.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

StageType CopyStage()
{
    using P = Filters::CopyParameters;
    return {"copy",
            "leaves the samples as they are",
            [] { return std::vector<ChainKey>(); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> { return std::make_unique<P>(); },
            [](const nlohmann::json& settings, const Place& place, DeviceConfiguration& config) {
                auto parameters = std::make_unique<P>(&config);
                ReadSettings(*parameters, {}, settings, place);
                return PlanOf<Filters::Copy>(std::move(parameters), place);
            },
            false};
}

}  // namespace Tarnwick::DSO::Workbench
