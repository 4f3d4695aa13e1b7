#include "filters/filters/besselthomson.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using P = Filters::BesselThomsonParameters;

const std::vector<Field<P>>& Fields()
{
    static const std::vector<Field<P>> fields = {
        {"order", &P::order, "", "order of the Bessel polynomial, 1 to 16"},
        {"cutoffPercent", &P::cutoffPercent, "% of the symbol rate", "cutoff"},
        {"cutoffFrequency", &P::cutoffFrequency, "Hz", "carried; no effect"},
    };
    return fields;
}

}  // namespace

StageType BesselThomsonStage()
{
    return {"bessel-thomson", "reference receiver: a Bessel-Thomson low-pass", [] { return KeysOf(Fields(), P()); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> { return std::make_unique<P>(); },
            [](const nlohmann::json& settings, const Place& place, DeviceConfiguration& config) {
                auto parameters = std::make_unique<P>(&config);
                ReadSettings(*parameters, Fields(), settings, place);
                return PlanOf<Filters::BesselThomson>(std::move(parameters), place);
            }};
}

}  // namespace Tarnwick::DSO::Workbench
