#include "filters/filters/ffefilter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "filters/plumbing/channel.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/taps.h"
#include "filters/plumbing/tapsearch.h"
#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/plumbing/trace.h"
#include "maths/equalisers/ffesearch.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::NewArrayFrom;
using SystemFramework::RequirePositive;
using SystemFramework::SignalData;

namespace {

constexpr const char* kFilter = "FFEFilter";

void Refresh(FFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    const int samplesPerUi = WholeSamplesPerUi(kFilter, config);
    parameters.signalCoding = config.signalCoding;
    parameters.useUserPattern = config.useUserPattern;
    parameters.patternSymbols = config.patternSymbols;
    parameters.SetGaussianFilter(nullptr, 0);
    parameters.gaussianFilter = config.gaussianFilter;
    parameters.gaussianFilterLength = config.gaussianFilterLength;
    parameters.samplesPerUi = samplesPerUi;
}

// The TDECQ equaliser is symbol-spaced, whatever tapsPerUi says; where that is no spacing at all, so is what Apply reads.
TapGrid GridOf(const FFEFilterParameters& parameters, int samplesPerUi)
{
    const bool isSpacing = parameters.tapsPerUi >= 1 && parameters.tapsPerUi <= samplesPerUi;
    return {samplesPerUi, parameters.useTdecqEqualizer && !isSpacing ? 1 : parameters.tapsPerUi,
            parameters.numberOfTaps};
}

TapGrid SymbolSpaced(int samplesPerUi, int numberOfTaps)
{
    return {samplesPerUi, 1, numberOfTaps};
}

PhaseSettings PhaseSettingsOf(const FFEFilterParameters& parameters)
{
    return {parameters.fitAtSamplingPhase, parameters.dfeTaps, parameters.ridge};
}

void RequirePreparable(const FFEFilterParameters& parameters, const DeviceConfiguration& config, int length)
{
    PhaseSettingsOf(parameters).Require(kFilter, parameters.useTdecqEqualizer);
    RequirePositive(kFilter, "baudRateGBd", config.baudRateGBd, "a finite positive symbol rate");
    const TapGrid grid = GridOf(parameters, parameters.samplesPerUi);
    grid.Require(kFilter);
    if (parameters.useManualTaps) {
        RequireFiniteTaps(kFilter, parameters.taps);
        if (parameters.quantizeTaps && parameters.numberOfTaps > 0)
            (void)TapShares(kFilter, parameters.taps);
    } else {
        grid.RequireFit(kFilter, config.patternLengthUi, parameters.mainCursorPosition);
    }
    if (parameters.useTdecqEqualizer)
        RequireTdecqTaps(kFilter, config, parameters.samplesPerUi, parameters.numberOfTaps,
                         parameters.useManualTaps ? &parameters.taps : nullptr, length);
}

}  // namespace

FFEFilterParameters::FFEFilterParameters()
{
    TARNWICK_TRACE("FFEFilterParameters()...");
    TARNWICK_TRACE("FFEFilterParameters() finished");
}

FFEFilterParameters::FFEFilterParameters(int samplesPerUi, std::vector<double> taps, int numberOfTaps, int tapsPerUi,
                                         E_SIGNAL_CODING signalCoding, bool useManualTaps, bool withoutGrayCoding,
                                         bool useTdecqEqualizer)
    : samplesPerUi(samplesPerUi),
      numberOfTaps(numberOfTaps),
      tapsPerUi(tapsPerUi),
      mainCursorPosition(tapsPerUi),
      signalCoding(signalCoding),
      useManualTaps(useManualTaps),
      withoutGrayCoding(withoutGrayCoding),
      useTdecqEqualizer(useTdecqEqualizer)
{
    TARNWICK_TRACE("Initializing FFEFilterParameters constructor...");
    this->taps = std::move(taps);
    TARNWICK_TRACE("FFEFilterParameters constructor finished");
}

FFEFilterParameters::FFEFilterParameters(DeviceConfiguration* config)
    : BaseFilterParameters(config), withoutGrayCoding(config != nullptr && config->withoutGrayCoding)
{
}

void FFEFilterParameters::SetGaussianFilter(double* lowPass, std::int32_t length)
{
    gaussianOwner_.array = SystemFramework::SharedArray(lowPass);
    gaussianFilter = lowPass;
    gaussianFilterLength = length;
}

const std::vector<double>& FFEFilterParameters::ManualTaps() const
{
    return !reportedTaps_.empty() && taps == reportedTaps_ ? appliedTaps : taps;
}

FFEFilter::FFEFilter(FFEFilterParameters* parameters)
{
    TARNWICK_TRACE("Initializing FFEFilter constructor...");
    RequirePatternLock(kFilter, parameters);
    if (const DeviceConfiguration* config = parameters->GetConfig()) {
        Refresh(*parameters, *config);
        parameters->withoutGrayCoding = config->withoutGrayCoding;
    }
    this->parameters = parameters;
    flag2 = true;
    TARNWICK_TRACE("FFEFilter constructor finished");
}

FFEFilter::FFEFilter(DeviceConfiguration*)
{
    flag2 = true;
}

FFEFilter::~FFEFilter()
{
    TARNWICK_TRACE("~FFEFilter()...");
    ReleaseKernel();
    TARNWICK_TRACE("~FFEFilter() finished");
}

double* FFEFilter::GetOptimizedTaps(FFEFilterParameters* parameters)
{
    const auto& settings = ParametersOf<FFEFilterParameters>(kFilter, parameters);
    if (settings.taps.empty())
        return nullptr;
    return NewArrayFrom<double>(NormalisedTaps(settings)).release();
}

std::vector<double> FFEFilter::NormalisedTaps(const FFEFilterParameters& settings)
{
    std::vector<double> shares = TapShares(kFilter, settings.taps);
    if (settings.quantizeTaps)
        for (double& tap : shares)
            tap = std::round(tap * settings.tapResolution);
    return shares;
}

void FFEFilter::ApplyTaps(FFEFilterParameters& settings, std::vector<double> taps)
{
    settings.appliedTaps = std::move(taps);
    settings.taps = settings.appliedTaps;
    if (!settings.quantizeTaps || settings.taps.empty())
        return;
    settings.reportedTaps_ = NormalisedTaps(settings);
    settings.reportedTaps_.resize(static_cast<std::size_t>(std::max(settings.numberOfTaps, 0)), 0.0);
    settings.taps = settings.reportedTaps_;
}

double* FFEFilter::GetFFEAutomaticCoefficients(FFEFilterParameters* parameters, SignalData* signal)
{
    auto& settings = ParametersOf<FFEFilterParameters>(kFilter, parameters);
    return NewArrayFrom<double>(GetFFEAutomaticCoefficients(settings, this->parameters, signal)).release();
}

std::vector<double> FFEFilter::GetFFEAutomaticCoefficients(FFEFilterParameters& settings,
                                                           SystemFramework::BaseFilterParameters* searched,
                                                           const SignalData* signal)
{
    TARNWICK_TRACE("GetFFEAutomaticCoefficients...");
    const TapGrid grid{settings.samplesPerUi, settings.tapsPerUi, settings.numberOfTaps};
    grid.Require(kFilter);
    if (settings.useManualTaps) {
        ApplyTaps(settings, settings.ManualTaps());
        ReportFit(std::numeric_limits<double>::quiet_NaN());
    } else {
        PhaseSettingsOf(settings).Require(kFilter, false);
        const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
        const auto& own = ParametersOf<FFEFilterParameters>(kFilter, searched);
        const TapSearch search{ConfigurationOf(kFilter, own),
                               SamplesOf(kFilter, signal),
                               config.patternLengthUi,
                               grid,
                               settings.signalCoding,
                               settings.withoutGrayCoding,
                               own.useUserPattern,
                               own.patternSymbols,
                               settings.ignoredUi};
        ApplyTaps(settings, settings.fitAtSamplingPhase
                                ? GenerateAtSamplingPhase({search, own.mainCursorPosition, PhaseSettingsOf(settings)})
                                : GenerateFFEAutomaticCoefficients(
                                      {search, config.baudRateGBd, own.mainCursorPosition, false, 0.0}));
    }
    std::vector<double> kernel =
        Maths::SpacedTaps(settings.appliedTaps, static_cast<std::size_t>(settings.numberOfTaps),
                          static_cast<std::size_t>(grid.Spacing()));
    TARNWICK_TRACE("GetFFEAutomaticCoefficients finished");
    return kernel;
}

double* FFEFilter::GenerateFFEAutomaticCoefficients(SignalData* signal, double baudRateGBd, int patternLengthUi,
                                                    int samplesPerUi, int numberOfTaps, int tapsPerUi,
                                                    E_SIGNAL_CODING signalCoding, bool withoutGrayCoding,
                                                    bool narrowDelaySearch, double gaussianBandwidth)
{
    const auto& own = ParametersOf<FFEFilterParameters>(kFilter, parameters);
    const std::vector<double> taps = GenerateFFEAutomaticCoefficients({{ConfigurationOf(kFilter, own),
                                                                        SamplesOf(kFilter, signal),
                                                                        patternLengthUi,
                                                                        {samplesPerUi, tapsPerUi, numberOfTaps},
                                                                        signalCoding,
                                                                        withoutGrayCoding,
                                                                        own.useUserPattern,
                                                                        own.patternSymbols,
                                                                        own.ignoredUi},
                                                                       baudRateGBd,
                                                                       own.mainCursorPosition,
                                                                       narrowDelaySearch,
                                                                       gaussianBandwidth});
    return NewArrayFrom<double>(taps).release();
}

std::vector<double> FFEFilter::GenerateFFEAutomaticCoefficients(const LeastSquaresSearch& search)
{
    TARNWICK_TRACE("GenerateFFEAutomaticCoefficients...");
    Maths::TapSolution solution = FindTaps(kFilter, search);
    ReportFit(solution.residual);
    TARNWICK_TRACE("GenerateFFEAutomaticCoefficients finished");
    return std::move(solution.taps);
}

std::vector<double> FFEFilter::GenerateAtSamplingPhase(const PhaseSearch& search)
{
    Maths::PhaseFit fit = FindTaps(kFilter, search);
    ReportFit(fit.residual);
    conditionNumber = fit.condition;
    samplingPhaseUi = static_cast<double>(fit.instant) / search.grid.samplesPerUi;
    fitConstant = fit.constant;
    feedbackTaps = std::move(fit.feedback);
    return std::move(fit.taps);
}

void FFEFilter::ReportFit(double residual)
{
    residualError = std::sqrt(residual);
    conditionNumber = samplingPhaseUi = fitConstant = std::numeric_limits<double>::quiet_NaN();
    feedbackTaps.clear();
}

double* FFEFilter::GenerateTdecqEqualizer(FFEFilterParameters* parameters, SignalData* signal)
{
    auto& settings = ParametersOf<FFEFilterParameters>(kFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
    RequirePreparable(settings, config, static_cast<int>(SamplesOf(kFilter, signal).size()));
    return NewArrayFrom<double>(GenerateTdecqEqualizer(settings, this->parameters, signal)).release();
}

std::vector<double> FFEFilter::GenerateTdecqEqualizer(FFEFilterParameters& settings,
                                                      SystemFramework::BaseFilterParameters* searched,
                                                      const SignalData* signal)
{
    TARNWICK_TRACE("FFEFilter::GenerateTdecqEqualizer...");
    const std::span<const double> record = SamplesOf(kFilter, signal);
    DeviceConfiguration& config = *settings.GetConfig();
    if (settings.useManualTaps) {
        ApplyTaps(settings, settings.ManualTaps());
    } else {
        const auto lowPass = ArrayOf(kFilter, "gaussianFilter", settings.gaussianFilter, "gaussianFilterLength",
                                     settings.gaussianFilterLength);
        ApplyTaps(settings,
                  GenerateTDECQAutomaticCoefficients(
                      {{ConfigurationOf(kFilter, ParametersOf<FFEFilterParameters>(kFilter, searched)), record,
                        config.patternLengthUi, SymbolSpaced(settings.samplesPerUi, settings.numberOfTaps),
                        settings.signalCoding, settings.withoutGrayCoding, settings.useUserPattern,
                        settings.patternSymbols, settings.ignoredUi},
                       lowPass,
                       std::max(settings.mainCursorPosition, 0) - 1}));
    }
    ReportFit(std::numeric_limits<double>::quiet_NaN());

    std::vector<double> response =
        WithUnitGain(kFilter, Maths::SpacedTaps(settings.appliedTaps, static_cast<std::size_t>(settings.numberOfTaps),
                                                static_cast<std::size_t>(settings.samplesPerUi)));
    const auto length = static_cast<std::int32_t>(response.size());
    auto published = NewArrayFrom<double>(response);
    response.resize(record.size(), 0.0);
    config.PublishTdecqEqualizer(published.release(), length);
    TARNWICK_TRACE("FFEFilter::GenerateTdecqEqualizer finished");
    return response;
}

// NOLINTBEGIN(performance-unnecessary-value-param): the text by value, as hosts declare it
double* FFEFilter::GenerateTDECQAutomaticCoefficients(double* samples, int sampleCount, double* gaussianFilter,
                                                      int gaussianFilterLength, std::string patternSymbols,
                                                      int patternLengthUi, int samplesPerUi, int numberOfTaps,
                                                      bool useUserPattern, bool withoutGrayCoding,
                                                      E_SIGNAL_CODING signalCoding, int mainCursorIndex)
// NOLINTEND(performance-unnecessary-value-param)
{
    const auto& own = ParametersOf<FFEFilterParameters>(kFilter, parameters);
    const std::vector<double> taps = GenerateTDECQAutomaticCoefficients(
        {{ConfigurationOf(kFilter, own), ArrayOf(kFilter, "samples", samples, "sampleCount", sampleCount),
          patternLengthUi, SymbolSpaced(samplesPerUi, numberOfTaps), signalCoding, withoutGrayCoding, useUserPattern,
          patternSymbols, own.ignoredUi},
         ArrayOf(kFilter, "gaussianFilter", gaussianFilter, "gaussianFilterLength", gaussianFilterLength),
         mainCursorIndex});
    return NewArrayFrom<double>(taps).release();
}

std::vector<double> FFEFilter::GenerateTDECQAutomaticCoefficients(const TdecqSearch& search)
{
    TARNWICK_TRACE("FFEFilter::GenerateTDECQAutomaticCoefficients...");
    std::vector<double> taps = FindTaps(kFilter, search);
    TARNWICK_TRACE("FFEFilter::GenerateTDECQAutomaticCoefficients finished");
    return taps;
}

void FFEFilter::Prepare(SignalData* signal)
{
    TARNWICK_TRACE("FFEFilter::Prepare...");
    if (signal == nullptr)
        throw std::invalid_argument("Cannot Prepare FFE Filter Without a signal");
    auto& settings = ParametersOf<FFEFilterParameters>(kFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
    (void)SamplesOf(kFilter, signal);
    // On a copy: a search that fails changes nothing.
    FFEFilterParameters next(settings);
    if (settings.IsDirty())
        Refresh(next, config);
    next.withoutGrayCoding = config.withoutGrayCoding;
    if (next.useManualTaps) {
        RequireTapCount(kFilter, next.numberOfTaps);
        next.taps = next.ManualTaps();
        next.taps.resize(static_cast<std::size_t>(next.numberOfTaps), 0.0);
    }
    SignalData working;
    working.sampleCount = WorkingLength(kFilter, config, next.samplesPerUi, next.patternSymbols, signal->sampleCount);
    working.samples = signal->samples;
    RequirePreparable(next, config, working.sampleCount);

    auto lowPass = NewArrayFrom<double>(TdecqLowPass(kFilter, config, next.samplesPerUi, working.sampleCount,
                                                     !next.useManualTaps, next.patternSymbols.size()));
    next.SetGaussianFilter(lowPass.release(), working.sampleCount);
    SetKernel(next.useTdecqEqualizer ? GenerateTdecqEqualizer(next, &next, &working)
                                     : GetFFEAutomaticCoefficients(next, &next, &working));
    next.prepared = true;
    next.ResetDirty();
    settings = std::move(next);
    notPrepared = false;
    TARNWICK_TRACE("FFEFilter::Prepare finished");
}

double* FFEFilter::Apply(SignalData* signal)
{
    auto& settings = ParametersOf<FFEFilterParameters>(kFilter, parameters);
    if (signal == nullptr && settings.IsDirty())
        Prepare(signal);
    const std::span<const double> record = SamplesOf(kFilter, signal);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
    const auto sampleCount = static_cast<int>(record.size());
    const auto repetitions = [&](int samplesPerUi) {
        GridOf(settings, samplesPerUi).Require(kFilter);
        return PatternPeriod(kFilter, config, samplesPerUi, config.patternLengthUi).RequiredIn(sampleCount);
    };
    if (!IsDerivedByHost(*this))
        (void)repetitions(settings.IsDirty() ? WholeSamplesPerUi(kFilter, config) : settings.samplesPerUi);
    if (settings.IsDirty()) {
        Prepare(signal);
        settings.ResetDirty();
    }
    const Repetitions cut(sampleCount, repetitions(settings.samplesPerUi));
    const TapGrid grid = GridOf(settings, settings.samplesPerUi);
    const auto taps = static_cast<std::size_t>(grid.Spacing()) * static_cast<std::size_t>(grid.numberOfTaps);
    return ConvolveRepetitions(record, cut, KernelTaps(kFilter, taps), Convolver()).release();
}

}  // namespace Tarnwick::DSO::Filters
