#include "filters/filters/ctlefilter.h"

#include <cmath>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include "filters/plumbing/channel.h"
#include "filters/plumbing/frequencygrid.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/responses/ctle.h"
#include "maths/responses/rounding.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::OwnedArray;
using SystemFramework::Refuse;
using SystemFramework::RequireFinite;
using SystemFramework::SignalData;
using SystemFramework::TextOf;
using Complex = std::complex<double>;

namespace {

constexpr const char* kCtleFilter = "CTLEFilter";
constexpr double kLargestCableGain = 20.0;  // [dB]

struct Input {
    const char* name;
    double CTLEFilterParameters::*field;
};

template <std::size_t Count>
void RequireFiniteInputs(const CTLEFilterParameters& parameters, const Input (&inputs)[Count])
{
    for (const Input& input : inputs)
        RequireFinite(kCtleFilter, input.name, parameters.*input.field, "a finite number");
}

void RequireGain(const CTLEFilterParameters& parameters)
{
    RequireFinite(kCtleFilter, "gain", parameters.gain, "a finite number");
}

void RequireCableGain(const CTLEFilterParameters& parameters)
{
    if (!(std::abs(parameters.gain) <= kLargestCableGain))
        Refuse(kCtleFilter, "gain", TextOf(parameters.gain) + " dB", "-20 to 20 dB at half the symbol rate");
}

const Maths::Ieee802_3bsPreset& PresetOf(const CTLEFilterParameters& parameters)
{
    const Maths::Ieee802_3bsPreset* preset = Maths::FindIeee802_3bsPreset(parameters.gain);
    if (preset == nullptr) {
        std::string keys;
        for (const Maths::Ieee802_3bsPreset& row : Maths::kIeee802_3bsPresets)
            keys += (keys.empty() ? "" : ", ") + TextOf(row.keyDb);
        Refuse(kCtleFilter, "gain", TextOf(parameters.gain) + " dB", "one of the presets " + keys + " dB");
    }
    return *preset;
}

void RequirePreset(const CTLEFilterParameters& parameters)
{
    PresetOf(parameters);
}

void RequireOifInputs(const CTLEFilterParameters& parameters)
{
    using P = CTLEFilterParameters;
    RequireFiniteInputs(parameters, {{"gain", &P::gain},
                                     {"gain2", &P::gain2},
                                     {"outputScale", &P::outputScale},
                                     {"pole1", &P::pole1},
                                     {"pole2", &P::pole2},
                                     {"zero1", &P::zero1},
                                     {"zero2", &P::zero2}});
}

double RefreshedSamplesPerUi(const CTLEFilterParameters& parameters)
{
    const DeviceConfiguration* config = parameters.GetConfig();
    return config != nullptr && parameters.IsDirty() ? RealSamplesPerUi(*config) : parameters.samplesPerUi;
}

}  // namespace

// A variant: what it reads, how its poles, zeros and gains come from the settings, and its response.
struct CTLEFilter::Variant {
    CTLE_Type type;
    void (*check)(const CTLEFilterParameters& parameters);
    void (CTLEFilter::*derive)(CTLEFilterParameters* parameters);
    std::vector<double> (CTLEFilter::*build)(CTLEFilterParameters* parameters);
};

const CTLEFilter::Variant& CTLEFilter::VariantOf(CTLE_Type type)
{
    using F = CTLEFilter;
    static constexpr Variant kVariants[] = {
        {CTLE_PEAKING, RequireGain, &F::GetCTLEFilterParams, &F::GetCTLEFilter},
        {CTLE_HDMI, RequireGain, &F::GetCtleParams_HDMI, &F::GetCTLEFilter},
        {CTLE_HDMI_2_0, RequireCableGain, nullptr, &F::GetCTLEFilter_HDMI_2_0},
        {CTLE_IEEE802_3bs, RequirePreset, &F::GetCTLEFilter_IEEE802_3bs_PolesAndZeros, &F::GetCTLEFilter_IEEE802_3bs},
        {CTLE_OIF_CEI_112G_LINEAR_PAM4, RequireOifInputs, &F::GetCTLEFilter_OIF_CEI_112G_LINEAR_PAM4Params,
         &F::GetCTLEFilter_OIF_CEI_112G_LINEAR_PAM4},
    };
    for (const Variant& variant : kVariants)
        if (variant.type == type)
            return variant;
    return kVariants[CTLE_PEAKING];
}

CTLEFilterParameters::CTLEFilterParameters() = default;

CTLEFilterParameters::CTLEFilterParameters(CTLE_Type type, double samplesPerUI, double gain, bool preserveNoise,
                                           double noiseFrequency, double pole1, double pole2, double pole3,
                                           double zero1, double zero2, double dcGain, double dcGain2,
                                           double /*peakingRatio*/)
    : samplesPerUi(samplesPerUI),
      gain(gain),
      type(type),
      pole1(pole1),
      pole2(pole2),
      pole3(pole3),
      zero1(zero1),
      zero2(zero2),
      dcGain(dcGain),
      dcGain2(dcGain),
      peakingRatio(dcGain2)
{
    this->preserveNoise = preserveNoise;
    noiseCornerFrequency = noiseFrequency;
}

CTLEFilterParameters::CTLEFilterParameters(DeviceConfiguration* config) : BaseFilterParameters(config) {}

CTLEFilter::CTLEFilter() = default;

CTLEFilter::CTLEFilter(CTLEFilterParameters* parameters)
{
    RequirePatternLock(kCtleFilter, parameters);
    this->parameters = parameters;
    if (const DeviceConfiguration* config = parameters->GetConfig())
        parameters->samplesPerUi = RealSamplesPerUi(*config);
}

CTLEFilter& CTLEFilter::operator=(const CTLEFilter& other)
{
    // Whatever allocates comes before the first change.
    std::map<int, double> levels(other.levelMap);
    std::vector<double> taps(other.filterTaps);
    BaseFilter::operator=(other);
    levelMap = std::move(levels);
    filterTaps = std::move(taps);
    return *this;
}

CTLEFilter::~CTLEFilter() = default;

void CTLEFilter::GetCTLEFilterParams(CTLEFilterParameters* parameters)
{
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kCtleFilter, settings);
    RequireGain(settings);
    const auto design = Maths::DesignPeaking(SymbolRate(kCtleFilter, config), settings.gain);
    if (!design)
        Refuse(kCtleFilter, "baudRateGBd", config.baudRateGBd,
               "a symbol rate at which a gain of " + TextOf(settings.gain) + " dB can be reached");
    settings.gain = design->gain;
    settings.pole1 = design->pole1;
    settings.pole2 = design->pole2;
    settings.zero1 = design->zero;
    settings.dcGain = design->dcGain;
}

void CTLEFilter::GetCtleParams_HDMI(CTLEFilterParameters* parameters)
{
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    settings.peakingRatio = Maths::HdmiPeakingRatio(settings.gain);
    settings.pole1 = Maths::kHdmiPole1;
    settings.pole2 = Maths::kHdmiPole2;
    settings.zero1 = Maths::kHdmiPole1 / settings.peakingRatio;
}

void CTLEFilter::GetCTLEFilter_IEEE802_3bs_PolesAndZeros(CTLEFilterParameters* parameters)
{
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const Maths::Ieee802_3bsPreset& preset = PresetOf(settings);
    settings.dcGain = preset.dcGain;
    settings.pole1 = preset.pole1 * Maths::kRadPerGHz;
    settings.pole2 = preset.pole2 * Maths::kRadPerGHz;
    settings.pole3 = preset.pole3 * Maths::kRadPerGHz;
    settings.zero1 = preset.zero1 * Maths::kRadPerGHz;
    settings.zero2 = preset.zero2 * Maths::kRadPerGHz;
}

void CTLEFilter::GetCTLEFilter_OIF_CEI_112G_LINEAR_PAM4Params(CTLEFilterParameters* parameters)
{
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    settings.dcGain = settings.gain;
    settings.dcGain2 = settings.gain2;
}

void CTLEFilter::PolesAndZerosChanged(CTLEFilterParameters* parameters)
{
    using P = CTLEFilterParameters;
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const double symbolRate = SymbolRate(kCtleFilter, ConfigurationOf(kCtleFilter, settings));
    RequireFiniteInputs(settings,
                        {{"pole1", &P::pole1}, {"pole2", &P::pole2}, {"zero1", &P::zero1}, {"dcGain", &P::dcGain}});
    const double pole1 = settings.pole1 * Maths::kRadPerGHz;
    const double pole2 = settings.pole2 * Maths::kRadPerGHz;
    const double zero = settings.zero1 * Maths::kRadPerGHz;
    const Maths::TwoPoleResponse response{pole1 * settings.dcGain * pole2 / zero, pole1, pole2, zero};
    settings.gain = Maths::RoundedToDecimals(response.PeakingDb(symbolRate / 2.0), 2);
}

Complex CTLEFilter::ComplexConjugate(Complex value)
{
    return std::conj(value);
}

std::vector<double> CTLEFilter::GetCTLEFilter(CTLEFilterParameters* parameters)
{
    using P = CTLEFilterParameters;
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const ResponseGrid grid = ResponseGridOf(kCtleFilter, settings, settings.samplesPerUi);
    RequireFiniteInputs(settings, {{"pole1", &P::pole1}, {"pole2", &P::pole2}});
    if (settings.type == CTLE_HDMI) {
        RequireFinite(kCtleFilter, "peakingRatio", settings.peakingRatio, "a finite number");
        // With a ratio of 0 the zero lies at infinity.
        if (settings.peakingRatio != 0.0)
            RequireFinite(kCtleFilter, "zero1", settings.zero1, "a finite number");
        return ImpulseResponse(
            settings, grid, Maths::HdmiResponse(settings.peakingRatio, settings.pole1, settings.pole2, settings.zero1));
    }
    RequireFiniteInputs(settings, {{"zero1", &P::zero1}, {"dcGain", &P::dcGain}});
    const Maths::PeakingDesign design{settings.gain, settings.pole1, settings.pole2, settings.zero1, settings.dcGain};
    return ImpulseResponse(settings, grid, design.Response());
}

std::vector<double> CTLEFilter::GetCTLEFilter_HDMI_2_0(CTLEFilterParameters* parameters)
{
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    RequireCableGain(settings);
    const ResponseGrid grid = ResponseGridOf(kCtleFilter, settings, settings.samplesPerUi);
    return ImpulseResponse(settings, grid,
                           Maths::CableResponse(SymbolRate(kCtleFilter, *settings.GetConfig()), settings.gain));
}

std::vector<double> CTLEFilter::GetCTLEFilter_IEEE802_3bs(CTLEFilterParameters* parameters)
{
    using P = CTLEFilterParameters;
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const ResponseGrid grid = ResponseGridOf(kCtleFilter, settings, settings.samplesPerUi);
    RequireFiniteInputs(settings, {{"dcGain", &P::dcGain},
                                   {"pole1", &P::pole1},
                                   {"pole2", &P::pole2},
                                   {"pole3", &P::pole3},
                                   {"zero1", &P::zero1},
                                   {"zero2", &P::zero2}});
    return ImpulseResponse(settings, grid,
                           Maths::Ieee802_3bsPreset::Response(settings.dcGain, settings.pole1, settings.pole2,
                                                              settings.pole3, settings.zero1, settings.zero2));
}

std::vector<double> CTLEFilter::GetCTLEFilter_OIF_CEI_112G_LINEAR_PAM4(CTLEFilterParameters* parameters)
{
    using P = CTLEFilterParameters;
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const ResponseGrid grid = ResponseGridOf(kCtleFilter, settings, settings.samplesPerUi);
    RequireFiniteInputs(settings, {{"dcGain", &P::dcGain},
                                   {"dcGain2", &P::dcGain2},
                                   {"pole1", &P::pole1},
                                   {"pole2", &P::pole2},
                                   {"zero1", &P::zero1},
                                   {"zero2", &P::zero2}});
    return ImpulseResponse(
        settings, grid,
        Maths::LowFrequencyPairResponse{std::pow(10.0, settings.dcGain / 20.0), std::pow(10.0, settings.dcGain2 / 20.0),
                                        settings.pole1 * Maths::kRadPerGHz, settings.pole2 * Maths::kRadPerGHz,
                                        settings.zero1 * Maths::kRadPerGHz, settings.zero2 * Maths::kRadPerGHz});
}

void CTLEFilter::Prepare(SignalData*)
{
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const Variant& variant = VariantOf(settings.type);
    const double samplesPerUi = RefreshedSamplesPerUi(settings);
    const ResponseGrid grid = ResponseGridOf(kCtleFilter, settings, samplesPerUi);
    if (settings.preserveNoise && grid.length < 0)
        Refuse(kCtleFilter, "patternRepeats * samplesPerUi * patternLengthUi", grid.length, "0 or more samples");
    variant.check(settings);
    if (variant.derive != nullptr)
        (this->*variant.derive)(&settings);
    settings.samplesPerUi = samplesPerUi;
    if (settings.preserveNoise)
        settings.SetFrequencyGrid(RecordFrequencyGrid(kCtleFilter, *settings.GetConfig()).release());
    filterTaps = (this->*variant.build)(&settings);
    // A correction that failed has switched preserveNoise off; the grid then stays. Deliberate.
    if (settings.preserveNoise)
        settings.SetFrequencyGrid(nullptr);
    settings.ResetDirty();
    notPrepared = false;
}

double* CTLEFilter::Apply(SignalData* signal)
{
    const std::span<const double> record = SamplesOf(kCtleFilter, signal);
    auto& settings = ParametersOf<CTLEFilterParameters>(kCtleFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kCtleFilter, settings);
    const auto repetitions = [&](double samplesPerUi) {
        const double period = config.patternLengthUi * samplesPerUi;
        if (!(period >= 1.0))
            Refuse(kCtleFilter, "patternLengthUi * samplesPerUi", period, "at least 1 sample");
        const int count = Truncated(kCtleFilter, "repetitions", signal->sampleCount / period);
        if (count < 1)
            Refuse(kCtleFilter, "sampleCount", signal->sampleCount,
                   "at least one repetition of " + TextOf(period) + " samples");
        return count;
    };
    if (!IsDerivedByHost(*this))
        (void)repetitions(RefreshedSamplesPerUi(settings));
    const bool scaled = settings.type == CTLE_OIF_CEI_112G_LINEAR_PAM4;
    if (scaled)
        RequireFinite(kCtleFilter, "outputScale", settings.outputScale, "a finite number");
    if (settings.IsDirty()) {
        Prepare(signal);
        settings.ResetDirty();
    } else if (notPrepared && filterTaps.empty()) {
        Refuse(kCtleFilter, "filterTaps", "empty", "the taps that Prepare makes; mark the parameters dirty");
    }
    const Repetitions cut(signal->sampleCount, repetitions(settings.samplesPerUi));
    OwnedArray output = ConvolveRepetitions(record, cut, filterTaps, Convolver());
    if (scaled) {
        for (double& sample : std::span(output.get(), record.size()))
            sample *= settings.outputScale;
    }
    return output.release();
}

}  // namespace Tarnwick::DSO::Filters
