#include "filters/filters/deembeddingfilter.h"

#include <cmath>
#include <fstream>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>

#include "filters/plumbing/frequencygrid.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "framework/filenames.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/fixturekernel.h"
#include "framework/plumbing/linereader.h"
#include "maths/touchstone/touchstone.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Refuse;
using SystemFramework::SignalData;
using Complex = std::complex<double>;

namespace {

constexpr const char* kDeEmbeddingFilter = "DeEmbeddingFilter";

[[noreturn]] void RefuseLine(const Maths::LineFailure& failure, const std::string& fileName, std::size_t line)
{
    const std::string text = Maths::RefusalOf(failure, kDeEmbeddingFilter, fileName, line);
    if (failure.reason == Maths::LineFailure::Reason::NumberOutOfRange)
        throw std::out_of_range(text);
    throw std::invalid_argument(text);
}

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
    auto& settings = ParametersOf<DeEmbeddingParameters>(kDeEmbeddingFilter, parameters);
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
        return {SamplesPerPattern(kDeEmbeddingFilter, config),
                Truncated(kDeEmbeddingFilter, "uiDuration / sampleSpacing", RealSamplesPerUi(config))};
    // The configuration's own samplesPerPattern, where other filters multiply.
    return {config.samplesPerPattern, config.samplesPerUi};
}

DeEmbeddingFilter::Sizes DeEmbeddingFilter::SizesFor(const DeEmbeddingParameters& parameters)
{
    if (parameters.IsDirty())
        return SizesFrom(ConfigurationOf(kDeEmbeddingFilter, parameters));
    return {parameters.samplesPerPattern, parameters.samplesPerUi};
}

void DeEmbeddingFilter::Prepare()
{
    auto& settings = ParametersOf<DeEmbeddingParameters>(kDeEmbeddingFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kDeEmbeddingFilter, settings);
    const Sizes sizes = SizesFor(settings);
    const auto data = loadSparamFile(settings.sparamFileName, settings.portOrder);
    std::optional<SystemFramework::NoiseBand> noise;
    if (settings.preserveNoise) {
        // The response has an axis of its own; a record whose axis cannot be counted is refused all the same. Deliberate.
        (void)RecordLength(kDeEmbeddingFilter, config);
        noise = {settings.noiseCornerFrequency, settings.noiseSecondParameter};
    }
    const SystemFramework::FixtureKernel made = SystemFramework::MakeFixtureKernel(
        kDeEmbeddingFilter,
        {config.baudRateGBd, sizes.samplesPerPattern, config.patternLengthUi, settings.conversionFlag,
         settings.conversionParameterA, settings.conversionParameterB, noise},
        data);
    SetKernel(made.taps);
    kernelLength = sizes.samplesPerPattern;
    sizes.Store(settings);
    if (settings.preserveNoise)
        settings.SetFrequencyGrid(nullptr);
    settings.preserveNoiseApplied = made.noisePreserved;
    settings.preserveNoise = settings.preserveNoise && made.noisePreserved;
}

double* DeEmbeddingFilter::Apply(SignalData* signal)
{
    const std::span<const double> record = SamplesOf(kDeEmbeddingFilter, signal);
    auto& settings = ParametersOf<DeEmbeddingParameters>(kDeEmbeddingFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kDeEmbeddingFilter, settings);
    const char* const product = "samplesPerUi * patternLengthUi";
    const int period =
        CheckedProduct(kDeEmbeddingFilter, product, SizesFor(settings).samplesPerUi, config.patternLengthUi);
    if (period < 1)
        Refuse(kDeEmbeddingFilter, product, period, "at least 1 sample");
    const Repetitions cut(signal->sampleCount, signal->sampleCount / period);
    if (cut.count < 1)
        Refuse(kDeEmbeddingFilter, "sampleCount", signal->sampleCount,
               "at least one repetition of " + std::to_string(period) + " samples");
    // The file may have changed since, whatever the dirty flag says. Deliberate.
    Prepare();
    if (settings.IsDirty()) {
        Prepare();
        settings.ResetDirty();
    }
    return ConvolveRepetitions(record, cut, KernelTaps(kDeEmbeddingFilter, static_cast<std::size_t>(kernelLength)),
                               Convolver())
        .release();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as hosts declare it
std::map<double, Complex> DeEmbeddingFilter::loadSparamFile(std::string fileName, PortOrderS4P portOrder)
{
    std::ifstream file(Openable(PathOf(fileName)), std::ios::binary);
    SystemFramework::LineReader lines(file);
    Maths::TouchstoneReader reader(Maths::KindOf(fileName), Maths::PairsOf(portOrder));
    while (const auto line = lines.Next())
        if (const auto failure = reader.Take(*line))
            RefuseLine(*failure, fileName, lines.Number());
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
            Refuse(kDeEmbeddingFilter, "frequency", frequency, "a number");
    Maths::AddDifferentialTransmission(result, values, frequencies, Maths::PairsOf(portOrder));
}

}  // namespace Tarnwick::DSO::Filters
