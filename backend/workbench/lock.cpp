#include "workbench/lock.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <utility>

#include <fmt/format.h>

#include "maths/captures/clockrecovery.h"
#include "maths/captures/codingdecision.h"
#include "maths/captures/patternperiod.h"
#include "maths/captures/recordseam.h"
#include "maths/captures/resampling.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/statistics.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr int kSamplesPerUiOut = 16;      // of a record that has to be resampled
constexpr std::size_t kFewestUi = 200;    // for a clock that is to be found
constexpr double kRateToleranceUi = 0.1;  // over the record
constexpr double kTimeTolerance = 0.01;   // times in a text file are rounded
constexpr double kMovingUi = 0.05;        // rms; blocks of a clean record stay within a tenth of that

// What the steps of the acquisition hand on.
struct State {
    const CaptureFacts& facts;
    const std::string& name;
    Maths::SampleStatistics statistics;  // of the capture
    std::vector<double>* given;          // the capture's samples where they may be taken
    LockedCapture locked;
    std::size_t samplesPerUi = 0;  // of the record
    Maths::CodingDecision decision;

    LockReport& Report() { return locked.report; }
    void Warn(std::string warning) { locked.report.warnings.push_back(std::move(warning)); }
    std::size_t UiCount() const { return locked.samples.size() / samplesPerUi; }
};

void RequireUsable(std::span<const double> samples, const Maths::SampleStatistics& statistics, const std::string& name)
{
    // Of finite squares all samples are finite.
    if (!std::isfinite(statistics.rms) && !AreFinite(samples)) {
        const auto broken =
            std::find_if(samples.begin(), samples.end(), [](double value) { return !std::isfinite(value); });
        throw DataFailure(
            fmt::format("{}: sample {} is {}; expected finite values", name, broken - samples.begin() + 1, *broken));
    }
    if (statistics.low == statistics.high)
        throw DataFailure(fmt::format("{}: is constant, {} V; expected a data signal", name, statistics.low));
}

// Samples that pile up at the ends of the range, as a converter's that is overdriven. Held levels do too, but then they are
// most of the record.
void WarnOfClipping(std::span<const double> samples, const Maths::SampleStatistics& statistics, State& state)
{
    constexpr double kNear = 0.02;  // of the range
    constexpr double kLeastShare = 5e-4;
    constexpr double kHeldShare = 0.3;
    const double low = statistics.low;
    const double high = statistics.high;
    const double near = kNear * (high - low);
    const auto countOf = [&](auto counts) { return static_cast<double>(std::ranges::count_if(samples, counts)); };
    // Of most records so few that nothing more need be counted.
    std::size_t atEnds = 0;
    for (const double value : samples)
        atEnds += static_cast<std::size_t>(value <= low ? 1 : 0) + static_cast<std::size_t>(value >= high ? 1 : 0);
    if (static_cast<double>(atEnds) <= kLeastShare * static_cast<double>(samples.size()))
        return;
    const double atLow = countOf([&](double value) { return value == low; });
    const double atHigh = countOf([&](double value) { return value == high; });
    double clipped = 0.0;
    if (2.0 * atLow > countOf([&](double value) { return value - low < near; }))
        clipped += atLow;
    if (2.0 * atHigh > countOf([&](double value) { return high - value < near; }))
        clipped += atHigh;
    const double share = clipped / static_cast<double>(samples.size());
    if (share > kLeastShare && share < kHeldShare)
        state.Warn(fmt::format("{}: {:.2g} % of the samples lie exactly at {} or {} V, the ends of the range: clipped?",
                               state.name, 100.0 * share, low, high));
}

Maths::ClockSearch SearchOf(const CaptureFacts& facts, double interval)
{
    Maths::ClockSearch search;
    search.keepSpectrum = true;
    if (facts.clock == ClockKind::Tracked)
        search.tracking = Maths::ClockTracking::Tracked;
    if (facts.loopBandwidthMHz > 0.0 && interval > 0.0)
        search.loopBandwidth = 1e6 * facts.loopBandwidthMHz * interval;
    return search;
}

void TakePhase(const Maths::RecoveredClock& clock, LockReport& report)
{
    report.phaseResidualUi = clock.phaseResidualUi;
    report.trackedUi = clock.trackedUi;
    report.phaseFirst = clock.phase.first;
    report.phaseSpacing = clock.phase.spacing;
    report.phaseUi = clock.phase.ui;
    if (clock.clock.deviationUi.empty())
        return;
    // What it follows, about the mean of that, as the phases are.
    const double samplesPerUi = clock.clock.samplesPerUi;
    double mean = 0.0;
    for (std::size_t k = 0; k < report.phaseUi.size(); ++k) {
        const double position = report.phaseFirst + static_cast<double>(k) * report.phaseSpacing;
        report.trackedPhaseUi.push_back(clock.clock.UiAt(position) - (position - clock.clock.boundary) / samplesPerUi);
        mean += report.trackedPhaseUi.back() / static_cast<double>(report.phaseUi.size());
    }
    double power = 0.0;
    for (std::size_t k = 0; k < report.phaseUi.size(); ++k) {
        report.trackedPhaseUi[k] -= mean;
        const double left = report.phaseUi[k] - report.trackedPhaseUi[k];
        power += left * left / static_cast<double>(report.phaseUi.size());
    }
    report.trackedResidualUi = std::sqrt(power);
}

void TakeSpectrum(const std::optional<Maths::LineSpectrum>& spectrum, LockReport& report)
{
    constexpr double kFaintest = 1e-3;  // of the median: -60 dB
    if (!spectrum)
        return;
    report.spectrum.first = spectrum->first;
    report.spectrum.spacing = spectrum->spacing;
    report.spectrum.line = spectrum->first + static_cast<double>(spectrum->line) * spectrum->spacing;
    report.spectrum.leastDb = 20.0 * std::log10(Maths::kLeastClockScore);
    report.spectrum.scoreDb.reserve(spectrum->score.size());
    for (const double score : spectrum->score)
        report.spectrum.scoreDb.push_back(20.0 * std::log10(std::max(score, kFaintest)));
}

// A given rate stays, and is compared with what the capture shows near it, or elsewhere.
Maths::RecoveredClock CheckedRate(std::span<const double> samples, double given, const Maths::ClockSearch& ofRate,
                                  State& state)
{
    constexpr double kNearby = 1.25;
    Maths::ClockSearch search;
    search.fewestSamplesPerUi = std::max(2.0, given / kNearby);
    search.mostSamplesPerUi = std::max(given * kNearby, search.fewestSamplesPerUi * kNearby);
    Maths::ClockSearch anywhere;
    search.keepSpectrum = anywhere.keepSpectrum = true;
    const Maths::ClockSearch searches[] = {search, anywhere};
    Maths::CheckedClock clocks = Maths::CheckClock(samples, given, ofRate, searches, &state.statistics);
    const Maths::RecoveredClock& found = clocks.found;
    TakeSpectrum(found.spectrum, state.Report());
    state.Report().clockScore = found.score;
    if (!found.found)
        return std::move(clocks.ofRate);
    const double ui = static_cast<double>(samples.size()) / given;
    const double slip = std::abs(static_cast<double>(samples.size()) / found.clock.samplesPerUi - ui);
    // A short record cannot tell its rate from the whole number that was given.
    const auto whole = Maths::WholeSamplesPerUi(found.clock.samplesPerUi, samples.size());
    if (slip > kRateToleranceUi && !(whole && static_cast<double>(*whole) == given))
        state.Warn(fmt::format(
            "{}: is said to have {:.8g} samples per UI; its clock has {:.8g}, {:.3g} UI away over the record",
            state.name, given, found.clock.samplesPerUi, slip));
    return std::move(clocks.ofRate);
}

// Samples per UI, the clock along which to resample, and the record.
void LockClock(const Waveform& capture, State& state)
{
    const CaptureFacts& facts = state.facts;
    LockReport& report = state.Report();
    const std::span<const double> samples = capture.samples;
    const Maths::ClockSearch search = SearchOf(facts, capture.interval);
    const bool tracked = facts.clock == ClockKind::Tracked;

    double given = facts.samplesPerUi;
    if (facts.symbolRateGBd > 0.0 && capture.interval > 0.0) {
        const double ofTimes = 1e-9 / (facts.symbolRateGBd * capture.interval);
        if (given <= 0.0)
            given = ofTimes;
        else if (std::abs(ofTimes - given) > kTimeTolerance * ofTimes)
            state.Warn(fmt::format("{}: its times give {:.4g} samples per UI at {} GBd; it is said to have {:.4g}",
                                   state.name, ofTimes, facts.symbolRateGBd, given));
    }
    Maths::RecoveredClock clock;
    std::optional<std::size_t> whole;
    if (given > 0.0) {
        report.samplesPerUi = given;
        report.samplesPerUiGiven = true;
        clock = CheckedRate(samples, given, search, state);
        whole = facts.samplesPerUi > 0.0 && given == std::round(given)
                    ? std::optional(static_cast<std::size_t>(given))
                    : Maths::WholeSamplesPerUi(given, samples.size());
    } else {
        clock = Maths::RecoverClock(samples, search, &state.statistics);
        report.clockScore = clock.score;
        TakeSpectrum(clock.spectrum, report);
        if (!clock.found && clock.score == 0.0)
            throw NoClockFailure(fmt::format("{}: has {} samples, too few to find a clock in; give the samples per UI",
                                             state.name, samples.size()));
        if (!clock.found)
            throw NoClockFailure(
                fmt::format("{}: no clock found: the line at the symbol rate stands {:.2g} times above its "
                            "neighbourhood, expected {} or more; give the samples per UI",
                            state.name, clock.score, Maths::kLeastClockScore));
        report.samplesPerUi = clock.clock.samplesPerUi;
        const double ui = static_cast<double>(samples.size()) / report.samplesPerUi;
        if (ui < static_cast<double>(kFewestUi))
            throw NoClockFailure(
                fmt::format("{}: holds {:.4g} UI; expected at least {} to find its clock; give the samples per UI",
                            state.name, ui, kFewestUi));
        whole = Maths::WholeSamplesPerUi(report.samplesPerUi, samples.size());
        if (whole)
            report.samplesPerUi = static_cast<double>(*whole);
    }
    TakePhase(clock, report);
    if (!tracked && report.phaseResidualUi > kMovingUi)
        state.Warn(
            fmt::format("{}: its clock moves by {:.2g} UI rms, which closes its eyes; a tracked clock follows it",
                        state.name, report.phaseResidualUi));
    report.symbolRateGBd = facts.symbolRateGBd > 0.0 ? facts.symbolRateGBd
                           : capture.interval > 0.0  ? 1e-9 / (capture.interval * report.samplesPerUi)
                                                     : 0.0;

    const auto wanted = facts.samplesPerUiOut > 0 ? static_cast<std::size_t>(facts.samplesPerUiOut)
                                                  : whole.value_or(static_cast<std::size_t>(kSamplesPerUiOut));
    state.samplesPerUi = wanted;
    report.samplesPerUiOut = static_cast<int>(wanted);
    if (whole == wanted && !tracked) {
        if (state.given != nullptr)
            state.locked.samples = std::move(*state.given);
        else
            state.locked.samples.assign(samples.begin(), samples.end());
        state.locked.interval = capture.interval;
        state.locked.start = capture.start;
        return;
    }
    if (!clock.found)
        throw NoClockFailure(
            fmt::format("{}: is too short to be resampled: no clock phase can be made out", state.name));
    Maths::AlignedRecord aligned = Maths::ResampledAlong(clock.clock, samples, wanted);
    report.resampled = true;
    report.firstSample = static_cast<std::size_t>(std::max(0.0, std::round(aligned.firstPosition)));
    state.locked.samples = std::move(aligned.samples);
    state.locked.interval = capture.interval * report.samplesPerUi / static_cast<double>(wanted);
    state.locked.start = capture.start + capture.interval * aligned.firstPosition;
}

// Means of the levels' samples at the phase where they lie farthest apart. The symbols may have been decided at another,
// behind an equaliser.
std::vector<double> WidestLevels(const State& state)
{
    const Maths::CodingDecision& decision = state.decision;
    const std::vector<double>& samples = state.locked.samples;
    const std::size_t levels = decision.levels.size();
    const std::size_t samplesPerUi = state.samplesPerUi;
    // In one pass over the samples, of a UI about the phase at a time.
    std::vector<double> sums(levels * samplesPerUi, 0.0);
    std::vector<double> counts(levels * samplesPerUi, 0.0);  // of UI that the record holds in part
    std::vector<std::size_t> wholeUi(levels, 0);
    auto begin = static_cast<long long>(decision.phase) - static_cast<long long>(samplesPerUi / 2);
    for (const int symbol : decision.symbols) {
        const std::size_t first = begin < 0 ? static_cast<std::size_t>(-begin) : 0;
        const auto left = static_cast<std::size_t>(std::clamp<long long>(static_cast<long long>(samples.size()) - begin,
                                                                         0, static_cast<long long>(samplesPerUi)));
        double* const sum = sums.data() + static_cast<std::size_t>(symbol) * samplesPerUi;
        double* const count = counts.data() + static_cast<std::size_t>(symbol) * samplesPerUi;
        const double* const sample = samples.data() + (begin + static_cast<long long>(first));
        for (std::size_t k = first; k < left; ++k)
            sum[k] += sample[k - first];
        if (left - first == samplesPerUi)
            ++wholeUi[static_cast<std::size_t>(symbol)];
        else
            std::for_each(count + first, count + std::max(first, left), [](double& value) { value += 1.0; });
        begin += static_cast<long long>(samplesPerUi);
    }
    std::vector<double> widest;
    for (std::size_t k = 0; k < samplesPerUi; ++k) {
        std::vector<double> means(levels);
        bool hasAll = true;
        for (std::size_t level = 0; level < levels; ++level) {
            const std::size_t at = level * samplesPerUi + k;
            const double count = counts[at] + static_cast<double>(wholeUi[level]);
            hasAll = hasAll && count > 0.0;
            means[level] = sums[at] / count;
        }
        if (!hasAll)
            continue;
        if (widest.empty() || means.back() - means.front() > widest.back() - widest.front())
            widest = std::move(means);
    }
    return widest;
}

void DecideSymbols(State& state)
{
    LockReport& report = state.Report();
    const CaptureFacts& facts = state.facts;
    const E_SIGNAL_CODING known =
        facts.coding == SIGNAL_CODING_PAM4_PRECODED ? SIGNAL_CODING_PAM4 : facts.coding;  // looks like it
    state.decision = Maths::DecideCoding(state.locked.samples, state.samplesPerUi, Maths::Wrapping::None, known);
    report.codingGiven = facts.coding != SIGNAL_CODING_UNKNOWN;
    report.coding = report.codingGiven ? facts.coding : state.decision.coding;
    if (state.decision.symbols.empty())
        return;
    report.symbolQuality = state.decision.quality;
    report.levels = WidestLevels(state);
    if (!report.codingGiven && state.decision.lacksPairs)
        state.Warn(fmt::format("{}: some symbols never follow each other, so that its coding may be another than {}",
                               state.name, NameOf(report.coding)));
    const int levels = LevelCount(report.coding);
    if (const auto recognised = Maths::RecognisePattern(state.decision.symbols, levels))
        report.pattern = recognised->Name();
    if (facts.pattern.empty())
        return;
    const Maths::SymbolAgreement agreement = Maths::CompareSymbols(state.decision.symbols, facts.pattern, levels);
    if (agreement.share >= Maths::kLeastAgreement) {
        for (std::size_t i = 0; i < state.decision.symbols.size(); ++i) {
            const int sent = facts.pattern[(i + agreement.shift) % facts.pattern.size()];
            state.decision.symbols[i] = agreement.inverted ? levels - 1 - sent : sent;
        }
    } else {
        state.Warn(fmt::format("{}: {:.3g} % of its symbols are those of the given pattern; expected at least {:.3g} %",
                               state.name, 100.0 * agreement.share, 100.0 * Maths::kLeastAgreement));
    }
}

Maths::CapturedSymbols SymbolsOf(const State& state)
{
    const std::size_t count = state.decision.symbols.size();
    const std::size_t ends = std::min(state.decision.uncertainEnds, count / 2);
    return {state.locked.samples, state.samplesPerUi, state.decision.symbols, {ends, count - 2 * ends}};
}

std::vector<double> LevelsOfSymbols(const Maths::CodingDecision& decision)
{
    std::vector<double> levels;
    levels.reserve(decision.symbols.size());
    for (const int symbol : decision.symbols)
        levels.push_back(decision.levels[static_cast<std::size_t>(symbol)]);
    return levels;
}

// Whether the record repeats after a period that was given.
bool GivenPeriodHolds(std::size_t period, State& state)
{
    if (state.decision.symbols.empty())
        return true;  // nothing speaks against it
    if (state.UiCount() >= 2 * period) {
        const double agreement = Maths::AgreementAt(SymbolsOf(state), period);
        if (agreement >= Maths::kLeastAgreement)
            return true;
        state.Warn(
            fmt::format("{}: is said to repeat after {} UI; {:.3g} % of its symbols do, expected at least {:.3g} %",
                        state.name, period, 100.0 * agreement, 100.0 * Maths::kLeastAgreement));
        return false;
    }
    // Decided again as one period, whose ends are neighbours.
    const auto record = std::span<const double>(state.locked.samples).first(period * state.samplesPerUi);
    const Maths::CodingDecision circular =
        Maths::DecideCoding(record, state.samplesPerUi, Maths::Wrapping::Circular, state.decision.coding);
    if (circular.symbols.size() != period)
        return true;
    const auto seam = Maths::TestSeam(record, state.samplesPerUi, LevelsOfSymbols(circular));
    if (!seam)
        return true;
    state.Report().seamRatio = seam->Ratio();
    if (seam->Joins()) {
        // As neighbours its ends were decided with all that surrounds them.
        state.decision.symbols = circular.symbols;
        state.decision.uncertainEnds = 0;
        return true;
    }
    state.Warn(fmt::format(
        "{}: is said to repeat after {} UI; where its end meets its beginning the symbols explain it {:.3g} "
        "times worse than elsewhere, expected at most 2.5",
        state.name, period, seam->Ratio()));
    return false;
}

void DecidePeriod(State& state)
{
    const CaptureFacts& facts = state.facts;
    LockReport& report = state.Report();
    auto given = static_cast<std::size_t>(std::max(facts.patternLengthUi, 0));
    if (given == 0)
        given = facts.pattern.size();
    report.periodGiven = given > 0;
    std::size_t period = 0;
    bool holds = false;
    if (given > 0) {
        period = given;
        if (given > state.UiCount()) {
            if (facts.record != RecordKind::SingleShot)
                state.Warn(
                    fmt::format("{}: holds {} UI, less than the pattern's {}", state.name, state.UiCount(), given));
        } else {
            holds = GivenPeriodHolds(given, state);
        }
    } else if (!state.decision.symbols.empty()) {
        period = Maths::FindPeriod(SymbolsOf(state)).symbols;
        holds = period > 0;
    }
    const bool periodic = period > 0 && period <= state.UiCount() &&
                          (facts.record == RecordKind::Periodic || (holds && facts.record == RecordKind::Auto));
    if (facts.record == RecordKind::Periodic && !periodic) {
        // Said to be one, and nothing says how long: the record is.
        period = period > 0 && period <= state.UiCount() ? period : state.UiCount();
    }
    const bool isPeriodic = periodic || facts.record == RecordKind::Periodic;
    report.mode = isPeriodic ? RecordKind::Periodic : RecordKind::SingleShot;
    report.periodUi = isPeriodic ? static_cast<int>(period) : 0;
    report.repetitions = isPeriodic ? static_cast<int>(state.UiCount() / period) : 1;
}

// Whole periods, or whole UI.
void Cut(State& state)
{
    LockReport& report = state.Report();
    std::vector<double>& samples = state.locked.samples;
    const std::size_t unit = report.mode == RecordKind::Periodic
                                 ? static_cast<std::size_t>(report.periodUi) * state.samplesPerUi
                                 : state.samplesPerUi;
    report.leftOut = samples.size() % unit;
    samples.resize(samples.size() - report.leftOut);
    state.locked.symbols = std::move(state.decision.symbols);
    if (report.mode != RecordKind::Periodic || state.locked.symbols.empty())
        return;
    std::vector<int>& symbols = state.locked.symbols;
    const auto period = static_cast<std::size_t>(report.periodUi);
    // The first few were decided without all of their neighbours; a period later they were not.
    for (std::size_t i = 0; i < state.decision.uncertainEnds && i + period < symbols.size(); ++i)
        symbols[i] = symbols[i + period];
    symbols.resize(std::min(symbols.size(), period));
}

// The mean of the repetitions in place of them.
void Average(State& state)
{
    LockReport& report = state.Report();
    const auto count = static_cast<std::size_t>(report.repetitions);
    if (report.mode != RecordKind::Periodic || count < 2)
        return;
    std::vector<double>& samples = state.locked.samples;
    const std::size_t period = samples.size() / count;
    std::vector<double> mean(period, 0.0);
    for (std::size_t k = 0; k < samples.size(); ++k)
        mean[k % period] += samples[k] / static_cast<double>(count);
    double power = 0.0;
    for (std::size_t k = 0; k < samples.size(); ++k)
        power += (samples[k] - mean[k % period]) * (samples[k] - mean[k % period]);
    report.removedNoiseRms = std::sqrt(power / static_cast<double>(samples.size()));
    samples = std::move(mean);
}

LockedCapture LockRecord(const Waveform& capture, std::vector<double>* given, const CaptureFacts& facts,
                         const std::string& name)
{
    const Maths::SampleStatistics statistics =
        capture.samples.empty() ? Maths::SampleStatistics{} : Maths::StatisticsOf(capture.samples);
    RequireUsable(capture.samples, statistics, name);
    if (!capture.gap.empty())
        throw DataFailure(capture.gap + "; expected a record without a gap, or its sample rate");
    State state{facts, name, statistics, given, {}, 0, {}};
    const std::size_t count = capture.samples.size();
    WarnOfClipping(capture.samples, statistics, state);
    LockClock(capture, state);
    if (state.UiCount() < 1)
        throw DataFailure(
            fmt::format("{}: has {} samples, less than one UI of {:.6g}", name, count, state.Report().samplesPerUi));
    DecideSymbols(state);
    DecidePeriod(state);
    Cut(state);
    if (facts.average)
        Average(state);
    state.Report().samples = state.locked.samples.size();
    return std::move(state.locked);
}

}  // namespace

LockedCapture Lock(const Waveform& capture, const CaptureFacts& facts, const std::string& name)
{
    return LockRecord(capture, nullptr, facts, name);
}

LockedCapture Lock(Waveform&& capture, const CaptureFacts& facts, const std::string& name)
{
    return LockRecord(capture, &capture.samples, facts, name);
}

}  // namespace Tarnwick::DSO::Workbench
