#include "filters/filters/ctlefilter.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Filters::CTLEFilterParameters;

struct CtleName {
    const char* name;
    CTLE_Type type;
};

constexpr CtleName kCtleNames[] = {
    {"peaking", CTLE_PEAKING},
    {"hdmi", CTLE_HDMI},
    {"hdmi2.0", CTLE_HDMI_2_0},
    {"ieee802.3bs", CTLE_IEEE802_3bs},
    {"oif-cei-112g", CTLE_OIF_CEI_112G_LINEAR_PAM4},
};

void SetCtleType(CTLEFilterParameters& parameters, const nlohmann::json& value, const Place& place)
{
    parameters.type = RowFrom(kCtleNames, value, place).type;
}

const std::vector<Field<CTLEFilterParameters>>& CtleFields()
{
    constexpr const char* kDerived = "derived by the filter; no effect here";
    static const std::vector<Field<CTLEFilterParameters>> fields = {
        {"ctleType", Setter<CTLEFilterParameters>{&SetCtleType, "text"}, "", "form of the response", "peaking",
         NamesOf(kCtleNames)},
        {"gain", &CTLEFilterParameters::gain, "dB",
         "`peaking`, `hdmi2.0`: gain at half the symbol rate over DC; `hdmi`: level 1 to 8, without unit; "
         "`ieee802.3bs`: preset 1.0 to 9.0 in steps of 0.5; `oif-cei-112g`: g_DC"},
        {"gain2", &CTLEFilterParameters::gain2, "dB", "`oif-cei-112g`: g_DC2"},
        {"pole1", &CTLEFilterParameters::pole1, "GHz", "`oif-cei-112g`: first pole"},
        {"pole2", &CTLEFilterParameters::pole2, "GHz", "`oif-cei-112g`: second pole"},
        {"zero1", &CTLEFilterParameters::zero1, "GHz", "`oif-cei-112g`: zero"},
        {"zero2", &CTLEFilterParameters::zero2, "GHz", "`oif-cei-112g`: low-frequency pole and zero"},
        {"outputScale", &CTLEFilterParameters::outputScale, "", "`oif-cei-112g`: factor of every output sample"},
        {"pole3", &CTLEFilterParameters::pole3, "rad/s", kDerived},
        {"dcGain", &CTLEFilterParameters::dcGain, "", kDerived},
        {"dcGain2", &CTLEFilterParameters::dcGain2, "dB", kDerived},
        {"peakingRatio", &CTLEFilterParameters::peakingRatio, "", kDerived},
        {"samplesPerUi", &CTLEFilterParameters::samplesPerUi, "samples", "taken from the device; no effect here"},
    };
    return fields;
}

// Settings with which the filter answers zeros.
void RefuseZeros(const CTLEFilterParameters& parameters, const nlohmann::json& settings, const Place& place,
                 const DeviceConfiguration& config)
{
    constexpr double kHdmiLevels = 8.0;
    if (!IsEnabled(settings))
        return;
    if (config.useFractionalSampling && config.samplesPerUi < 1)
        Place{place.file, "device.samplesPerUi"}.Fail(
            fmt::format("is {}; expected at least 1: {} counts by it, with fractional sampling too",
                        config.samplesPerUi, place.key));
    if (parameters.type == CTLE_HDMI && !(parameters.gain >= 1.0 && parameters.gain <= kHdmiLevels))
        place.Below("gain").Fail(fmt::format("is {}; expected a level from 1 to {}", parameters.gain, kHdmiLevels));
    if (parameters.type == CTLE_OIF_CEI_112G_LINEAR_PAM4 && parameters.outputScale == 0.0)
        place.Below("outputScale").Fail("is 0; expected another number, as the output would be zeros");
}

}  // namespace

StageType CtleStage()
{
    return {"ctle", "continuous-time linear equaliser", [] { return KeysOf(CtleFields(), CTLEFilterParameters()); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> {
                return std::make_unique<CTLEFilterParameters>();
            },
            [](const nlohmann::json& settings, const Place& place, DeviceConfiguration& config) {
                auto parameters = std::make_unique<CTLEFilterParameters>(&config);
                ReadSettings(*parameters, CtleFields(), settings, place);
                RefuseZeros(*parameters, settings, place, config);
                return PlanOf<Filters::CTLEFilter>(std::move(parameters), place);
            }};
}

}  // namespace Tarnwick::DSO::Workbench
