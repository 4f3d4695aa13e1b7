#include "workbench/signalquality.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "maths/equalisers/tdecq.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr int kTdecqLevels = 4;
constexpr double kSlack = 1e-9;  // periods, samples: rounding of a number of samples per UI that is not whole

std::optional<ReferenceEqualiser> FindEqualiser(std::span<const double> samples, std::size_t samplesPerUi,
                                                const std::vector<int>& pattern, int numberOfTaps)
{
    const auto symbols = Maths::LocatePattern(samples, pattern, samplesPerUi);
    if (!symbols)
        return std::nullopt;
    auto found = Maths::FindReferenceEqualizer(samples, *symbols, samplesPerUi, static_cast<std::size_t>(numberOfTaps),
                                               std::nullopt);
    if (!found)
        return std::nullopt;
    const Maths::EyeClosure& closure = found->closure;
    return ReferenceEqualiser{std::move(found->taps), found->cursor,    closure.closed, closure.tdecqDb, closure.oma,
                              closure.sigma,          closure.noiseGain};
}

}  // namespace

double LevelMismatchRatio(std::span<const double> levels)
{
    const double middle = 0.5 * (levels[0] + levels[3]);
    const double lower = (middle - levels[1]) / (middle - levels[0]);
    const double upper = (levels[2] - middle) / (levels[3] - middle);
    return std::min({3.0 * lower, 3.0 * upper, 2.0 - 3.0 * lower, 2.0 - 3.0 * upper});
}

SignalQuality MeasureSignalQuality(std::span<const double> samples, const SignalDescription& signal, int numberOfTaps,
                                   const std::string& name)
{
    const double samplesPerUi = signal.samplesPerUi;
    const int patternLengthUi = signal.patternLengthUi;
    SignalQuality quality;
    const int levelCount = LevelCount(signal.coding);
    EyeSettings settings{.samplesPerUi = samplesPerUi,
                         .levelCount = levelCount,
                         .symbolRateGBd = signal.symbolRateGBd,
                         .withBathtub = true};
    if (patternLengthUi > 0) {
        try {
            quality.symbols = FindSymbols(samples, samplesPerUi, patternLengthUi, signal.coding, name);
            settings.pattern = quality.symbols->levels;
            settings.periodUi = static_cast<std::size_t>(patternLengthUi);
        } catch (const DataFailure& failure) {
            quality.whyNoTdecq = failure.what();
        }
    } else {
        quality.whyNoTdecq = "the pattern's length is not known";
    }
    // Whole periods of what is known to repeat; the ends of any other record are ends.
    const double patternSamples = samplesPerUi * patternLengthUi;
    const double periods =
        patternLengthUi > 0 ? std::floor(static_cast<double>(samples.size()) / patternSamples + kSlack) : 0.0;
    settings.circular = periods > 0.0;
    const auto whole = static_cast<std::size_t>(std::floor(periods * patternSamples + kSlack));
    quality.eye = MeasureEyes(settings.circular ? samples.first(std::min(whole, samples.size())) : samples, settings);
    std::vector<double> levels = quality.eye.levels;
    if (levels.empty() && quality.symbols)
        levels = quality.symbols->voltages;
    if (levelCount != kTdecqLevels) {
        quality.whyNoTdecq = "it is defined for PAM4";
        return quality;
    }
    if (!levels.empty())
        quality.levelMismatchRatio = LevelMismatchRatio(levels);
    if (!quality.symbols)
        return quality;
    const auto wholeSamplesPerUi = static_cast<std::size_t>(samplesPerUi);
    if (wholeSamplesPerUi == 0 || static_cast<double>(wholeSamplesPerUi) != samplesPerUi) {
        quality.whyNoTdecq = fmt::format("{:.6g} samples per UI are not a whole number", samplesPerUi);
        return quality;
    }
    const std::size_t period = wholeSamplesPerUi * static_cast<std::size_t>(patternLengthUi);
    samples = samples.first(samples.size() / period * period);
    if (!samples.empty())
        quality.equaliser = FindEqualiser(samples, wholeSamplesPerUi, quality.symbols->levels, numberOfTaps);
    if (!quality.equaliser)
        quality.whyNoTdecq = "no taps have their largest among the first three";
    return quality;
}

}  // namespace Tarnwick::DSO::Workbench
