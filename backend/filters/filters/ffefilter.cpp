#include "filters/filters/ffefilter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <span>
#include <stdexcept>
#include <utility>

#include "filters/plumbing/channel.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "framework/convolution.h"
#include "framework/dsp_helpers.h"
#include "framework/gaussianfilter.h"
#include "framework/heaputilities.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/plumbing/trace.h"
#include "framework/prbs.h"
#include "framework/rangeutilities.h"
#include "maths/equalisers/ffetaps.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Convolution;
using SystemFramework::DSP_Helpers;
using SystemFramework::GaussianFilter;
using SystemFramework::HeapUtilities;
using SystemFramework::NewArray;
using SystemFramework::NewArrayFrom;
using SystemFramework::OwnedArray;
using SystemFramework::PRBS;
using SystemFramework::RangeUtilities;
using SystemFramework::Refuse;
using SystemFramework::RequireFinite;
using SystemFramework::RequirePositive;
using SystemFramework::SignalData;
using SystemFramework::TextOf;

namespace {

constexpr const char* kFilter = "FFEFilter";
constexpr int kMostTaps = 1 << 20;          // far beyond any channel's memory, and no memory of ours to speak of
constexpr double kCaptureBandwidth = 80.0;  // [GHz] low-pass of the TDECQ path
constexpr double kDroopDb = 0.2;            // unused by a filter that is given its bandwidth
constexpr double kDroopGHz = 50.0;
constexpr double kLeastReferenceBandwidth = 40.0;  // [GHz]

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

// The part of the record that taps are found from: one repetition of several, or all.
int WorkingLength(const FFEFilterParameters& parameters, const DeviceConfiguration& config, int sampleCount)
{
    const PatternPeriod whole(kFilter, config, parameters.samplesPerUi, config.patternLengthUi);
    if (whole.CountIn(sampleCount) < 1)
        whole.RefuseShort(sampleCount);
    if (!config.multiplePatternRecord && !config.useFractionalSampling)
        return sampleCount;
    if (parameters.patternSymbols.empty())
        Refuse(kFilter, "patternSymbols", "empty",
               "the pattern's symbols, of which a record of several repetitions "
               "is counted");
    const PatternPeriod pattern(kFilter, config, parameters.samplesPerUi,
                                static_cast<int>(parameters.patternSymbols.size()));
    const int repetitions = pattern.CountIn(sampleCount);
    if (repetitions < 1)
        pattern.RefuseShort(sampleCount);
    return sampleCount / repetitions;
}

void RequireTapCount(int numberOfTaps)
{
    if (numberOfTaps < 0)
        Refuse(kFilter, "numberOfTaps", numberOfTaps, "0 or more taps");
    if (numberOfTaps > kMostTaps)
        Refuse(kFilter, "numberOfTaps", numberOfTaps, "at most " + std::to_string(kMostTaps) + " taps");
}

void RequireGeometry(int samplesPerUi, int tapsPerUi, int numberOfTaps)
{
    if (samplesPerUi < 1)
        Refuse(kFilter, "samplesPerUi", samplesPerUi, "at least 1");
    if (tapsPerUi < 1 || tapsPerUi > samplesPerUi)
        Refuse(kFilter, "tapsPerUi", tapsPerUi, "1 to samplesPerUi, " + std::to_string(samplesPerUi));
    RequireTapCount(numberOfTaps);
    CheckedProduct(kFilter, "4 * numberOfTaps * samplesPerUi", 4, numberOfTaps, samplesPerUi);
}

// What a search needs beside a geometry.
void RequireSearch(int patternLengthUi, int numberOfTaps, int tapsPerUi, int mainCursorPosition)
{
    const int places = CheckedProduct(kFilter, "patternLengthUi * tapsPerUi", patternLengthUi, tapsPerUi);
    if (numberOfTaps < 1 || numberOfTaps > places)
        Refuse(kFilter, "numberOfTaps", numberOfTaps,
               "1 to " + std::to_string(places) + ", the places in one repetition");
    if (mainCursorPosition > numberOfTaps)
        Refuse(kFilter, "mainCursorPosition", mainCursorPosition,
               "at most numberOfTaps, " + std::to_string(numberOfTaps));
}

void RequireWholePeriods(const PatternPeriod& pattern, int sampleCount)
{
    if (pattern.RoundedCountIn(sampleCount) < 1)
        pattern.RefuseShort(sampleCount);
    if (!pattern.Fills(sampleCount))
        Refuse(kFilter, "sampleCount", sampleCount,
               "a whole number of repetitions of " + TextOf(pattern.Length()) + " samples");
}

void RequireFiniteSamples(std::span<const double> record)
{
    const auto bad = std::find_if(record.begin(), record.end(), [](double value) { return !std::isfinite(value); });
    if (bad != record.end())
        Refuse(kFilter, "samples[" + std::to_string(bad - record.begin()) + "]", *bad, "a finite value");
}

double MagnitudeSum(const std::vector<double>& taps)
{
    const double sum =
        std::accumulate(taps.begin(), taps.end(), 0.0, [](double total, double tap) { return total + std::abs(tap); });
    if (!std::isfinite(sum) || sum == 0.0)
        Refuse(kFilter, "sum of the taps' magnitudes", sum, "a finite positive number");
    return sum;
}

// Of a TDECQ equaliser, whose taps are divided by their sum.
void RequireDirectGain(const FFEFilterParameters& parameters)
{
    if (!parameters.useManualTaps)
        return;
    const double sum = std::accumulate(parameters.taps.begin(), parameters.taps.end(), 0.0);
    if (!std::isfinite(sum) || sum == 0.0)
        Refuse(kFilter, "sum of the taps", sum, "a finite number other than 0 for the TDECQ equaliser");
}

void RequirePreparable(const FFEFilterParameters& parameters, const DeviceConfiguration& config, int length)
{
    RequirePositive(kFilter, "baudRateGBd", config.baudRateGBd, "a finite positive symbol rate");
    RequireGeometry(parameters.samplesPerUi, parameters.tapsPerUi, parameters.numberOfTaps);
    if (parameters.quantizeTaps && parameters.tapResolution < 1)
        Refuse(kFilter, "tapResolution", parameters.tapResolution, "at least 1 step");
    if (parameters.useManualTaps) {
        for (std::size_t k = 0; k < parameters.taps.size(); ++k)
            RequireFinite(kFilter, "taps[" + std::to_string(k) + "]", parameters.taps[k], "a finite number");
        if (parameters.quantizeTaps && parameters.numberOfTaps > 0)
            MagnitudeSum(parameters.taps);
    } else {
        RequireSearch(config.patternLengthUi, parameters.numberOfTaps, parameters.tapsPerUi,
                      parameters.mainCursorPosition);
    }
    if (parameters.useTdecqEqualizer) {
        if (parameters.numberOfTaps < 1)
            Refuse(kFilter, "numberOfTaps", parameters.numberOfTaps, "at least 1 for the TDECQ equaliser");
        RequireDirectGain(parameters);
        const double samplesPerUi = config.useFractionalSampling ? RealSamplesPerUi(config) : parameters.samplesPerUi;
        if (samplesPerUi != parameters.samplesPerUi)
            Refuse(kFilter, "uiDuration / sampleSpacing", samplesPerUi, "a whole number for the TDECQ equaliser");
        if (parameters.numberOfTaps * parameters.samplesPerUi > length)
            Refuse(kFilter, "numberOfTaps * samplesPerUi", parameters.numberOfTaps * parameters.samplesPerUi,
                   "at most the record's " + std::to_string(length) + " samples");
    }
}

// Taps `spacing` samples apart, zeros between them.
std::vector<double> SpacedTaps(const std::vector<double>& taps, int numberOfTaps, int spacing)
{
    std::vector<double> kernel(static_cast<std::size_t>(numberOfTaps) * static_cast<std::size_t>(spacing), 0.0);
    const std::size_t count = std::min(taps.size(), static_cast<std::size_t>(numberOfTaps));
    for (std::size_t k = 0; k < count; ++k)
        kernel[k * static_cast<std::size_t>(spacing)] = taps[k];
    return kernel;
}

std::vector<double> WithoutMean(std::span<const double> values)
{
    const double mean = RangeUtilities::Average(values.data(), static_cast<int>(values.size()));
    std::vector<double> result(values.begin(), values.end());
    for (double& value : result)
        value -= mean;
    return result;
}

std::string DetectedSymbols(std::span<const double> record, int repetitions, int patternLengthUi,
                            const DeviceConfiguration& config, bool withoutGrayCoding)
{
    // One period; the detection does not write to it.
    auto* samples = const_cast<double*>(record.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
    return PRBS::GetIdealPrbsSequencePAM4(samples, static_cast<int>(record.size()) / repetitions, patternLengthUi,
                                          config.patternSequenceBuffer, withoutGrayCoding, config.useUserPattern, true);
}

bool IsPam4(E_SIGNAL_CODING coding)
{
    return coding == SIGNAL_CODING_PAM4 || coding == SIGNAL_CODING_PAM4_PRECODED;
}

void RequireSymbols(const std::string& symbols)
{
    if (symbols.empty())
        Refuse(kFilter, "patternSymbols", "empty", "the pattern's symbols");
}

enum class SymbolMap { Gray, Level };

// The ideal copy of a record between its extremes, without its mean: sample m holds symbol floor(m/s) of the pattern,
// which starts anew as often as it takes.
std::vector<double> Reference(std::span<const double> record, const std::string& symbols, double samplesPerUi,
                              E_SIGNAL_CODING coding, SymbolMap map)
{
    const auto count = static_cast<int>(record.size());
    const double low = RangeUtilities::Min(record.data(), count);
    const double high = RangeUtilities::Max(record.data(), count);
    int length = 0;
    const OwnedArray voltages(
        map == SymbolMap::Gray
            ? PRBS::GetIdealSignalFromPrbsSymbolsD(length, low, high, symbols, 1, coding)
            : PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD(length, low, high, symbols, 1, coding, 0.0));
    std::vector<double> reference(record.size());
    for (std::size_t m = 0; m < reference.size(); ++m)
        reference[m] = voltages[static_cast<std::size_t>(static_cast<double>(m) / samplesPerUi) % symbols.size()];
    return WithoutMean(reference);
}

// The delay that the capture has to move by, and its sign: where the circular correlation is largest in magnitude.
struct Alignment {
    int peak;
    double sign;
};

Alignment Align(std::span<const double> reference, std::span<const double> capture)
{
    const auto count = static_cast<int>(capture.size());
    const std::vector<double> reversed(capture.rbegin(), capture.rend());
    const OwnedArray correlation(Convolution::CircularConv(reference.data(), count, reversed.data(), count));
    const double least = RangeUtilities::Min(correlation.get(), count);
    const double most = RangeUtilities::Max(correlation.get(), count);
    const double value = std::abs(most) > std::abs(least) ? most : least;
    const double* const peak = std::find(correlation.get(), correlation.get() + count, value);
    return {static_cast<int>(peak - correlation.get()), value > 0.0 ? 1.0 : -1.0};
}

// Lets the filter's own parameters be those that are being prepared.
class Standing {
public:
    Standing(SystemFramework::BaseFilterParameters*& place, SystemFramework::BaseFilterParameters* now)
        : place_(place), before_(std::exchange(place, now))
    {
    }
    Standing(const Standing&) = delete;
    Standing& operator=(const Standing&) = delete;
    ~Standing() { place_ = before_; }

private:
    SystemFramework::BaseFilterParameters*& place_;
    SystemFramework::BaseFilterParameters* before_;
};

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
    gaussianOwner_.array =
        lowPass != nullptr ? std::shared_ptr<double>(lowPass, SystemFramework::BoundaryRelease()) : nullptr;
    gaussianFilter = lowPass;
    gaussianFilterLength = length;
}

bool FFEFilterParameters::HoldsReport() const
{
    return !reportedTaps_.empty() && taps == reportedTaps_;
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
    notPrepared = true;
    flag2 = true;
    TARNWICK_TRACE("FFEFilter constructor finished");
}

FFEFilter::FFEFilter(DeviceConfiguration*)
{
    notPrepared = true;
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
    const auto& settings = Given<FFEFilterParameters>(kFilter, parameters);
    if (settings.taps.empty())
        return nullptr;
    const double sum = MagnitudeSum(settings.taps);
    OwnedArray result = NewArray(settings.taps.size());
    for (std::size_t k = 0; k < settings.taps.size(); ++k) {
        const double share = settings.taps[k] / sum;
        result[k] = settings.quantizeTaps ? std::round(share * settings.tapResolution) : share;
    }
    return result.release();
}

void FFEFilter::Report(FFEFilterParameters& settings)
{
    if (!settings.quantizeTaps || settings.taps.empty())
        return;
    const OwnedArray steps(GetOptimizedTaps(&settings));
    settings.reportedTaps_.assign(steps.get(), steps.get() + settings.taps.size());
    settings.taps = settings.reportedTaps_;
}

double* FFEFilter::GetFFEAutomaticCoefficients(FFEFilterParameters* parameters, SignalData* signal)
{
    TARNWICK_TRACE("GetFFEAutomaticCoefficients...");
    auto& settings = Given<FFEFilterParameters>(kFilter, parameters);
    RequireGeometry(settings.samplesPerUi, settings.tapsPerUi, settings.numberOfTaps);
    if (settings.useManualTaps) {
        // Steps that an earlier call has reported are no taps: those are still in appliedTaps.
        if (!settings.HoldsReport())
            settings.appliedTaps = settings.taps;
        residualError = std::numeric_limits<double>::quiet_NaN();
    } else {
        const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
        const OwnedArray found(GenerateFFEAutomaticCoefficients(
            signal, config.baudRateGBd, config.patternLengthUi, settings.samplesPerUi, settings.numberOfTaps,
            settings.tapsPerUi, settings.signalCoding, settings.withoutGrayCoding, false, 0.0));
        settings.appliedTaps.assign(found.get(), found.get() + settings.numberOfTaps);
    }
    settings.taps = settings.appliedTaps;
    Report(settings);
    OwnedArray kernel = NewArrayFrom<double>(
        SpacedTaps(settings.appliedTaps, settings.numberOfTaps, settings.samplesPerUi / settings.tapsPerUi));
    TARNWICK_TRACE("GetFFEAutomaticCoefficients finished");
    return kernel.release();
}

double* FFEFilter::GenerateFFEAutomaticCoefficients(SignalData* signal, double baudRateGBd, int patternLengthUi,
                                                    int samplesPerUi, int numberOfTaps, int tapsPerUi,
                                                    E_SIGNAL_CODING signalCoding, bool withoutGrayCoding,
                                                    bool narrowDelaySearch, double gaussianBandwidth)
{
    TARNWICK_TRACE("GenerateFFEAutomaticCoefficients...");
    const auto& own = Given<FFEFilterParameters>(kFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, own);
    const std::span<const double> record = SamplesOf(kFilter, signal);
    const auto sampleCount = static_cast<int>(record.size());
    RequirePositive(kFilter, "baudRateGBd", baudRateGBd, "a finite positive symbol rate");
    RequireFinite(kFilter, "gaussianBandwidth", gaussianBandwidth, "a finite bandwidth in GHz");
    RequireGeometry(samplesPerUi, tapsPerUi, numberOfTaps);
    const PatternPeriod pattern(kFilter, config, samplesPerUi, patternLengthUi);
    RequireSearch(patternLengthUi, numberOfTaps, tapsPerUi, own.mainCursorPosition);
    RequireWholePeriods(pattern, sampleCount);
    RequireFiniteSamples(record);

    const bool detect = IsPam4(signalCoding) && !own.useUserPattern;
    const std::string symbols = detect ? DetectedSymbols(record, pattern.RoundedCountIn(sampleCount), patternLengthUi,
                                                         config, withoutGrayCoding)
                                       : own.patternSymbols;
    RequireSymbols(symbols);
    RequireWholePeriods(PatternPeriod(kFilter, config, samplesPerUi, static_cast<int>(symbols.size())), sampleCount);

    // The configuration's choice of Gray coding holds here, not the argument's.
    const std::vector<double> capture = WithoutMean(record);
    std::vector<double> reference = Reference(record, symbols, pattern.SamplesPerUi(),
                                              config.withoutGrayCoding ? config.signalCoding : signalCoding,
                                              config.withoutGrayCoding ? SymbolMap::Level : SymbolMap::Gray);
    const double bandwidth =
        gaussianBandwidth == 0.0 ? std::max(kLeastReferenceBandwidth, baudRateGBd) : gaussianBandwidth;
    const OwnedArray filtered(GaussianFilter::ApplyGaussianFilter(reference.data(), static_cast<int>(reference.size()),
                                                                  baudRateGBd, bandwidth, samplesPerUi));
    std::copy(filtered.get(), filtered.get() + reference.size(), reference.begin());
    const Alignment alignment = Align(reference, capture);
    for (double& value : reference)
        value *= alignment.sign;

    std::vector<int> delays = Maths::TapDelays(numberOfTaps, samplesPerUi, tapsPerUi);
    // The rotated copy leads by one sample: where no delay is searched, the reference has to.
    const std::vector<int> candidates =
        own.mainCursorPosition >= 1 ? std::vector<int>{delays[static_cast<std::size_t>(own.mainCursorPosition - 1)] - 1}
                                    : Maths::CandidateDelays(numberOfTaps, samplesPerUi, tapsPerUi, narrowDelaySearch);
    for (int& delay : delays)
        delay += alignment.peak;
    const auto solution = Maths::SolveTaps(capture, reference, delays, candidates);
    if (!solution)
        Refuse(kFilter, "numberOfTaps", numberOfTaps,
               "as many taps as the capture can tell apart: it is constant, not finite, or its pattern too simple");
    OwnedArray taps = NewArrayFrom<double>(solution->taps);
    residualError = std::sqrt(solution->residual);
    TARNWICK_TRACE("GenerateFFEAutomaticCoefficients finished");
    return taps.release();
}

double* FFEFilter::GenerateTdecqEqualizer(FFEFilterParameters* parameters, SignalData* signal)
{
    TARNWICK_TRACE("FFEFilter::GenerateTdecqEqualizer...");
    auto& settings = Given<FFEFilterParameters>(kFilter, parameters);
    DeviceConfiguration* const config = settings.GetConfig();
    (void)ConfigurationOf(kFilter, settings);
    const auto sampleCount = static_cast<int>(SamplesOf(kFilter, signal).size());
    RequirePreparable(settings, *config, sampleCount);
    if (settings.useManualTaps) {
        if (!settings.HoldsReport())
            settings.appliedTaps = settings.taps;
    } else {
        const OwnedArray found(GenerateTDECQAutomaticCoefficients(
            signal->samples, sampleCount, settings.gaussianFilter, settings.gaussianFilterLength,
            settings.patternSymbols, config->patternLengthUi, settings.samplesPerUi, settings.numberOfTaps,
            settings.useUserPattern, settings.withoutGrayCoding, settings.signalCoding,
            std::max(settings.mainCursorPosition, 0) - 1));
        settings.appliedTaps.assign(found.get(), found.get() + settings.numberOfTaps);
    }
    settings.taps = settings.appliedTaps;
    residualError = std::numeric_limits<double>::quiet_NaN();
    Report(settings);

    std::vector<double> response = SpacedTaps(settings.appliedTaps, settings.numberOfTaps, settings.samplesPerUi);
    const auto length = static_cast<int>(response.size());
    const OwnedArray normalised(DSP_Helpers::Normalize(response.data(), length));
    OwnedArray grown(
        HeapUtilities::ResizePointerArray(normalised.get(), response.size(), static_cast<std::size_t>(sampleCount)));
    OwnedArray published = NewArrayFrom<double>(std::span(grown.get(), response.size()));
    config->PublishTdecqEqualizer(published.release(), length);
    TARNWICK_TRACE("FFEFilter::GenerateTdecqEqualizer finished");
    return grown.release();
}

double* FFEFilter::GenerateTDECQAutomaticCoefficients(double* samples, int sampleCount, double* gaussianFilter,
                                                      int gaussianFilterLength, std::string patternSymbols,
                                                      int patternLengthUi, int samplesPerUi, int numberOfTaps,
                                                      bool useUserPattern, bool withoutGrayCoding,
                                                      E_SIGNAL_CODING signalCoding, int mainCursorIndex)
{
    TARNWICK_TRACE("FFEFilter::GenerateTDECQAutomaticCoefficients...");
    const DeviceConfiguration& config = ConfigurationOf(kFilter, Given<FFEFilterParameters>(kFilter, parameters));
    RequireGeometry(samplesPerUi, 1, numberOfTaps);
    RequireSearch(patternLengthUi, numberOfTaps, 1, std::min(mainCursorIndex, numberOfTaps) + 1);
    const PatternPeriod pattern(kFilter, config, samplesPerUi, patternLengthUi);
    RequireWholePeriods(pattern, sampleCount);
    const OwnedArray filtered(Convolution::CircularConv(samples, sampleCount, gaussianFilter, gaussianFilterLength));
    RequireFiniteSamples({samples, static_cast<std::size_t>(sampleCount)});
    // Its rounding would pass for four levels.
    if (RangeUtilities::Min(samples, sampleCount) == RangeUtilities::Max(samples, sampleCount))
        Refuse(kFilter, "samples", "constant, " + TextOf(*samples), "a capture of the pattern");
    const std::span<const double> record(filtered.get(), static_cast<std::size_t>(sampleCount));

    std::string symbols = useUserPattern ? std::move(patternSymbols)
                                         : DetectedSymbols(record, pattern.RoundedCountIn(sampleCount), patternLengthUi,
                                                           config, withoutGrayCoding);
    RequireSymbols(symbols);
    RequireWholePeriods(PatternPeriod(kFilter, config, samplesPerUi, static_cast<int>(symbols.size())), sampleCount);
    std::vector<double> reference =
        Reference(record, symbols, samplesPerUi, signalCoding, withoutGrayCoding ? SymbolMap::Level : SymbolMap::Gray);
    std::vector<double> capture = WithoutMean(record);

    // The solver aligns the two itself; however they are rotated, its taps are the same.
    OwnedArray taps = NewArray(static_cast<std::size_t>(numberOfTaps));
    DSP_Helpers::GenerateTdecqEqualizerCoefficients(capture.data(), sampleCount, reference.data(), sampleCount,
                                                    numberOfTaps, samplesPerUi, std::max(mainCursorIndex, -1),
                                                    taps.get(), numberOfTaps);
    TARNWICK_TRACE("FFEFilter::GenerateTDECQAutomaticCoefficients finished");
    return taps.release();
}

void FFEFilter::Prepare(SignalData* signal)
{
    TARNWICK_TRACE("FFEFilter::Prepare...");
    if (signal == nullptr)
        throw std::invalid_argument("Cannot Prepare FFE Filter Without a signal");
    auto& settings = Given<FFEFilterParameters>(kFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
    (void)SamplesOf(kFilter, signal);
    // On a copy: a search that fails changes nothing.
    FFEFilterParameters next(settings);
    if (settings.IsDirty())
        Refresh(next, config);
    next.withoutGrayCoding = config.withoutGrayCoding;
    if (next.useManualTaps) {
        if (next.HoldsReport())
            next.taps = next.appliedTaps;
        RequireTapCount(next.numberOfTaps);
        next.taps.resize(static_cast<std::size_t>(next.numberOfTaps), 0.0);
    }
    SignalData working;
    working.sampleCount = WorkingLength(next, config, signal->sampleCount);
    working.samples = signal->samples;
    working.auxSamples1 = signal->auxSamples1;
    working.auxSamples2 = signal->auxSamples2;
    RequirePreparable(next, config, working.sampleCount);

    const int repetitions =
        PatternPeriod(kFilter, config, next.samplesPerUi, config.patternLengthUi).RoundedCountIn(working.sampleCount);
    // Only a text much shorter than the pattern cuts the record so short.
    if (repetitions < 1)
        Refuse(kFilter, "length of patternSymbols", static_cast<int>(next.patternSymbols.size()),
               "patternLengthUi, " + std::to_string(config.patternLengthUi));
    const int samplesPerUi = working.sampleCount / CheckedProduct(kFilter, "patternRepeats * patternLengthUi",
                                                                  repetitions, config.patternLengthUi);
    int length = 0;
    double* const lowPass = GaussianFilter::GetGaussianFilter_A(
        length, config.baudRateGBd, kCaptureBandwidth, samplesPerUi, working.sampleCount, false, kDroopDb, kDroopGHz);
    next.SetGaussianFilter(lowPass, length);
    {
        const Standing standing(parameters, &next);
        const OwnedArray built(next.useTdecqEqualizer ? GenerateTdecqEqualizer(&next, &working)
                                                      : GetFFEAutomaticCoefficients(&next, &working));
        const int count =
            next.useTdecqEqualizer ? working.sampleCount : next.samplesPerUi / next.tapsPerUi * next.numberOfTaps;
        SetKernel(std::span(built.get(), static_cast<std::size_t>(count)));
    }
    next.prepared = true;
    next.ResetDirty();
    settings = std::move(next);
    notPrepared = false;
    TARNWICK_TRACE("FFEFilter::Prepare finished");
}

double* FFEFilter::Apply(SignalData* signal)
{
    auto& settings = Given<FFEFilterParameters>(kFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kFilter, settings);
    if (signal == nullptr && settings.IsDirty())
        Prepare(signal);
    const std::span<const double> record = SamplesOf(kFilter, signal);
    const auto sampleCount = static_cast<int>(record.size());
    const int samplesPerUi = settings.IsDirty() ? WholeSamplesPerUi(kFilter, config) : settings.samplesPerUi;
    RequireGeometry(samplesPerUi, settings.tapsPerUi, settings.numberOfTaps);
    const PatternPeriod pattern(kFilter, config, samplesPerUi, config.patternLengthUi);
    const int repetitions = pattern.CountIn(sampleCount);
    if (repetitions < 1)
        pattern.RefuseShort(sampleCount);
    if (settings.IsDirty()) {
        Prepare(signal);
        settings.ResetDirty();
    }
    const auto taps = static_cast<std::size_t>(settings.samplesPerUi / settings.tapsPerUi) *
                      static_cast<std::size_t>(settings.numberOfTaps);
    return ConvolveRepetitions(record, {sampleCount, repetitions}, KernelTaps(kFilter, taps), Convolver()).release();
}

}  // namespace Tarnwick::DSO::Filters
