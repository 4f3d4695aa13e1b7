#include "filters/filters/besselthomson.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Filters::BesselThomsonParameters;

const std::vector<Field<BesselThomsonParameters>>& BesselThomsonFields()
{
    static const std::vector<Field<BesselThomsonParameters>> fields = {
        {"order", &BesselThomsonParameters::order, "", "order of the Bessel polynomial, 1 to 16"},
        {"cutoffPercent", &BesselThomsonParameters::cutoffPercent, "% of the symbol rate", "cutoff"},
        {"cutoffFrequency", &BesselThomsonParameters::cutoffFrequency, "Hz", "carried; no effect"},
    };
    return fields;
}

}  // namespace

StageType BesselThomsonStage()
{
    return {"bessel-thomson", "reference receiver: a Bessel-Thomson low-pass",
            [] { return KeysOf(BesselThomsonFields(), BesselThomsonParameters()); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> {
                return std::make_unique<BesselThomsonParameters>();
            },
            [](const nlohmann::json& settings, const Place& place, DeviceConfiguration& config) {
                auto parameters = std::make_unique<BesselThomsonParameters>(&config);
                ReadSettings(*parameters, BesselThomsonFields(), settings, place);
                return PlanOf<Filters::BesselThomson>(std::move(parameters), place);
            }};
}

}  // namespace Tarnwick::DSO::Workbench
