#include "filters/filters/besselthomson.h"

#include <cmath>
#include <span>
#include <string>

#include "filters/plumbing/channel.h"
#include "filters/plumbing/frequencygrid.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/plumbing/trace.h"
#include "maths/responses/besselthomson.h"
#include "maths/transforms/spectrum.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::NewArray;
using SystemFramework::NewArrayFrom;
using SystemFramework::OwnedArrayOf;
using SystemFramework::Refuse;
using SystemFramework::RequireFinite;
using SystemFramework::RequirePositive;
using SystemFramework::SignalData;
using Complex = std::complex<double>;

namespace {

constexpr const char* kBesselThomsonFilter = "BesselThomson";
constexpr const char* kFourthOrder = "BesselThomson::BesselThomson4th";
constexpr double kPercent = 100.0;

struct Sizes {
    int samplesPerPattern;
    double sampleInterval;  // [s]
};

Sizes SizesFrom(const DeviceConfiguration& config)
{
    const int samplesPerPattern = SamplesPerPattern(kBesselThomsonFilter, config);
    return {samplesPerPattern, SampleInterval(config, samplesPerPattern)};
}

// The sizes that the filter works with: those of the configuration while the parameters are dirty, else as they stand.
Sizes SizesOf(const BesselThomsonParameters& parameters)
{
    const DeviceConfiguration* config = parameters.GetConfig();
    if (config == nullptr || !parameters.IsDirty())
        return {parameters.samplesPerPattern, parameters.sampleInterval};
    const Sizes sizes = SizesFrom(*config);
    RequireSampleInterval(kBesselThomsonFilter, *config, sizes.samplesPerPattern);
    return sizes;
}

void Store(Sizes sizes, BesselThomsonParameters& parameters)
{
    parameters.samplesPerPattern = sizes.samplesPerPattern;
    parameters.sampleInterval = sizes.sampleInterval;
}

// [Hz]
double CutoffOf(const BesselThomsonParameters& parameters)
{
    return parameters.GetConfig()->baudRateGBd * 1e9 * parameters.cutoffPercent / kPercent;
}

// Everything that a kernel is built from, checked before anything is computed or changed.
void RequireBuildable(const BesselThomsonParameters& parameters, Sizes sizes)
{
    const DeviceConfiguration& config = ConfigurationOf(kBesselThomsonFilter, parameters);
    RequireChannel(kBesselThomsonFilter, parameters.channel);
    if (parameters.order < Maths::kLowestOrder || parameters.order > Maths::kHighestOrder)
        Refuse(kBesselThomsonFilter, "order", parameters.order, "1 to 16");
    if (sizes.samplesPerPattern < 2)
        Refuse(kBesselThomsonFilter, "samplesPerPattern", sizes.samplesPerPattern, "at least 2 samples");
    RequirePositive(kBesselThomsonFilter, "sampleInterval", sizes.sampleInterval, "a finite positive time in seconds");
    RequirePositive(kBesselThomsonFilter, "cutoffPercent", parameters.cutoffPercent, "a finite positive percentage");
    (void)SymbolRate(kBesselThomsonFilter, config);
    RequireFinite(kBesselThomsonFilter, "noiseCornerFrequency", parameters.noiseCornerFrequency,
                  "a finite frequency in hertz");
    constexpr double kFurthest = 1e12;  // its 16th power is far from what a double holds
    if (!(0.5 / sizes.sampleInterval <= kFurthest * CutoffOf(parameters)))
        Refuse(kBesselThomsonFilter, "cutoffPercent", parameters.cutoffPercent,
               "a cutoff that half the sample rate exceeds by at most 1e12 times");
}

std::vector<double> ImpulseResponse(BesselThomsonParameters& parameters)
{
    RequireBuildable(parameters, {parameters.samplesPerPattern, parameters.sampleInterval});
    const DeviceConfiguration& config = *parameters.GetConfig();
    const bool halfAmplitude = IsOpticalChannel(kBesselThomsonFilter, config, parameters.channel);
    const double normalisedCutoff = Maths::DefaultCutoff(parameters.order, halfAmplitude);
    const double cutoff = CutoffOf(parameters);
    const double sampleRate = 1.0 / parameters.sampleInterval;
    // One bin fewer than the pattern has samples: the grid is spaced by the sample rate over N - 1. Deliberate.
    const auto length = static_cast<std::size_t>(parameters.samplesPerPattern - 1);
    std::vector<Complex> bins =
        Maths::SampledBesselThomson(parameters.order, normalisedCutoff, cutoff, sampleRate, length);
    PreserveNoise(parameters, bins, sampleRate / static_cast<double>(length));
    return Maths::RealInverse(bins);
}

}  // namespace

BesselThomsonParameters::BesselThomsonParameters() = default;

BesselThomsonParameters::BesselThomsonParameters(double cutoffFrequency, int order, double cutoffPercent,
                                                 int samplesPerPattern, bool preserveNoise, double noiseCornerFrequency,
                                                 double /*extra*/)
    : cutoffFrequency(cutoffFrequency), order(order), cutoffPercent(cutoffPercent), samplesPerPattern(samplesPerPattern)
{
    this->preserveNoise = preserveNoise;
    this->noiseCornerFrequency = noiseCornerFrequency;
}

BesselThomsonParameters::BesselThomsonParameters(DeviceConfiguration* config) : BaseFilterParameters(config) {}

BesselThomson::BesselThomson(BesselThomsonParameters* parameters)
{
    TARNWICK_TRACE("Initializing BesselThomson constructor...");
    RequirePatternLock(kBesselThomsonFilter, parameters);
    this->parameters = parameters;
    if (const DeviceConfiguration* config = parameters->GetConfig())
        Store(SizesFrom(*config), *parameters);
    TARNWICK_TRACE("BesselThomson constructor finished");
}

BesselThomson::~BesselThomson()
{
    TARNWICK_TRACE("~BesselThomson()...");
    ReleaseKernel();
    TARNWICK_TRACE("~BesselThomson() finished");
}

int BesselThomson::Factorial(int n)
{
    return Maths::WrappingFactorial(n);
}

double BesselThomson::bTFactor(int n, int k)
{
    return Maths::BesselCoefficient(n, k);
}

double BesselThomson::GetDefaultCutoff(int order, bool halfAmplitude)
{
    return Maths::DefaultCutoff(order, halfAmplitude);
}

double* BesselThomson::GetBesselThomsonFrequencyDomainFilter(BesselThomsonParameters* parameters)
{
    const std::vector<double> taps =
        ImpulseResponse(ParametersOf<BesselThomsonParameters>(kBesselThomsonFilter, parameters));
    return NewArrayFrom<double>(taps).release();
}

Complex BesselThomson::BesselThomson4thPolyomial(Complex s)
{
    return Maths::FourthOrderPolynomial(s);
}

Complex* BesselThomson::BesselThomson4th(double* frequencies, int count, double cutoff)
{
    if (count < 1)
        return NewArray<Complex>(0).release();
    RequirePositive(kFourthOrder, "cutoff", cutoff, "a finite positive frequency in hertz");
    if (frequencies == nullptr)
        Refuse(kFourthOrder, "frequencies", "null", "an array of count values");
    const std::span<double> axis(frequencies, static_cast<std::size_t>(count));
    OwnedArrayOf<Complex> result = NewArrayFrom<Complex>(Maths::FourthOrderResponses(axis, cutoff));
    // The caller's frequencies come back normalised. Deliberate.
    for (double& frequency : axis)
        frequency = frequency * Maths::kFourthOrderCutoff / cutoff;
    return result.release();
}

Complex* BesselThomson::BesselThomson4th(std::vector<double> frequencies, double cutoff)
{
    return BesselThomson4th(frequencies.data(), static_cast<int>(frequencies.size()), cutoff);
}

void BesselThomson::BesselThomson4th(std::vector<double>* impulseResponse, std::vector<double> frequencies,
                                     double cutoff)
{
    if (!frequencies.empty())
        RequirePositive(kFourthOrder, "cutoff", cutoff, "a finite positive frequency in hertz");
    if (impulseResponse == nullptr)
        Refuse(kFourthOrder, "impulseResponse", "null", "a vector to write to");
    *impulseResponse = Maths::FourthOrderTaps(frequencies, cutoff);
}

void BesselThomson::Prepare(SignalData*)
{
    TARNWICK_TRACE("BesselThomson::Prepare...");
    auto& settings = ParametersOf<BesselThomsonParameters>(kBesselThomsonFilter, parameters);
    const Sizes sizes = SizesOf(settings);
    RequireBuildable(settings, sizes);
    if (settings.preserveNoise)
        settings.SetFrequencyGrid(RecordFrequencyGrid(kBesselThomsonFilter, *settings.GetConfig()).release());
    Store(sizes, settings);
    SetKernel(ImpulseResponse(settings));
    // A correction that failed has switched preserveNoise off; the grid then stays. Deliberate.
    if (settings.preserveNoise)
        settings.SetFrequencyGrid(nullptr);
    notPrepared = false;
    flag3 = false;
    TARNWICK_TRACE("BesselThomson::Prepare finished");
}

double* BesselThomson::Apply(SignalData* signal)
{
    const std::span<const double> record = SamplesOf(kBesselThomsonFilter, signal);
    const auto& settings = ParametersOf<BesselThomsonParameters>(kBesselThomsonFilter, parameters);
    const auto requireRecord = [signal](int period) {
        if (period < 2)
            Refuse(kBesselThomsonFilter, "samplesPerPattern", period, "at least 2 samples");
        if (signal->sampleCount < period)
            Refuse(kBesselThomsonFilter, "sampleCount", signal->sampleCount,
                   "at least one pattern of " + std::to_string(period) + " samples");
    };
    if (!IsDerivedByHost(*this))
        requireRecord(SizesOf(settings).samplesPerPattern);
    if (settings.IsDirty())
        Prepare(signal);
    const int period = settings.samplesPerPattern;
    requireRecord(period);
    const Repetitions cut(signal->sampleCount, signal->sampleCount / period);
    const auto taps = static_cast<std::size_t>(period - 1);
    return ConvolveRepetitions(record, cut, KernelTaps(kBesselThomsonFilter, taps), Convolver()).release();
}

}  // namespace Tarnwick::DSO::Filters
