#include "filters/filters/ffefilter.h"

#include <algorithm>
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

namespace Tarnwick::DSO::Filters {

using SystemFramework::NewArrayFrom;
using SystemFramework::SignalData;

namespace {

constexpr const char* kFfeFilter = "FFEFilter";

void Refresh(FFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    const int samplesPerUi = WholeSamplesPerUi(kFfeFilter, config);
    parameters.signalCoding = config.signalCoding;
    parameters.useUserPattern = config.useUserPattern;
    parameters.patternSymbols = config.patternSymbols;
    parameters.SetGaussianFilter(nullptr, 0);
    parameters.gaussianFilter = config.gaussianFilter;
    parameters.gaussianFilterLength = config.gaussianFilterLength;
    parameters.samplesPerUi = samplesPerUi;
}

EqualiserSettings SettingsOf(const FFEFilterParameters& parameters)
{
    return {{parameters.samplesPerUi, parameters.tapsPerUi, parameters.numberOfTaps},
            parameters.useManualTaps ? &parameters.taps : nullptr,
            parameters.quantizeTaps,
            parameters.mainCursorPosition,
            {parameters.fitAtSamplingPhase, parameters.dfeTaps, parameters.ridge},
            parameters.useTdecqEqualizer};
}

std::vector<double> ReportedTaps(const FFEFilterParameters& parameters)
{
    return parameters.quantizeTaps ? TapSteps(kFfeFilter, parameters.taps, parameters.tapResolution)
                                   : TapShares(kFfeFilter, parameters.taps);
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
    RequirePatternLock(kFfeFilter, parameters);
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
    const auto& settings = ParametersOf<FFEFilterParameters>(kFfeFilter, parameters);
    if (settings.taps.empty())
        return nullptr;
    return NewArrayFrom<double>(ReportedTaps(settings)).release();
}

void FFEFilter::ApplyTaps(FFEFilterParameters& settings, std::vector<double> taps)
{
    settings.appliedTaps = std::move(taps);
    settings.taps = settings.appliedTaps;
    if (!settings.quantizeTaps || settings.taps.empty())
        return;
    settings.reportedTaps_ = ReportedTaps(settings);
    settings.reportedTaps_.resize(static_cast<std::size_t>(std::max(settings.numberOfTaps, 0)), 0.0);
    settings.taps = settings.reportedTaps_;
}

double* FFEFilter::GetFFEAutomaticCoefficients(FFEFilterParameters* parameters, SignalData* signal)
{
    auto& settings = ParametersOf<FFEFilterParameters>(kFfeFilter, parameters);
    return NewArrayFrom<double>(GetFFEAutomaticCoefficients(settings, this->parameters, signal)).release();
}

std::vector<double> FFEFilter::GetFFEAutomaticCoefficients(FFEFilterParameters& settings,
                                                           SystemFramework::BaseFilterParameters* owner,
                                                           const SignalData* signal)
{
    TARNWICK_TRACE("GetFFEAutomaticCoefficients...");
    const EqualiserSettings equaliser = SettingsOf(settings);
    const TapGrid& grid = equaliser.grid;
    grid.Require(kFfeFilter);
    if (settings.useManualTaps) {
        ApplyTaps(settings, settings.ManualTaps());
        ReportFit({});
    } else {
        equaliser.phase.Require(kFfeFilter, false);
        const DeviceConfiguration& config = ConfigurationOf(kFfeFilter, settings);
        const auto& own = ParametersOf<FFEFilterParameters>(kFfeFilter, owner);
        const TapSearch search{ConfigurationOf(kFfeFilter, own),
                               SamplesOf(kFfeFilter, signal),
                               config.patternLengthUi,
                               grid,
                               settings.signalCoding,
                               settings.withoutGrayCoding,
                               own.useUserPattern,
                               own.patternSymbols,
                               settings.ignoredUi};
        ApplyTaps(
            settings,
            settings.fitAtSamplingPhase
                ? ReportFit(FindTaps(kFfeFilter, PhaseSearch{search, own.mainCursorPosition, equaliser.phase}))
                : GenerateFFEAutomaticCoefficients({search, config.baudRateGBd, own.mainCursorPosition, false, 0.0}));
    }
    std::vector<double> kernel = grid.Kernel(settings.appliedTaps);
    TARNWICK_TRACE("GetFFEAutomaticCoefficients finished");
    return kernel;
}

double* FFEFilter::GenerateFFEAutomaticCoefficients(SignalData* signal, double baudRateGBd, int patternLengthUi,
                                                    int samplesPerUi, int numberOfTaps, int tapsPerUi,
                                                    E_SIGNAL_CODING signalCoding, bool withoutGrayCoding,
                                                    bool narrowDelaySearch, double gaussianBandwidth)
{
    const auto& own = ParametersOf<FFEFilterParameters>(kFfeFilter, parameters);
    const std::vector<double> taps = GenerateFFEAutomaticCoefficients({{ConfigurationOf(kFfeFilter, own),
                                                                        SamplesOf(kFfeFilter, signal),
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
    std::vector<double> taps = ReportFit(FindTaps(kFfeFilter, search));
    TARNWICK_TRACE("GenerateFFEAutomaticCoefficients finished");
    return taps;
}

std::vector<double> FFEFilter::ReportFit(FittedTaps fit)
{
    residualError = fit.residualError;
    conditionNumber = fit.conditionNumber;
    samplingPhaseUi = fit.samplingPhaseUi;
    fitConstant = fit.constant;
    feedbackTaps = std::move(fit.feedback);
    return std::move(fit.taps);
}

double* FFEFilter::GenerateTdecqEqualizer(FFEFilterParameters* parameters, SignalData* signal)
{
    auto& settings = ParametersOf<FFEFilterParameters>(kFfeFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFfeFilter, settings);
    SettingsOf(settings).Require(kFfeFilter, config, static_cast<int>(SamplesOf(kFfeFilter, signal).size()));
    return NewArrayFrom<double>(GenerateTdecqEqualizer(settings, this->parameters, signal)).release();
}

std::vector<double> FFEFilter::GenerateTdecqEqualizer(FFEFilterParameters& settings,
                                                      SystemFramework::BaseFilterParameters* owner,
                                                      const SignalData* signal)
{
    TARNWICK_TRACE("FFEFilter::GenerateTdecqEqualizer...");
    const std::span<const double> record = SamplesOf(kFfeFilter, signal);
    DeviceConfiguration& config = *settings.GetConfig();
    const TapGrid grid = TapGrid::SymbolSpaced(settings.samplesPerUi, settings.numberOfTaps);
    if (settings.useManualTaps) {
        ApplyTaps(settings, settings.ManualTaps());
    } else {
        const auto lowPass = ArrayOf(kFfeFilter, "gaussianFilter", settings.gaussianFilter, "gaussianFilterLength",
                                     settings.gaussianFilterLength);
        ApplyTaps(settings,
                  GenerateTDECQAutomaticCoefficients(
                      {{ConfigurationOf(kFfeFilter, ParametersOf<FFEFilterParameters>(kFfeFilter, owner)), record,
                        config.patternLengthUi, grid, settings.signalCoding, settings.withoutGrayCoding,
                        settings.useUserPattern, settings.patternSymbols, settings.ignoredUi},
                       lowPass,
                       std::max(settings.mainCursorPosition, 0) - 1}));
    }
    ReportFit({});

    std::vector<double> response = WithUnitGain(kFfeFilter, grid.Kernel(settings.appliedTaps));
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
    const auto& own = ParametersOf<FFEFilterParameters>(kFfeFilter, parameters);
    const std::vector<double> taps = GenerateTDECQAutomaticCoefficients(
        {{ConfigurationOf(kFfeFilter, own), ArrayOf(kFfeFilter, "samples", samples, "sampleCount", sampleCount),
          patternLengthUi, TapGrid::SymbolSpaced(samplesPerUi, numberOfTaps), signalCoding, withoutGrayCoding,
          useUserPattern, patternSymbols, own.ignoredUi},
         ArrayOf(kFfeFilter, "gaussianFilter", gaussianFilter, "gaussianFilterLength", gaussianFilterLength),
         mainCursorIndex});
    return NewArrayFrom<double>(taps).release();
}

std::vector<double> FFEFilter::GenerateTDECQAutomaticCoefficients(const TdecqSearch& search)
{
    TARNWICK_TRACE("FFEFilter::GenerateTDECQAutomaticCoefficients...");
    std::vector<double> taps = FindTaps(kFfeFilter, search);
    TARNWICK_TRACE("FFEFilter::GenerateTDECQAutomaticCoefficients finished");
    return taps;
}

void FFEFilter::Prepare(SignalData* signal)
{
    TARNWICK_TRACE("FFEFilter::Prepare...");
    if (signal == nullptr)
        throw std::invalid_argument("Cannot Prepare FFE Filter Without a signal");
    auto& settings = ParametersOf<FFEFilterParameters>(kFfeFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFfeFilter, settings);
    (void)SamplesOf(kFfeFilter, signal);
    // On a copy: a search that fails changes nothing.
    FFEFilterParameters next(settings);
    if (settings.IsDirty())
        Refresh(next, config);
    next.withoutGrayCoding = config.withoutGrayCoding;
    if (next.useManualTaps) {
        RequireTapCount(kFfeFilter, next.numberOfTaps);
        next.taps = next.ManualTaps();
        next.taps.resize(static_cast<std::size_t>(next.numberOfTaps), 0.0);
    }
    SignalData working;
    working.sampleCount =
        WorkingLength(kFfeFilter, config, next.samplesPerUi, next.patternSymbols, signal->sampleCount);
    working.samples = signal->samples;
    SettingsOf(next).Require(kFfeFilter, config, working.sampleCount);

    auto lowPass = NewArrayFrom<double>(TdecqLowPass(kFfeFilter, config, next.samplesPerUi, working.sampleCount,
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
    auto& settings = ParametersOf<FFEFilterParameters>(kFfeFilter, parameters);
    if (signal == nullptr && settings.IsDirty())
        Prepare(signal);
    const std::span<const double> record = SamplesOf(kFfeFilter, signal);
    const DeviceConfiguration& config = ConfigurationOf(kFfeFilter, settings);
    const auto sampleCount = static_cast<int>(record.size());
    const auto repetitions = [&](int samplesPerUi) {
        SettingsOf(settings).KernelGrid(samplesPerUi).Require(kFfeFilter);
        return PatternPeriod(kFfeFilter, config, samplesPerUi, config.patternLengthUi).RequiredIn(sampleCount);
    };
    if (!IsDerivedByHost(*this))
        (void)repetitions(settings.IsDirty() ? WholeSamplesPerUi(kFfeFilter, config) : settings.samplesPerUi);
    if (settings.IsDirty()) {
        Prepare(signal);
        settings.ResetDirty();
    }
    const Repetitions cut(sampleCount, repetitions(settings.samplesPerUi));
    const std::size_t taps = SettingsOf(settings).KernelGrid(settings.samplesPerUi).KernelLength();
    return ConvolveRepetitions(record, cut, KernelTaps(kFfeFilter, taps), Convolver()).release();
}

}  // namespace Tarnwick::DSO::Filters
