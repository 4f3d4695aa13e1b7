#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

std::span<const StageType> StageTypes()
{
    static const StageType types[] = {CopyStage(), MovingAverageStage(), BesselThomsonStage(), CtleStage(),
                                      FfeStage(),  DfeStage(),           DeEmbeddingStage(),   SircStage()};
    return types;
}

const std::vector<Field<SystemFramework::BaseFilterParameters>>& CommonFields()
{
    using P = SystemFramework::BaseFilterParameters;
    static const std::vector<Field<P>> fields = {
        {"type",
         Setter<P>{[](P&, const nlohmann::json& value, const Place& place) { (void)TextFrom(value, place); }, "text"},
         "", "which filter", ""},
        {"enabled",
         Setter<P>{[](P&, const nlohmann::json& value, const Place& place) { (void)FlagFrom(value, place); },
                   "true or false"},
         "", "false leaves the filter out", "true"},
        {"channel", &P::channel, "", "channel of the instrument, 0 to 3"},
        {"preserveNoise", &P::preserveNoise, "",
         "keep the noise above a corner frequency at its level before the filter; a `deembedding` that adds does so "
         "only "
         "when told"},
        {"noiseCornerFrequency", &P::noiseCornerFrequency, "Hz", "where that begins: above the signal's own content"},
        {"noiseSecondParameter", &P::noiseSecondParameter, "Hz", "`deembedding`: where it ends"},
    };
    return fields;
}

}  // namespace Tarnwick::DSO::Workbench
