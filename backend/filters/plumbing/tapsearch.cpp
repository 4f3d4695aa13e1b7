#include "filters/plumbing/tapsearch.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/patternsymbols.h"
#include "maths/convolution/circularconvolver.h"
#include "maths/equalisers/tdecq.h"
#include "maths/patterns/codings.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Refuse;
using SystemFramework::RequireFinite;
using SystemFramework::RequireFiniteSamples;
using SystemFramework::RequirePositive;
using SystemFramework::SymbolLevels;
using SystemFramework::SymbolMapOf;

namespace {

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

bool IsConstant(std::span<const double> values)
{
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    return *low == *high;
}

}  // namespace

Maths::TapSolution FindTaps(const char* filter, const LeastSquaresSearch& search)
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

    const bool isPam4 = search.signalCoding == SIGNAL_CODING_PAM4 || search.signalCoding == SIGNAL_CODING_PAM4_PRECODED;
    const std::string symbols = isPam4 && !search.useUserPattern
                                    ? DetectedSymbols(filter, search, search.record, period)
                                    : search.patternSymbols;
    // The configuration decides on Gray coding here, not the argument. Deliberate.
    const bool withoutGrayCoding = search.config.withoutGrayCoding;
    const auto [levels, levelCount] =
        LevelsOf(filter, search, symbols, withoutGrayCoding ? search.config.signalCoding : search.signalCoding,
                 withoutGrayCoding);
    auto solution = Maths::FindLeastSquaresTaps({{search.record, levels, levelCount, period.SamplesPerUi()},
                                                 samplesPerUi,
                                                 numberOfTaps,
                                                 tapsPerUi,
                                                 search.mainCursorPosition,
                                                 search.narrowDelaySearch,
                                                 search.baudRateGBd * samplesPerUi,
                                                 bandwidth});
    if (!solution)
        Refuse(filter, "numberOfTaps", numberOfTaps,
               "as many taps as the capture can tell apart: it is constant, not finite, or its pattern too simple");
    return *std::move(solution);
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
    // The rounding of a low-passed constant would pass for four levels.
    if (IsConstant(record))
        Refuse(filter, "samples", "constant, " + SystemFramework::TextOf(record.front()), "a capture of the pattern");
    std::vector<double> filtered(record.size());
    Maths::ConvolutionWork work;
    Maths::CircularConvolver(search.lowPass, record.size()).Convolve(record, filtered, work);
    RequireFiniteSamples(filter, filtered);
    if (IsConstant(filtered))
        Refuse(filter, "capture", "constant", "a waveform that is not constant");

    const std::string symbols =
        search.useUserPattern ? search.patternSymbols : DetectedSymbols(filter, search, filtered, period);
    // The equaliser is one for PAM4: where the coding is not told, the symbols are still numbered as those of PAM4 are.
    const E_SIGNAL_CODING coding =
        Maths::FindCoding(search.signalCoding) == nullptr ? SIGNAL_CODING_PAM4 : search.signalCoding;
    const auto levels = LevelsOf(filter, search, symbols, coding, search.withoutGrayCoding).levels;
    const std::vector<double> capture = Maths::WithoutMean(filtered);
    const auto spacing = static_cast<std::size_t>(samplesPerUi);
    const auto located = Maths::LocatePattern(capture, levels, spacing);
    if (!located && levels == std::vector<int>(levels.size(), levels.front()))
        Refuse(filter, "reference", "constant", "a waveform that is not constant");
    if (!located)
        Refuse(filter, "number of levels in the reference", "outside its range", "2 to 4");
    const int cursor = std::max(search.mainCursorIndex, -1);
    auto equaliser =
        Maths::FindReferenceEqualizer(capture, *located, spacing, static_cast<std::size_t>(numberOfTaps),
                                      cursor < 0 ? std::nullopt : std::optional(static_cast<std::size_t>(cursor)));
    if (!equaliser)
        Refuse(filter, "mainCursorIndex", cursor, "a place at which the capture lets the largest tap stand");
    return std::move(equaliser->taps);
}

void RequireWholeSampling(const char* filter, const DeviceConfiguration& config, int samplesPerUi)
{
    const double sampling = config.useFractionalSampling ? RealSamplesPerUi(config) : samplesPerUi;
    if (sampling != std::trunc(sampling))
        Refuse(filter, "uiDuration / sampleSpacing", sampling, "a whole number for the TDECQ equaliser");
    if (sampling != samplesPerUi)
        Refuse(filter, "uiDuration / sampleSpacing", sampling, "samplesPerUi, " + std::to_string(samplesPerUi));
}

}  // namespace Tarnwick::DSO::Filters
