#include "filters/filters/ctlefilter.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using P = Filters::CTLEFilterParameters;

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

void SetCtleType(P& parameters, const nlohmann::json& value, const Place& place)
{
    parameters.type = RowFrom(kCtleNames, value, place).type;
}

const std::vector<Field<P>>& Fields()
{
    constexpr const char* kDerived = "derived by the filter; no effect here";
    static const std::vector<Field<P>> fields = {
        {"ctleType", Setter<P>{&SetCtleType, "text"}, "", "form of the response", "peaking", NamesOf(kCtleNames)},
        {"gain", &P::gain, "dB",
         "`peaking`, `hdmi2.0`: gain at half the symbol rate over DC; `hdmi`: level 1 to 8, without unit; "
         "`ieee802.3bs`: preset 1.0 to 9.0 in steps of 0.5; `oif-cei-112g`: g_DC"},
        {"gain2", &P::gain2, "dB", "`oif-cei-112g`: g_DC2"},
        {"pole1", &P::pole1, "GHz", "`oif-cei-112g`: first pole"},
        {"pole2", &P::pole2, "GHz", "`oif-cei-112g`: second pole"},
        {"zero1", &P::zero1, "GHz", "`oif-cei-112g`: zero"},
        {"zero2", &P::zero2, "GHz", "`oif-cei-112g`: low-frequency pole and zero"},
        {"outputScale", &P::outputScale, "", "`oif-cei-112g`: factor of every output sample"},
        {"pole3", &P::pole3, "rad/s", kDerived},
        {"dcGain", &P::dcGain, "", kDerived},
        {"dcGain2", &P::dcGain2, "dB", kDerived},
        {"peakingRatio", &P::peakingRatio, "", kDerived},
        {"samplesPerUi", &P::samplesPerUi, "samples", "taken from the device; no effect here"},
    };
    return fields;
}

// Settings with which the filter answers zeros.
void RefuseZeros(const P& parameters, const nlohmann::json& settings, const Place& place,
                 const DeviceConfiguration& config)
{
    constexpr double kHdmiLevels = 8.0;
    if (!settings.value("enabled", true))
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
    return {"ctle", "continuous-time linear equaliser", [] { return KeysOf(Fields(), P()); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> { return std::make_unique<P>(); },
            [](const nlohmann::json& settings, const Place& place, DeviceConfiguration& config) {
                auto parameters = std::make_unique<P>(&config);
                ReadSettings(*parameters, Fields(), settings, place);
                RefuseZeros(*parameters, settings, place, config);
                return PlanOf<Filters::CTLEFilter>(std::move(parameters), place);
            }};
}

}  // namespace Tarnwick::DSO::Workbench
