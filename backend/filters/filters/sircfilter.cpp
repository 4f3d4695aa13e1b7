#include "filters/filters/sircfilter.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <span>
#include <stdexcept>

#include "filters/plumbing/channel.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/plumbing/trace.h"
#include "maths/responses/channelcorrection.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::NewArray;
using SystemFramework::NewArrayFrom;
using SystemFramework::OwnedArrayOf;
using SystemFramework::Refuse;
using SystemFramework::RequirePositive;
using SystemFramework::SignalData;
using Complex = std::complex<double>;

namespace {

constexpr const char* kSircFilter = "SircFilter";
constexpr double kDefaultBandwidth = 3.98e10;  // [Hz]
constexpr double kWholePercent = 100.0;
constexpr int kReceiversPerChannel = 3;

[[noreturn]] void NotConfigured()
{
    throw std::runtime_error("SRC not configured properly.");
}

template <typename Value>
Value& EntryOf(const char* name, std::vector<Value>& table, int entry, int channel)
{
    if (static_cast<std::size_t>(entry) >= table.size())
        Refuse(kSircFilter, name, "a table of " + std::to_string(table.size()) + " entries",
               "an entry " + std::to_string(entry) + " for channel " + std::to_string(channel));
    return table[static_cast<std::size_t>(entry)];
}

double BandwidthFrom(DeviceConfiguration& config, int channel)
{
    const double bandwidth = EntryOf("channelBandwidths", config.channelBandwidths, channel, channel);
    return bandwidth == 0.0 || std::isnan(bandwidth) ? kDefaultBandwidth : bandwidth;
}

std::vector<double>& ResponseFrom(DeviceConfiguration& config, int channel)
{
    if (!IsOpticalChannel(kSircFilter, config, channel))
        return EntryOf("electricalResponseTable", config.electricalResponseTable, channel, channel);
    const int selector = config.oeReceiverSelector;
    const int receiver = selector == 0 || selector == 1 ? selector : kReceiversPerChannel - 1;
    return EntryOf("oeResponseTable", config.oeResponseTable, kReceiversPerChannel * channel + receiver, channel);
}

std::size_t BaselineCount(int endIndex)
{
    return endIndex < 0 ? 0 : static_cast<std::size_t>(endIndex) + 1;
}

Maths::MeasuredResponse TableFrom(std::span<const double> table)
{
    const auto response = Maths::ReadTable(table);
    if (!response)
        NotConfigured();
    return *response;
}

// A new exception with the text that hosts know.
template <typename Call>
auto Rethrown(const Call& call)
{
    try {
        return call();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::invalid_argument& failure) {
        throw std::invalid_argument(failure.what());
    } catch (const std::exception& failure) {
        throw std::runtime_error(failure.what());
    }
}

}  // namespace

// What the filter takes from the configuration.
struct SircFilter::Settings {
    double channelBandwidth;  // [Hz]
    double uiSamples;
    std::vector<double>* channelResponse;
    std::vector<double>* channelReference;
};

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as hosts link it.
SircFilterParameters::SircFilterParameters(std::string, std::string, std::string, std::string, double first,
                                           double second)
    : uiSamples(first), referenceCutoffPercent(second)
{
}

SircFilterParameters::SircFilterParameters(DeviceConfiguration* config) : BaseFilterParameters(config) {}

SircFilter::SircFilter(DeviceConfiguration*) {}

SircFilter::SircFilter(SircFilterParameters* parameters)
{
    RequirePatternLock(kSircFilter, parameters);
    this->parameters = parameters;
    DeviceConfiguration* const config = parameters->GetConfig();
    if (config == nullptr)
        return;
    const Settings settings = SettingsFrom(*config, parameters->channel);
    if (IsOpticalChannel(kSircFilter, *config, parameters->channel))
        Rebuild(settings);
    else
        Store(settings);
}

SircFilter::~SircFilter()
{
    ReleaseKernel();
}

SircFilter::Settings SircFilter::SettingsFrom(DeviceConfiguration& config, int channel)
{
    RequireChannel(kSircFilter, channel);
    return {BandwidthFrom(config, channel), RealSamplesPerUi(config), &ResponseFrom(config, channel),
            &EntryOf("referenceTable", config.referenceTable, channel, channel)};
}

void SircFilter::Store(const Settings& settings)
{
    auto& own = static_cast<SircFilterParameters&>(*parameters);
    channelBandwidth = settings.channelBandwidth;
    own.uiSamples = settings.uiSamples;
    own.channelResponse = settings.channelResponse;
    own.channelReference = settings.channelReference;
}

std::vector<double> SircFilter::Generated(const SircFilterParameters& parameters, const Settings& settings) const
{
    if (settings.channelResponse == nullptr)
        Refuse(kSircFilter, "channelResponse", "null", "the table of the channel's measured response");
    if (settings.channelResponse->empty())
        return {};
    const Maths::MeasuredResponse channel = TableFrom(*settings.channelResponse);
    const bool hasReference = settings.channelReference != nullptr && !settings.channelReference->empty();
    const auto reference = hasReference ? TableFrom(*settings.channelReference) : Maths::MeasuredResponse{};

    const DeviceConfiguration* const config = &ConfigurationOf(kSircFilter, parameters);
    const double symbolRate = SymbolRate(kSircFilter, *config);
    RequirePositive(kSircFilter, "uiSamples", settings.uiSamples, "a finite positive number of samples");
    RequirePositive(kSircFilter, "referenceCutoffPercent", parameters.referenceCutoffPercent,
                    "a finite positive percentage of the symbol rate");
    RequirePositive(kSircFilter, "channelBandwidth", settings.channelBandwidth, "a finite positive frequency in hertz");
    RequirePositive(kSircFilter, "generationBandwidth", generationBandwidth, "a finite positive rate");
    RequirePositive(kSircFilter, "generationParam1", generationParam1, "a positive bandwidth in GHz");
    RequirePositive(kSircFilter, "generationParam5", generationParam5, "at least 1");
    const char* const points = "generationParam2 * generationParam3";
    const int length = CheckedProduct(kSircFilter, points, generationParam2, generationParam3);
    if (generationParam2 < 1 || length < 2 || length % 2 != 0)
        Refuse(kSircFilter, points, length, "a positive even number of points");
    if (baselineEndIndex >= length)
        Refuse(kSircFilter, "baselineEndIndex", baselineEndIndex,
               "less than the " + std::to_string(length) + " points of the generation grid");
    const char* const samples = "patternLengthUi * uiSamples";
    const int taps = Truncated(kSircFilter, samples, config->patternLengthUi * settings.uiSamples);
    if (taps < 1)
        Refuse(kSircFilter, samples, taps, "at least 1 sample");

    // The correction is worked out at every sample of the grid's span, however short the pattern is.
    constexpr double kMostSamples = 1e6;  // ten femtoseconds apart on the grid of 10 ns
    const double spanned = length / (generationBandwidth * generationParam2) * settings.uiSamples * symbolRate;
    if (!(spanned <= kMostSamples))
        Refuse(kSircFilter, "samples in the span of the generation grid", spanned, "at most 1e6");
    Maths::CorrectionSettings correction;
    correction.grid = {static_cast<std::size_t>(length), 1.0 / (generationBandwidth * generationParam2)};
    correction.smoothingBandwidth = generationParam1 * 1e9;
    correction.channelBandwidth = settings.channelBandwidth;
    correction.cutoff = parameters.referenceCutoffPercent / kWholePercent * symbolRate;
    correction.end = generationParam5 * settings.channelBandwidth;
    correction.baselineCount = BaselineCount(baselineEndIndex);
    std::vector<double> kernel = Maths::CorrectionTaps(
        channel, reference, correction, 1.0 / (settings.uiSamples * symbolRate), static_cast<std::size_t>(taps));
    if (!std::all_of(kernel.begin(), kernel.end(), [](double tap) { return std::isfinite(tap); }))
        NotConfigured();
    return kernel;
}

double* SircFilter::GenerateSircFilter_BasedOnDCA(SircFilterParameters* parameters)
{
    const auto& own = ParametersOf<SircFilterParameters>(kSircFilter, parameters);
    const std::vector<double> taps =
        Generated(own, {channelBandwidth, own.uiSamples, own.channelResponse, own.channelReference});
    auto result = taps.empty() ? nullptr : NewArrayFrom<double>(taps);
    kernelLength = static_cast<int>(taps.size());
    return result.release();
}

double* SircFilter::ApplyA(SystemFramework::BaseFilterParameters* parameters)
{
    return GenerateSircFilter_BasedOnDCA(&ParametersOf<SircFilterParameters>(kSircFilter, parameters));
}

// Builds first and stores afterwards: what fails changes nothing.
void SircFilter::Rebuild(const Settings& settings)
{
    const auto taps =
        Rethrown([&] { return Generated(static_cast<const SircFilterParameters&>(*parameters), settings); });
    if (taps.empty())
        ReleaseKernel();
    else
        SetKernel(taps);
    kernelLength = static_cast<int>(taps.size());
    Store(settings);
    parameters->ResetDirty();
    notPrepared = false;
    flag3 = false;
}

void SircFilter::Prepare(SignalData*)
{
    const auto& own = ParametersOf<SircFilterParameters>(kSircFilter, parameters);
    DeviceConfiguration* const config = own.GetConfig();
    Settings settings{channelBandwidth, own.uiSamples, own.channelResponse, own.channelReference};
    if (config != nullptr && own.IsDirty())
        settings = SettingsFrom(*config, own.channel);
    else if (config != nullptr)
        settings.channelBandwidth = BandwidthFrom(*config, own.channel);
    Rebuild(settings);
}

double* SircFilter::Apply(SignalData* signal)
{
    if (signal == nullptr)
        return nullptr;
    const std::span<const double> record = SamplesOf(kSircFilter, signal);
    const auto& own = ParametersOf<SircFilterParameters>(kSircFilter, parameters);
    const DeviceConfiguration* const config = own.GetConfig();
    if (config == nullptr)
        Refuse(kSircFilter, "configuration", "null", "the device configuration, which holds the pattern length");
    if (own.IsDirty()) {
        Prepare(signal);
        parameters->ResetDirty();
    }
    const double period = config->patternLengthUi * own.uiSamples;
    if (!std::isfinite(period) || period == 0.0)
        Refuse(kSircFilter, "patternLengthUi * uiSamples", period, "a finite number of samples that is not 0");
    const int count = Truncated(kSircFilter, "repetitions", signal->sampleCount / period);
    if (count == 0)
        return nullptr;
    const Repetitions cut(signal->sampleCount, count);
    std::span<const double> taps;
    if (cut.count > 0) {
        if (kernelLength < 0)
            Refuse(kSircFilter, "kernelLength", kernelLength, "0 or more taps");
        taps = KernelTaps(kSircFilter, static_cast<std::size_t>(kernelLength));
    }
    // The lines carry the signature of Apply, not that of the lambdas.
    const auto trace = [function = TARNWICK_FUNCTION](const char* message) {
        return [function, message] { SystemFramework::TraceLine(__FILE__, __LINE__, function, message); };
    };
    const RepetitionHooks lines{trace("Applying SiRC"), trace("SiRC applied")};
    return ConvolveRepetitions(record, cut, taps, Convolver(), lines).release();
}

Complex* SircFilter::BesselThomson4th_corrected(double* frequencies, int count, double channelCutoff,
                                                double referenceCutoff)
{
    constexpr const char* kOperation = "SircFilter::BesselThomson4th_corrected";
    if (count < 1)
        return NewArray<Complex>(0).release();
    RequirePositive(kOperation, "channelCutoff", channelCutoff, "a finite positive frequency in hertz");
    RequirePositive(kOperation, "referenceCutoff", referenceCutoff, "a finite positive frequency in hertz");
    if (frequencies == nullptr)
        Refuse(kOperation, "frequencies", "null", "an array of count values");
    OwnedArrayOf<Complex> result = NewArray<Complex>(static_cast<std::size_t>(count));
    std::transform(frequencies, frequencies + count, result.get(), [&](double frequency) {
        return Maths::RetargetingRatio(frequency, channelCutoff, referenceCutoff);
    });
    return result.release();
}

double* SircFilter::ProcessImpulseResponse(double* signal, int signalLength, double* kernel, int tapCount) const
{
    constexpr const char* kOperation = "SircFilter::ProcessImpulseResponse";
    const std::size_t baselineCount = BaselineCount(baselineEndIndex);
    const std::size_t shortest = std::max<std::size_t>(baselineCount, 1);
    if (signalLength < 0 || static_cast<std::size_t>(signalLength) < shortest)
        Refuse(kOperation, "signalLength", signalLength, "at least " + std::to_string(shortest) + " values");
    if (signal == nullptr)
        Refuse(kOperation, "signal", "null", "an array of signalLength values");
    if (tapCount < 0)
        Refuse(kOperation, "tapCount", tapCount, "0 or more taps");
    if (kernel == nullptr && tapCount > 0)
        Refuse(kOperation, "kernel", "null", "an array of tapCount values");
    const std::span<const double> values(signal, static_cast<std::size_t>(signalLength));
    const std::span<const double> taps(kernel, static_cast<std::size_t>(tapCount));
    return NewArrayFrom<double>(Maths::AlignedImpulseResponse(values, taps, baselineCount)).release();
}

}  // namespace Tarnwick::DSO::Filters
