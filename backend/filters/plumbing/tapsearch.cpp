#include "filters/plumbing/tapsearch.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <utility>

#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/patternsymbols.h"
#include "maths/convolution/circularconvolver.h"
#include "maths/equalisers/ffesearch.h"
#include "maths/equalisers/phasefit.h"
#include "maths/equalisers/tdecq.h"
#include "maths/patterns/codings.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/responses/gaussian.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Refuse;
using SystemFramework::RequireFinite;
using SystemFramework::RequireFiniteSamples;
using SystemFramework::RequirePositive;
using SystemFramework::SymbolLevels;
using SystemFramework::SymbolMapOf;

namespace {

constexpr double kCaptureBandwidth = 80.0;         // [GHz] low-pass of the TDECQ path
constexpr double kLeastReferenceBandwidth = 40.0;  // [GHz] low-pass of the ideal copy unless the symbol rate is higher

std::string DetectedSymbols(const char* filter, const TapSearch& search, std::span<const double> record,
                            const PatternPeriod& period)
{
    const auto count = static_cast<int>(record.size());
    return SystemFramework::DetectedPam4Symbols(
        filter, record.data(), count / period.RoundedCountIn(count),
        {search.patternLengthUi, SymbolMapOf(search.withoutGrayCoding),
         search.config.useUserPattern ? search.config.patternSequenceBuffer : nullptr, Maths::Decisions::Equalised});
}

SymbolLevels LevelsOf(const char* filter, const TapSearch& search, const std::string& symbols, E_SIGNAL_CODING coding,
                      bool withoutGrayCoding)
{
    if (symbols.empty())
        Refuse(filter, "patternSymbols", "empty", "the pattern's symbols");
    PatternPeriod(filter, search.config, search.grid.samplesPerUi, static_cast<int>(symbols.size()))
        .RequireWholeRepetitions(static_cast<int>(search.record.size()));
    return SystemFramework::LevelsOfSymbols(filter, "symbols", symbols, coding, SymbolMapOf(withoutGrayCoding));
}

// The levels that the least-squares fits are made to.
SymbolLevels SentLevels(const char* filter, const TapSearch& search, const PatternPeriod& period)
{
    const bool isPam4 = search.signalCoding == SIGNAL_CODING_PAM4 || search.signalCoding == SIGNAL_CODING_PAM4_PRECODED;
    const std::string symbols = isPam4 && !search.useUserPattern
                                    ? DetectedSymbols(filter, search, search.record, period)
                                    : search.patternSymbols;
    // The configuration decides on Gray coding here, not the argument. Deliberate.
    const bool withoutGrayCoding = search.config.withoutGrayCoding;
    return LevelsOf(filter, search, symbols, withoutGrayCoding ? search.config.signalCoding : search.signalCoding,
                    withoutGrayCoding);
}

// Whole UI of the record.
std::size_t RecordUi(const TapSearch& search, const PatternPeriod& period)
{
    return static_cast<std::size_t>(static_cast<double>(search.record.size()) / period.SamplesPerUi());
}

[[noreturn]] void RefuseIndistinct(const char* filter, int numberOfTaps)
{
    Refuse(filter, "numberOfTaps", numberOfTaps,
           "as many taps as the capture can tell apart: it is constant, not finite, or its pattern too simple");
}

// The record with its ends replaced by the values next to them, so that a filter meets neither the ends nor a step.
std::vector<double> WithHeldEnds(std::span<const double> record, std::size_t ends)
{
    std::vector<double> held(record.begin(), record.end());
    std::fill_n(held.begin(), ends, held[ends]);
    std::fill_n(held.rbegin(), ends, held[record.size() - 1 - ends]);
    return held;
}

bool IsConstant(std::span<const double> values)
{
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    return *low == *high;
}

}  // namespace

FittedTaps FindTaps(const char* filter, const LeastSquaresSearch& search)
{
    const auto& [samplesPerUi, tapsPerUi, numberOfTaps] = search.grid;
    RequirePositive(filter, "baudRateGBd", search.baudRateGBd, "a finite positive symbol rate");
    RequireFinite(filter, "gaussianBandwidth", search.gaussianBandwidth, "a finite bandwidth in GHz");
    search.grid.Require(filter);
    const PatternPeriod period(filter, search.config, samplesPerUi, search.patternLengthUi);
    search.grid.RequireFit(filter, search.patternLengthUi, search.mainCursorPosition);
    period.RequireWholeRepetitions(static_cast<int>(search.record.size()));
    RequireFiniteSamples(filter, search.record);
    const double bandwidth = search.gaussianBandwidth == 0.0 ? std::max(kLeastReferenceBandwidth, search.baudRateGBd)
                                                             : search.gaussianBandwidth;
    RequirePositive(filter, "bandwidth", bandwidth, "a finite positive bandwidth in GHz");

    // Candidate delays reach a quarter of a tap beyond the taps.
    const auto taps = static_cast<std::size_t>(numberOfTaps);
    const std::size_t reachUi = taps / static_cast<std::size_t>(tapsPerUi) + 2;
    IgnoredEnds{search.ignoredUi, RecordUi(search, period), reachUi, taps}.Require(filter);
    const auto [levels, levelCount] = SentLevels(filter, search, period);
    auto solution =
        Maths::FindLeastSquaresTaps({{search.record, levels, levelCount, period.SamplesPerUi()},
                                     samplesPerUi,
                                     numberOfTaps,
                                     tapsPerUi,
                                     search.mainCursorPosition,
                                     search.narrowDelaySearch,
                                     search.baudRateGBd * samplesPerUi,
                                     bandwidth,
                                     static_cast<std::size_t>(std::ceil(search.ignoredUi * period.SamplesPerUi()))});
    if (!solution)
        RefuseIndistinct(filter, numberOfTaps);
    FittedTaps found;
    found.taps = std::move(solution->taps);
    found.residualError = std::sqrt(solution->residual);
    return found;
}

void PhaseSettings::Require(const char* filter, bool useTdecqEqualizer) const
{
    if (fitAtSamplingPhase && useTdecqEqualizer)
        Refuse(filter, "useTdecqEqualizer", "true", "false with fitAtSamplingPhase");
    if (dfeTaps < 0)
        Refuse(filter, "dfeTaps", dfeTaps, "0 or more taps");
    if (!std::isfinite(ridge) || ridge < 0.0)
        Refuse(filter, "ridge", ridge, "a finite number of at least 0");
    if (!fitAtSamplingPhase && dfeTaps > 0)
        Refuse(filter, "dfeTaps", dfeTaps, "0 without fitAtSamplingPhase");
    if (!fitAtSamplingPhase && ridge > 0.0)
        Refuse(filter, "ridge", ridge, "0 without fitAtSamplingPhase");
}

FittedTaps FindTaps(const char* filter, const PhaseSearch& search)
{
    const auto& [samplesPerUi, tapsPerUi, numberOfTaps] = search.grid;
    search.grid.Require(filter);
    RequireWholeSampling(filter, search.config, samplesPerUi, "a fit at the sampling phase");
    const PatternPeriod period(filter, search.config, samplesPerUi, search.patternLengthUi);
    search.grid.RequireFit(filter, search.patternLengthUi, search.mainCursorPosition);
    period.RequireWholeRepetitions(static_cast<int>(search.record.size()));
    RequireFiniteSamples(filter, search.record);
    const int dfeTaps = search.settings.dfeTaps;
    if (dfeTaps > search.patternLengthUi - 2)
        Refuse(filter, "dfeTaps", dfeTaps,
               "at most patternLengthUi - 2, " + std::to_string(search.patternLengthUi - 2));

    Maths::PhaseFitProblem problem;
    problem.samples = search.record;
    problem.samplesPerUi = static_cast<std::size_t>(samplesPerUi);
    for (int j = 0; j < numberOfTaps; ++j)
        problem.tapDelays.push_back(j * search.grid.Spacing());
    problem.feedbackTaps = static_cast<std::size_t>(dfeTaps);
    if (search.mainCursorPosition >= 1)
        problem.mainCursor = static_cast<std::size_t>(search.mainCursorPosition) - 1;
    problem.ignoredUi = static_cast<std::size_t>(std::max(search.ignoredUi, 0));
    problem.ridge = search.settings.ridge;
    const std::size_t uiCount = RecordUi(search, period);
    IgnoredEnds{search.ignoredUi, uiCount, Maths::PhaseFitReach(problem),
                problem.tapDelays.size() + problem.feedbackTaps + 1}
        .Require(filter);

    const auto [levels, levelCount] = SentLevels(filter, search, period);
    const std::size_t ends = problem.ignoredUi * problem.samplesPerUi;
    const auto inner = search.record.subspan(ends, search.record.size() - 2 * ends);
    const auto [low, high] = std::minmax_element(inner.begin(), inner.end());
    const double swing = *high - *low;
    const std::vector<double> sent = Maths::IdealSignal(levels, {-swing / 2.0, swing / 2.0, levelCount}, 1.0, uiCount);
    problem.levels = sent;
    auto fit = Maths::FitAtSamplingPhase(problem);
    if (!fit && problem.mainCursor) {
        problem.mainCursor.reset();
        if (Maths::FitAtSamplingPhase(problem))
            Refuse(filter, "mainCursorPosition", search.mainCursorPosition,
                   "a place at which the capture lets the largest tap stand");
    }
    if (!fit)
        RefuseIndistinct(filter, numberOfTaps);
    if (fit->isInverted) {
        for (double& tap : fit->taps)
            tap = -tap;
        fit->constant = -fit->constant;
    }
    // The fit adds what a DFE takes off.
    for (double& tap : fit->feedback)
        tap = -tap;
    return {std::move(fit->taps), std::sqrt(fit->residual),
            fit->condition,       static_cast<double>(fit->instant) / samplesPerUi,
            fit->constant,        std::move(fit->feedback)};
}

std::vector<double> FindTaps(const char* filter, const TdecqSearch& search)
{
    const auto& [samplesPerUi, tapsPerUi, numberOfTaps] = search.grid;
    const std::span<const double> record = search.record;
    const auto sampleCount = static_cast<int>(record.size());
    search.grid.Require(filter);
    search.grid.RequireFit(filter, search.patternLengthUi, std::min(search.mainCursorIndex, numberOfTaps) + 1);
    RequireWholeSampling(filter, search.config, samplesPerUi);
    const PatternPeriod period(filter, search.config, samplesPerUi, search.patternLengthUi);
    period.RequireWholeRepetitions(sampleCount);
    if (sampleCount % samplesPerUi != 0)
        Refuse(filter, "sampleCount", sampleCount,
               "a positive multiple of samplesPerUi, " + std::to_string(samplesPerUi));
    RequireFiniteSamples(filter, record);
    const auto taps = static_cast<std::size_t>(numberOfTaps);
    IgnoredEnds{search.ignoredUi, RecordUi(search, period), Maths::kTdecqReachUi + taps - 1, taps + 2}.Require(filter);
    const auto ignoredUi = static_cast<std::size_t>(search.ignoredUi);
    // The rounding of a low-passed constant would pass for four levels.
    if (IsConstant(record))
        Refuse(filter, "samples", "constant, " + SystemFramework::TextOf(record.front()), "a capture of the pattern");
    std::vector<double> filtered(record.size());
    Maths::ConvolutionWork work;
    Maths::CircularConvolver lowPass(search.lowPass, record.size());
    lowPass.Convolve(record, filtered, work);
    RequireFiniteSamples(filter, filtered);
    if (IsConstant(filtered))
        Refuse(filter, "capture", "constant", "a waveform that is not constant");

    const std::string symbols =
        search.useUserPattern ? search.patternSymbols : DetectedSymbols(filter, search, filtered, period);
    // The equaliser is one for PAM4: where the coding is not given, the symbols are still numbered as those of PAM4 are.
    const E_SIGNAL_CODING coding =
        Maths::FindCoding(search.signalCoding) == nullptr ? SIGNAL_CODING_PAM4 : search.signalCoding;
    const auto levels = LevelsOf(filter, search, symbols, coding, search.withoutGrayCoding).levels;
    const auto spacing = static_cast<std::size_t>(samplesPerUi);
    const std::size_t ends = ignoredUi * spacing;
    if (ends > 0) {
        // The low-pass reaches over more than a few UI: cut off at half the sample rate, it rings on as 1/n.
        lowPass.Convolve(WithHeldEnds(record, ends), filtered, work);
    }
    const std::vector<double> capture = Maths::WithoutMean(filtered, ends);
    const auto located = Maths::LocatePattern(capture, levels, spacing, ignoredUi);
    if (!located && levels == std::vector<int>(levels.size(), levels.front()))
        Refuse(filter, "reference", "constant", "a waveform that is not constant");
    if (!located)
        Refuse(filter, "number of levels in the reference", "outside its range", "2 to 4");
    const int cursor = std::max(search.mainCursorIndex, -1);
    auto equaliser = Maths::FindReferenceEqualizer(
        capture, *located, spacing, taps, cursor < 0 ? std::nullopt : std::optional(static_cast<std::size_t>(cursor)),
        ignoredUi);
    if (!equaliser)
        Refuse(filter, "mainCursorIndex", cursor, "a place at which the capture lets the largest tap stand");
    return std::move(equaliser->taps);
}

TapGrid EqualiserSettings::KernelGrid(int samplesPerUi) const
{
    const bool isSpacing = grid.tapsPerUi >= 1 && grid.tapsPerUi <= samplesPerUi;
    return {samplesPerUi, useTdecqEqualizer && !isSpacing ? 1 : grid.tapsPerUi, grid.numberOfTaps};
}

void EqualiserSettings::Require(const char* filter, const DeviceConfiguration& config, int length) const
{
    const TapGrid kernelGrid = KernelGrid(grid.samplesPerUi);
    const auto& [samplesPerUi, tapsPerUi, numberOfTaps] = kernelGrid;
    phase.Require(filter, useTdecqEqualizer);
    (void)SymbolRate(filter, config);
    kernelGrid.Require(filter);
    if (!manualTaps) {
        kernelGrid.RequireFit(filter, config.patternLengthUi, mainCursorPosition);
    } else {
        RequireFiniteTaps(filter, *manualTaps);
        if (quantizeTaps && numberOfTaps > 0)
            (void)TapShares(filter, *manualTaps);
    }
    if (!useTdecqEqualizer)
        return;
    if (numberOfTaps < 1)
        Refuse(filter, "numberOfTaps", numberOfTaps, "at least 1 for the TDECQ equaliser");
    const double gain = manualTaps ? std::accumulate(manualTaps->begin(), manualTaps->end(), 0.0) : 1.0;
    if (!std::isfinite(gain) || gain == 0.0)
        Refuse(filter, "sum of the taps", gain, "a finite number other than 0 for the TDECQ equaliser");
    RequireWholeSampling(filter, config, samplesPerUi);
    if (numberOfTaps * samplesPerUi > length)
        Refuse(filter, "numberOfTaps * samplesPerUi", numberOfTaps * samplesPerUi,
               "at most the record's " + std::to_string(length) + " samples");
}

std::vector<double> TdecqLowPass(const char* filter, const DeviceConfiguration& config, int samplesPerUi, int length,
                                 bool isSearched, std::size_t patternSymbols)
{
    const PatternPeriod pattern(filter, config, samplesPerUi, config.patternLengthUi);
    const int repetitions = isSearched ? pattern.RoundedCountIn(length) : std::max(pattern.CountIn(length), 1);
    // Only a text much shorter than the pattern leaves less than half a repetition.
    if (repetitions < 1)
        Refuse(filter, "length of patternSymbols", static_cast<int>(patternSymbols),
               "patternLengthUi, " + std::to_string(config.patternLengthUi));
    const int symbols = CheckedProduct(filter, "patternRepeats * patternLengthUi", repetitions, config.patternLengthUi);
    return Maths::GaussianTaps(static_cast<std::size_t>(length), config.baudRateGBd * std::max(length / symbols, 1),
                               kCaptureBandwidth);
}

void RequireWholeSampling(const char* filter, const DeviceConfiguration& config, int samplesPerUi,
                          const std::string& fit)
{
    const double sampling = config.useFractionalSampling ? RealSamplesPerUi(config) : samplesPerUi;
    if (sampling != std::trunc(sampling))
        Refuse(filter, "uiDuration / sampleSpacing", sampling, "a whole number for " + fit);
    if (sampling != samplesPerUi)
        Refuse(filter, "uiDuration / sampleSpacing", sampling, "samplesPerUi, " + std::to_string(samplesPerUi));
}

}  // namespace Tarnwick::DSO::Filters
