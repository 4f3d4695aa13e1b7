#include "workbench/pulseresponse.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "maths/captures/eyes.h"
#include "maths/captures/pulseresponse.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr double kFirstUi = -static_cast<double>(Maths::kPulseUiBefore);

Maths::EyeRecord RecordOf(const WaveformPart& part, const EyeSettings& eyes)
{
    const ValidPart valid = eyes.circular ? ValidPart{0, part.samples.size()} : part.valid;
    return {part.samples, eyes.samplesPerUi, eyes.levelCount,
            valid.first,  valid.count,       eyes.circular ? Maths::Wrapping::Circular : Maths::Wrapping::None};
}

// What a response makes of a rectangle of one UI.
std::vector<double> PulseOf(std::span<const double> impulse, double samplesPerUi)
{
    std::vector<double> pulse(impulse.size(), 0.0);
    for (long long lag = 0; !impulse.empty() && static_cast<double>(lag) < samplesPerUi; ++lag)
        Maths::AddRotated(pulse, std::min(1.0, samplesPerUi - static_cast<double>(lag)), impulse, -lag);
    return pulse;
}

// [samples] The middle of the flat top that a rectangle has; of a round one the largest sample.
double MiddleOfPeak(std::span<const double> pulse)
{
    constexpr double kFlat = 1.0 - 1e-9;  // of the largest: rounding
    double least = 0.0;
    for (const double value : pulse)
        least = std::max(least, kFlat * std::abs(value));
    const auto isTop = [=](double value) { return std::abs(value) >= least; };
    const auto first = std::find_if(pulse.begin(), pulse.end(), isTop);
    const auto end = std::find_if_not(first, pulse.end(), isTop);
    return 0.5 * static_cast<double>((first - pulse.begin()) + (end - pulse.begin() - 1));
}

}  // namespace

std::optional<PulseResponses> FitPulseResponses(const StageTaps& taps, const WaveformPart& before,
                                                const WaveformPart& after, const EyeSettings& eyes,
                                                const EyeReport& behind)
{
    if (behind.levels.empty())
        return std::nullopt;
    const Maths::EyeRecord record = RecordOf(after, eyes);
    std::optional<Maths::AlignedSymbols> symbols = LocateSymbols(record, eyes.pattern);
    PulseResponses pulses;
    if (!symbols) {
        pulses.source = PulseResponses::Source::DecidedSymbols;
        symbols = DecideSymbols(record);
    }
    if (!symbols)
        return std::nullopt;
    const double position = taps.instantUi.value_or(behind.phaseUi) * eyes.samplesPerUi;
    const Maths::PulseRecord records[] = {{record, position},
                                          {RecordOf(before, eyes), position - taps.delayUi * eyes.samplesPerUi}};
    auto fits = Maths::FitPulseResponses(records, *symbols);
    if (!fits)
        return std::nullopt;
    pulses.valuesPerUi = Maths::PulsePhases(eyes.samplesPerUi);
    pulses.firstUi = kFirstUi;
    pulses.after = std::move(fits->front().values);
    pulses.before = std::move(fits->back().values);
    pulses.afterResidualRms = fits->front().residualRms;
    pulses.beforeResidualRms = fits->back().residualRms;
    return pulses;
}

std::optional<PulseResponses> IdealPulseResponses(const StageTaps& taps, std::span<const double> before,
                                                  std::span<const double> after, double samplesPerUi)
{
    constexpr std::size_t kUi = Maths::kPulseUiBefore + Maths::kPulseUiAfter;
    if (static_cast<double>(before.size()) < static_cast<double>(kUi + 1) * samplesPerUi)
        return std::nullopt;
    const std::vector<double> front = PulseOf(before, samplesPerUi);
    const std::vector<double> behind = PulseOf(after, samplesPerUi);
    const std::vector<double>& last = behind.empty() ? front : behind;
    const double cursor = MiddleOfPeak(last);
    PulseResponses pulses{.source = PulseResponses::Source::IdealSymbol,
                          .valuesPerUi = Maths::PulsePhases(samplesPerUi),
                          .firstUi = kFirstUi};
    for (std::size_t n = 0; n <= kUi * pulses.valuesPerUi; ++n) {
        const double ui = kFirstUi + static_cast<double>(n) / static_cast<double>(pulses.valuesPerUi);
        if (!behind.empty())
            pulses.after.push_back(Maths::SampleAt(behind, cursor + ui * samplesPerUi));
        pulses.before.push_back(Maths::SampleAt(front, cursor + (ui - taps.delayUi) * samplesPerUi));
    }
    return pulses;
}

}  // namespace Tarnwick::DSO::Workbench
