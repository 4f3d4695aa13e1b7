#include "workbench/signalquality.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <fmt/format.h>

#include "maths/equalisers/tdecq.h"
#include "maths/patterns/leveldecisions.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr int kTdecqLevels = 4;

}  // namespace

double LevelMismatchRatio(std::span<const double> levels)
{
    const double middle = 0.5 * (levels[0] + levels[3]);
    const double lower = (middle - levels[1]) / (middle - levels[0]);
    const double upper = (levels[2] - middle) / (levels[3] - middle);
    return std::min({3.0 * lower, 3.0 * upper, 2.0 - 3.0 * lower, 2.0 - 3.0 * upper});
}

std::optional<ReferenceEqualiser> FindReferenceEqualiser(std::span<const double> samples, const EyeSettings& eyes,
                                                         int numberOfTaps)
{
    const auto samplesPerUi = static_cast<std::size_t>(eyes.samplesPerUi);
    if (eyes.pattern.empty() || eyes.levelCount != kTdecqLevels || !HoldsWaveform(eyes))
        return std::nullopt;
    // What is valid of a single shot begins where the seam ends; the symbols at its very ends were decided without all of
    // their neighbours, and one UI says that the record has ends.
    const std::size_t invalid = eyes.valid ? (eyes.valid->first + samplesPerUi - 1) / samplesPerUi : 0;
    const std::size_t ignoredUi = eyes.circular ? 0 : std::max(invalid, Maths::kEqualiserReachUi);
    const auto symbols = Maths::LocatePattern(samples, eyes.pattern, samplesPerUi, ignoredUi);
    if (!symbols)
        return std::nullopt;
    auto equaliser = Maths::FindReferenceEqualizer(samples, *symbols, samplesPerUi,
                                                   static_cast<std::size_t>(numberOfTaps), std::nullopt, ignoredUi);
    if (!equaliser)
        return std::nullopt;
    const Maths::EyeClosure& closure = equaliser->closure;
    return ReferenceEqualiser{
        std::move(equaliser->taps), equaliser->cursor, closure.closed, closure.tdecqDb, closure.oma, closure.sigma,
        closure.noiseGain};
}

std::optional<double> TdecqDbOf(std::span<const double> samples, const EyeSettings& eyes)
{
    const auto equaliser = FindReferenceEqualiser(samples, eyes);
    return equaliser && !equaliser->leavesEyeClosed ? std::optional(equaliser->tdecqDb) : std::nullopt;
}

SignalQuality MeasureSignalQuality(const LockedCapture& capture, int numberOfTaps, const std::string& name)
{
    RequireLevels(capture.report, name);
    SignalQuality quality;
    EyeSettings settings = EyeSettingsOf(capture);
    settings.withBathtub = true;
    quality.eye = MeasureEyes(capture.samples, settings);
    if (settings.levelCount != kTdecqLevels) {
        quality.whyNoTdecq = "it is defined for PAM4";
        return quality;
    }
    if (!quality.eye.levels.empty())
        quality.levelMismatchRatio = LevelMismatchRatio(quality.eye.levels);
    if (!HoldsWaveform(settings)) {
        quality.whyNoTdecq =
            fmt::format("{:.6g} samples per UI do not hold two time slices 0.1 UI apart; expected {} or more",
                        capture.report.samplesPerUi, kFewestSamplesPerUi);
        return quality;
    }
    if (capture.symbols.empty()) {
        quality.whyNoTdecq = "no symbols can be made out";
        return quality;
    }
    quality.equaliser = FindReferenceEqualiser(capture.samples, settings, numberOfTaps);
    if (!quality.equaliser)
        quality.whyNoTdecq = "no taps have their largest among the first three";
    return quality;
}

}  // namespace Tarnwick::DSO::Workbench
