#include "workbench/signalquality.h"

#include <algorithm>

#include <fmt/format.h>

#include "maths/equalisers/tdecq.h"
#include "maths/patterns/idealsignal.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr int kTdecqLevels = 4;

// The detection uses every level, so that the capture's symbols are those of the pattern over and over.
std::optional<ReferenceEqualiser> FindEqualiser(std::span<const double> samples, std::size_t samplesPerUi,
                                                const std::vector<int>& levels, int numberOfTaps)
{
    Maths::ReferenceSymbols symbols;
    symbols.levelCount = kTdecqLevels;
    symbols.firstCentre = samplesPerUi / 2;
    const std::size_t count = samples.size() / samplesPerUi;
    symbols.levels.reserve(count);
    for (std::size_t k = 0; k < count; ++k)
        symbols.levels.push_back(levels[k % levels.size()]);
    // Only to line the capture up with.
    const std::vector<double> reference =
        Maths::IdealSignal(levels, {-1.0, 1.0, kTdecqLevels}, static_cast<double>(samplesPerUi), samples.size());
    auto found = Maths::FindReferenceEqualizer(samples, reference, symbols, samplesPerUi,
                                               static_cast<std::size_t>(numberOfTaps), std::nullopt);
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

SignalQuality MeasureSignalQuality(std::span<const double> samples, double samplesPerUi, int patternLengthUi,
                                   E_SIGNAL_CODING coding, int numberOfTaps, const std::string& name)
{
    SignalQuality quality;
    const int levelCount = LevelCount(coding);
    quality.eye = MeasureEyes(samples, samplesPerUi, levelCount);
    std::vector<double> levels = quality.eye.levels;
    if (patternLengthUi > 0) {
        try {
            quality.symbols = FindSymbols(samples, samplesPerUi, patternLengthUi, coding, name);
            if (levels.empty())
                levels = quality.symbols->voltages;
        } catch (const DataFailure& failure) {
            quality.whyNoTdecq = failure.what();
        }
    } else {
        quality.whyNoTdecq = "the pattern's length is not known";
    }
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
