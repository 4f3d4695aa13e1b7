#include "filters/filters/sircfilter.h"
#include "workbench/plumbing/json.h"
#include "workbench/sirctable.h"
#include "workbench/stages/stages.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kChannels = 4;
constexpr std::size_t kReceivers = 3;  // of an optical channel

// SiRC takes its tables from the configuration. In a chain each filter has a configuration of its own, so that two filters
// on one channel can have different tables; every entry holds the same, whichever channel and receiver are chosen.
class SircStageParameters : public Filters::SircFilterParameters {
public:
    explicit SircStageParameters(DeviceConfiguration config) : SircFilterParameters(&own_), own_(std::move(config))
    {
        own_.electricalResponseTable.assign(kChannels, {});
        own_.oeResponseTable.assign(kChannels * kReceivers, {});
        own_.referenceTable.assign(kChannels, {});
        own_.channelBandwidths.resize(kChannels);
    }
    SircStageParameters(const SircStageParameters&) = delete;
    SircStageParameters& operator=(const SircStageParameters&) = delete;

    void ReadTables(std::vector<std::string>& notes)
    {
        const std::vector<double> response = Read(responseFile, notes);
        own_.electricalResponseTable.assign(kChannels, response);
        own_.oeResponseTable.assign(kChannels * kReceivers, response);
        if (!referenceFile.empty())
            own_.referenceTable.assign(kChannels, Read(referenceFile, notes));
    }
    /// The channel as this filter takes it.
    ChannelMeasurement Measurement(const Filters::SircFilter& filter) const
    {
        const double points = static_cast<double>(filter.generationParam2) * filter.generationParam3;
        return {own_.electricalResponseTable.front(), filter.generationParam3 / filter.generationBandwidth,
                (filter.baselineEndIndex + 1) / points, referenceCutoffPercent / 100.0 * own_.baudRateGBd * kGiga};
    }

    std::filesystem::path responseFile;
    std::filesystem::path referenceFile;  ///< empty: none

private:
    static std::vector<double> Read(const std::filesystem::path& file, std::vector<std::string>& notes)
    {
        SircTable table = ReadSircTable(file);
        notes.insert(notes.end(), table.notes.begin(), table.notes.end());
        return std::move(table.values);
    }

    DeviceConfiguration own_;
};

const std::vector<Field<SircStageParameters>>& SircFields()
{
    static const std::vector<Field<SircStageParameters>> fields = {
        {"channelResponse",
         Setter<SircStageParameters>{[](SircStageParameters& p, const nlohmann::json& value, const Place& place) {
                                         p.responseFile = FileFrom(value, place);
                                     },
                                     "file"},
         "", "measured impulse response of the channel", ""},
        {"channelReference",
         Setter<SircStageParameters>{[](SircStageParameters& p, const nlohmann::json& value, const Place& place) {
                                         p.referenceFile = FileFrom(value, place);
                                     },
                                     "file"},
         "", "measured impulse response of a reference receiver",
         "a Bessel-Thomson response of the channel's bandwidth"},
        {"referenceCutoffPercent", &SircStageParameters::referenceCutoffPercent, "% of the symbol rate",
         "cutoff of channel and correction together", ""},
        {"uiSamples", &SircStageParameters::uiSamples, "samples", "taken from the device; no effect here"},
    };
    return fields;
}

StagePlan PlanSirc(const nlohmann::json& settings, const Place& place, DeviceConfiguration& config)
{
    auto owned = std::make_unique<SircStageParameters>(config);
    ReadSettings(*owned, SircFields(), settings, place);
    SircStageParameters& parameters = *owned;
    StagePlan plan;
    plan.stage.parameters = std::move(owned);
    plan.complete = [&parameters, place](Stage& stage) {
        if (parameters.responseFile.empty())
            place.Below("channelResponse")
                .Fail("is missing; expected the file of the channel's measured impulse response");
        parameters.ReadTables(stage.notes);
        const auto& filter = MakeFilter<Filters::SircFilter>(stage, parameters, place);
        stage.findings = [&](std::span<const double>, ValidPart) {
            return Json{{"kernelLength", filter.kernelLength}}.SortedText();
        };
        stage.channel = parameters.Measurement(filter);
    };
    return plan;
}

}  // namespace

StageType SircStage()
{
    return {"sirc", "corrects the channel's measured response",
            [] { return KeysOf(SircFields(), SircStageParameters(DeviceConfiguration())); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> {
                return std::make_unique<Filters::SircFilterParameters>();
            },
            &PlanSirc};
}

}  // namespace Tarnwick::DSO::Workbench
