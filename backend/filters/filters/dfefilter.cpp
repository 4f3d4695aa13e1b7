#include "filters/filters/dfefilter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "filters/plumbing/channel.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/taps.h"
#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/plumbing/patternsymbols.h"
#include "framework/plumbing/trace.h"
#include "maths/equalisers/decisionfeedback.h"
#include "maths/patterns/codings.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::DetectedPam4Symbols;
using SystemFramework::LevelsOfSymbols;
using SystemFramework::NewArray;
using SystemFramework::NewArrayFrom;
using SystemFramework::OwnedArray;
using SystemFramework::Refuse;
using SystemFramework::RequireFinite;
using SystemFramework::SignalData;
using SystemFramework::SymbolMapOf;
using SystemFramework::TextOf;

namespace {

constexpr const char* kDfeFilter = "DFEFilter";
// What the taps leave, over the main cursor. A record that does not follow the symbols leaves more than the main cursor:
// noise fitted by chance 2 to 3, interference that still allows a decision less than 1.
constexpr double kWorstResidual = 1.0;

void Refresh(DFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    parameters.samplesPerUi = WholeSamplesPerUi(kDfeFilter, config);
    parameters.withoutGrayCoding = config.withoutGrayCoding;
}

// The parameters, refreshed where they are dirty.
DFEFilterParameters Refreshed(const DFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    DFEFilterParameters next(parameters);
    if (parameters.IsDirty())
        Refresh(next, config);
    return next;
}

int LevelCountOf(E_SIGNAL_CODING coding)
{
    const int count = Maths::LevelCount(coding);
    if (count == 0)
        Refuse(kDfeFilter, "signalCoding", static_cast<int>(coding), "NRZ, PAM3, PAM4 or precoded PAM4");
    return count;
}

// How a record falls into repetitions of the pattern.
class Cut {
public:
    Cut(const DFEFilterParameters& parameters, const DeviceConfiguration& config, int sampleCount)
    {
        if (parameters.samplesPerUi < 1)
            Refuse(kDfeFilter, "samplesPerUi", parameters.samplesPerUi, "at least 1");
        const PatternPeriod pattern(kDfeFilter, config, parameters.samplesPerUi, config.patternLengthUi);
        grid_.symbols = static_cast<std::size_t>(config.patternLengthUi);
        grid_.samplesPerUi = pattern.SamplesPerUi();
        count_ = pattern.RequiredIn(sampleCount);
        period_ = pattern.LengthIn(sampleCount);
        end_ = std::min(static_cast<std::size_t>(sampleCount), static_cast<std::size_t>(std::lround(count_ * period_)));
    }
    const Maths::UiGrid& Grid() const { return grid_; }
    std::size_t Count() const { return static_cast<std::size_t>(count_); }
    /// Where repetition r begins, as a real number, and its first sample; beyond the last repetition, the end.
    double Position(std::size_t r) const { return static_cast<double>(r) * period_; }
    std::size_t Begin(std::size_t r) const { return r < Count() ? static_cast<std::size_t>(Position(r)) : end_; }
    /// Whole samples of the first repetition.
    std::size_t Length() const { return std::min(end_, static_cast<std::size_t>(period_)); }

private:
    Maths::UiGrid grid_{};
    double period_ = 0.0;
    int count_ = 0;
    std::size_t end_ = 0;
};

// What is read with or without a search. Automatic taps are checked once they have been found.
void RequireUsable(const DFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    (void)SymbolRate(kDfeFilter, config);
    RequireFinite(kDfeFilter, "samplingDelayPs", parameters.samplingDelayPs, "a finite time in picoseconds");
    RequireTapCount(kDfeFilter, parameters.numberOfTaps);
    if (parameters.numberOfTaps > 0)
        LevelCountOf(config.signalCoding);
}

std::span<const double> UsedTaps(const DFEFilterParameters& parameters)
{
    const auto wanted = static_cast<std::size_t>(parameters.numberOfTaps);
    if (!parameters.useManualTaps && parameters.taps.size() < wanted)
        Refuse(kDfeFilter, "number of taps", parameters.taps.size(),
               std::to_string(wanted) + ", found by Prepare; mark the parameters dirty");
    const auto used = std::span(parameters.taps).first(std::min(parameters.taps.size(), wanted));
    RequireFiniteTaps(kDfeFilter, used);
    return used;
}

std::string SymbolsOf(std::span<const double> repetition, const DeviceConfiguration& config, bool withoutGrayCoding)
{
    const bool isPam4 = LevelCountOf(config.signalCoding) == 4;
    const bool hasBuffer = config.patternSequenceBuffer != nullptr && *config.patternSequenceBuffer != '\0';
    const bool isGiven = !isPam4 || (config.useUserPattern && !(config.patternSymbols.empty() && hasBuffer));
    if (!isGiven)
        return DetectedPam4Symbols(
            kDfeFilter, repetition.data(), static_cast<int>(repetition.size()),
            {config.patternLengthUi, SymbolMapOf(withoutGrayCoding),
             config.useUserPattern ? config.patternSequenceBuffer : nullptr, Maths::Decisions::Equalised});
    if (config.patternSymbols.size() != static_cast<std::size_t>(config.patternLengthUi))
        Refuse(kDfeFilter, "length of patternSymbols", config.patternSymbols.size(),
               "patternLengthUi, " + std::to_string(config.patternLengthUi));
    return config.patternSymbols;
}

// A value from -1 to 1 for each symbol.
std::vector<double> SymbolValues(const std::string& symbols, E_SIGNAL_CODING coding, bool withoutGrayCoding)
{
    const auto [levels, levelCount] =
        LevelsOfSymbols(kDfeFilter, "symbols", symbols, coding, SymbolMapOf(withoutGrayCoding));
    return Maths::IdealSignal(levels, {-1.0, 1.0, levelCount}, 1.0, levels.size());
}

// Finds delay and taps.
void Search(DFEFilterParameters& parameters, const DeviceConfiguration& config, std::span<const double> repetition,
            const Maths::UiGrid& grid)
{
    using Outcome = Maths::FeedbackSearch::Outcome;
    if (parameters.numberOfTaps > config.patternLengthUi - 2)
        Refuse(kDfeFilter, "numberOfTaps", parameters.numberOfTaps,
               "at most patternLengthUi - 2, " + std::to_string(config.patternLengthUi - 2));
    IgnoredEnds{parameters.ignoredUi, grid.symbols, Maths::FeedbackReach(parameters.numberOfTaps),
                static_cast<std::size_t>(parameters.numberOfTaps) + 2}
        .Require(kDfeFilter);
    const std::string symbols = SymbolsOf(repetition, config, parameters.withoutGrayCoding);
    const std::vector<double> values = SymbolValues(symbols, config.signalCoding, parameters.withoutGrayCoding);
    Maths::FeedbackSearch search = Maths::FindFeedback(repetition, values, grid.samplesPerUi, parameters.numberOfTaps,
                                                       static_cast<std::size_t>(parameters.ignoredUi));
    if (search.outcome == Outcome::SymbolsAlike)
        Refuse(kDfeFilter, "numberOfTaps", parameters.numberOfTaps, "as many as the pattern's symbols can tell apart");
    if (search.outcome == Outcome::NoMainCursor)
        Refuse(kDfeFilter, "main cursor", "not positive at any sampling delay",
               "a record that follows the pattern's symbols");
    if (search.outcome == Outcome::TapsAboveCursor)
        Refuse(kDfeFilter, "largest tap over main cursor", search.largestTap,
               "at most 1 at some sampling delay, of a record that follows the pattern's symbols");
    if (!(search.residual <= kWorstResidual))
        Refuse(kDfeFilter, "residual over main cursor", search.residual,
               "at most " + TextOf(kWorstResidual) + ", of a record that follows the pattern's symbols");
    const double delayPs = Maths::DelayFromSamples(search.delay, parameters.samplesPerUi, config.baudRateGBd);
    if (Maths::SamplesFromDelay(delayPs, parameters.samplesPerUi, config.baudRateGBd) != search.delay)
        Refuse(kDfeFilter, "baudRateGBd", config.baudRateGBd,
               "a symbol rate at which picoseconds can tell a delay of " + std::to_string(search.delay) + " samples");
    parameters.samplingDelayPs = delayPs;
    parameters.taps = std::move(search.taps);
}

// The first decision [samples], within one UI.
int DecisionDelay(const DFEFilterParameters& parameters, const DeviceConfiguration& config)
{
    const int samples =
        Truncated(kDfeFilter, "samplingDelayPs * 0.001 * baudRateGBd * samplesPerUi",
                  Maths::SamplesFromDelay(parameters.samplingDelayPs, parameters.samplesPerUi, config.baudRateGBd));
    return static_cast<int>(Maths::WrappedIndex(samples, static_cast<std::size_t>(parameters.samplesPerUi)));
}

}  // namespace

DFEFilterParameters::DFEFilterParameters(int samplesPerUi, double samplingDelayPs, std::vector<double> taps,
                                         int numberOfTaps, bool withoutGrayCoding, bool useManualTaps)
    : samplesPerUi(samplesPerUi),
      samplingDelayPs(samplingDelayPs),
      taps(std::move(taps)),
      numberOfTaps(numberOfTaps),
      withoutGrayCoding(withoutGrayCoding),
      useManualTaps(useManualTaps)
{
}

DFEFilterParameters::DFEFilterParameters(DeviceConfiguration* config) : BaseFilterParameters(config) {}

DFEFilter::DFEFilter(DFEFilterParameters* parameters)
{
    TARNWICK_TRACE("Initializing DFEFilter constructor...");
    RequirePatternLock(kDfeFilter, parameters);
    if (const DeviceConfiguration* config = parameters->GetConfig())
        Refresh(*parameters, *config);
    this->parameters = parameters;
    TARNWICK_TRACE("DFEFilter constructor finished");
}

DFEFilter::~DFEFilter()
{
    TARNWICK_TRACE("~DFEFilter()...");
    ReleaseKernel();
    TARNWICK_TRACE("~DFEFilter() finished");
}

void DFEFilter::Prepare(SignalData* signal)
{
    TARNWICK_TRACE("DFEFilter::Prepare...");
    if (signal == nullptr)
        throw std::invalid_argument("Cannot Prepare DFE Filter Without a signal");
    auto& settings = ParametersOf<DFEFilterParameters>(kDfeFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kDfeFilter, settings);
    const std::span<const double> record = SamplesOf(kDfeFilter, signal);
    // On a copy: a search that fails changes nothing.
    DFEFilterParameters next = Refreshed(settings, config);
    const Cut cut(next, config, static_cast<int>(record.size()));
    RequireUsable(next, config);
    if (next.useManualTaps || next.numberOfTaps == 0) {
        UsedTaps(next);
        next.taps.resize(static_cast<std::size_t>(next.numberOfTaps), 0.0);
    } else {
        Search(next, config, record.first(cut.Length()), cut.Grid());
    }
    next.ResetDirty();
    settings = std::move(next);
    notPrepared = false;
    flag3 = false;
    TARNWICK_TRACE("DFEFilter::Prepare finished");
}

double* DFEFilter::ApplyDfe(DFEFilterParameters* parameters, SignalData* signal)
{
    const auto& settings = ParametersOf<DFEFilterParameters>(kDfeFilter, parameters);
    const DeviceConfiguration& config = ConfigurationOf(kDfeFilter, settings);
    const std::span<const double> record = SamplesOf(kDfeFilter, signal);
    const Cut cut(settings, config, static_cast<int>(record.size()));
    RequireUsable(settings, config);
    const std::span<const double> taps = UsedTaps(settings);
    const int delay = DecisionDelay(settings, config);
    if (taps.empty())
        return NewArrayFrom(record).release();
    OwnedArray result = NewArray(record.size());
    Maths::DecisionFeedback equaliser(taps, LevelCountOf(config.signalCoding), cut.Grid());
    for (std::size_t r = 0; r < cut.Count(); ++r) {
        const std::size_t begin = cut.Begin(r);
        const std::size_t length = cut.Begin(r + 1) - begin;
        const double fraction = cut.Position(r) - static_cast<double>(begin);
        equaliser.Equalise(record.subspan(begin, length), delay + fraction, {result.get() + begin, length});
    }
    std::fill(result.get() + cut.Begin(cut.Count()), result.get() + record.size(), 0.0);
    return result.release();
}

double* DFEFilter::Apply(SignalData* signal)
{
    auto& settings = ParametersOf<DFEFilterParameters>(kDfeFilter, parameters);
    if (settings.IsDirty()) {
        if (signal != nullptr && !IsDerivedByHost(*this)) {
            const DeviceConfiguration& config = ConfigurationOf(kDfeFilter, settings);
            const auto count = static_cast<int>(SamplesOf(kDfeFilter, signal).size());
            (void)Cut(Refreshed(settings, config), config, count);
        }
        Prepare(signal);
    }
    return ApplyDfe(&settings, signal);
}

}  // namespace Tarnwick::DSO::Filters
