#include "filters/filters/deembeddingfilter.h"

#include <cmath>
#include <fstream>
#include <span>
#include <utility>

#include "filters/plumbing/frequencygrid.h"
#include "filters/plumbing/linereader.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "filters/plumbing/touchstoneline.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/sparameter.h"
#include "maths/touchstone/touchstone.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::OwnedArray;
using SystemFramework::Refuse;
using SystemFramework::SignalData;
using SystemFramework::SParameter;
using Complex = std::complex<double>;

namespace {

constexpr const char* kFilter = "DeEmbeddingFilter";
constexpr double kNoiseCorner = 3.5e10;  // [Hz]

}  // namespace

// What the filter takes from the configuration.
struct DeEmbeddingFilter::Sizes {
    int samplesPerPattern;
    int samplesPerUi;
    void Store(DeEmbeddingParameters& parameters) const
    {
        parameters.samplesPerPattern = samplesPerPattern;
        parameters.samplesPerUi = samplesPerUi;
    }
};

DeEmbeddingParameters::DeEmbeddingParameters() : DeEmbeddingParameters(nullptr) {}

DeEmbeddingParameters::DeEmbeddingParameters(DeviceConfiguration* config) : BaseFilterParameters(config)
{
    preserveNoise = true;
    noiseCornerFrequency = kNoiseCorner;
}

DeEmbeddingParameters::DeEmbeddingParameters(double, int samplesPerPattern, int, bool conversionFlag,
                                             int conversionParameterA, int conversionParameterB, bool preserveNoise,
                                             double noiseFrequency, std::string sparamFileName, PortOrderS4P portOrder,
                                             int samplesPerUi, double)
    : samplesPerPattern(samplesPerPattern),
      conversionFlag(conversionFlag),
      conversionParameterA(conversionParameterA),
      conversionParameterB(conversionParameterB),
      sparamFileName(std::move(sparamFileName)),
      portOrder(portOrder),
      samplesPerUi(samplesPerUi)
{
    this->preserveNoise = preserveNoise;
    noiseCornerFrequency = noiseFrequency;
}

DeEmbeddingFilter::DeEmbeddingFilter(DeEmbeddingParameters* parameters)
{
    auto& settings = Given<DeEmbeddingParameters>(kFilter, parameters);
    this->parameters = parameters;
    if (settings.GetConfig() != nullptr)
        SizesFrom(*settings.GetConfig()).Store(settings);
}

DeEmbeddingFilter::DeEmbeddingFilter(DeviceConfiguration*) {}

DeEmbeddingFilter::~DeEmbeddingFilter()
{
    ReleaseKernel();
}

DeEmbeddingFilter::Sizes DeEmbeddingFilter::SizesFrom(const DeviceConfiguration& config)
{
    if (config.useFractionalSampling)
        return {SamplesPerPattern(kFilter, config),
                Truncated(kFilter, "uiDuration / sampleSpacing", RealSamplesPerUi(config))};
    // The configuration's own samplesPerPattern, not the product that other filters form.
    return {config.samplesPerPattern, config.samplesPerUi};
}

DeEmbeddingFilter::Sizes DeEmbeddingFilter::SizesFor(const DeEmbeddingParameters& parameters)
{
    if (parameters.IsDirty())
        return SizesFrom(ConfigurationOf(kFilter, parameters));
    return {parameters.samplesPerPattern, parameters.samplesPerUi};
}

void DeEmbeddingFilter::Prepare()
{
    auto& settings = Given<DeEmbeddingParameters>(kFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
    const Sizes sizes = SizesFor(settings);
    const auto data = loadSparamFile(settings.sparamFileName, settings.portOrder);
    const OwnedArray grid = settings.preserveNoise ? RecordFrequencyGrid(kFilter, config) : nullptr;
    int length = 0;
    bool applied = settings.preserveNoiseApplied;
    const OwnedArray taps(SParameter::ConvertSparamFilterDataToImpulseResponse(
        length, config.baudRateGBd, sizes.samplesPerPattern, config.patternLengthUi, data, settings.conversionFlag,
        settings.conversionParameterA, settings.conversionParameterB, settings.preserveNoise,
        settings.noiseCornerFrequency, settings.noiseSecondParameter, grid.get(), applied));
    SetKernel({taps.get(), static_cast<std::size_t>(length)});
    kernelLength = length;
    sizes.Store(settings);
    settings.preserveNoiseApplied = applied;
    settings.preserveNoise = settings.preserveNoise && applied;
}

double* DeEmbeddingFilter::Apply(SignalData* signal)
{
    const std::span<const double> record = SamplesOf(kFilter, signal);
    auto& settings = Given<DeEmbeddingParameters>(kFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
    const char* const product = "samplesPerUi * patternLengthUi";
    const int period = CheckedProduct(kFilter, product, SizesFor(settings).samplesPerUi, config.patternLengthUi);
    if (period < 1)
        Refuse(kFilter, product, period, "at least 1 sample");
    const Repetitions cut(signal->sampleCount, signal->sampleCount / period);
    if (cut.count < 1)
        Refuse(kFilter, "sampleCount", signal->sampleCount,
               "at least one repetition of " + std::to_string(period) + " samples");
    // The file may have changed since, whatever the dirty flag says. Deliberate.
    Prepare();
    if (settings.IsDirty()) {
        Prepare();
        settings.ResetDirty();
    }
    return ConvolveRepetitions(record, cut, KernelTaps(kFilter, static_cast<std::size_t>(kernelLength)), Convolver())
        .release();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as hosts declare it
std::map<double, Complex> DeEmbeddingFilter::loadSparamFile(std::string fileName, PortOrderS4P portOrder)
{
    std::ifstream file(fileName, std::ios::binary);
    LineReader lines(file);
    Maths::TouchstoneReader reader(Maths::KindOf(fileName), Maths::PairsOf(portOrder));
    while (const auto line = lines.Next())
        if (const auto failure = reader.Take(*line))
            RefuseLine(kFilter, *failure, fileName, lines.Number());
    Maths::Transmission transmission = reader.Finish();
    Maths::AddDcPoint(transmission);
    return transmission;
}

Complex DeEmbeddingFilter::ReadAmplitude(AmplitudeFormat format, double a, double b)
{
    switch (format) {
        case AMPLITUDE_DB: return ReadDB(a, b);
        case AMPLITUDE_MA: return ReadMA(a, b, false);
        case AMPLITUDE_RI: break;
    }
    return ReadRI(a, b);
}

Complex DeEmbeddingFilter::ReadMA(double magnitude, double angle, bool inDb)
{
    return inDb ? ReadDB(magnitude, angle) : Maths::FromMagnitude(magnitude, angle);
}

Complex DeEmbeddingFilter::ReadDB(double level, double angle)
{
    return Maths::FromDecibels(level, angle);
}

Complex DeEmbeddingFilter::ReadRI(double real, double imaginary)
{
    return {real, imaginary};
}

void DeEmbeddingFilter::convertFromSingleEndedToMixedMode(std::map<double, Complex>& result,
                                                          std::vector<Complex> values, std::vector<double> frequencies,
                                                          PortOrderS4P portOrder)
{
    for (const double frequency : frequencies)
        if (std::isnan(frequency))
            Refuse(kFilter, "frequency", frequency, "a number");
    Maths::AddDifferentialTransmission(result, values, frequencies, Maths::PairsOf(portOrder));
}

}  // namespace Tarnwick::DSO::Filters
