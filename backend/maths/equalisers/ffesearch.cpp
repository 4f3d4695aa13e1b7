#include "maths/equalisers/ffesearch.h"

#include <algorithm>

#include "maths/patterns/alignment.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/responses/gaussian.h"

namespace Tarnwick::DSO::Maths {

namespace {

// The ideal copy of a capture between the extremes of what is `ends` from its ends, without its mean.
std::vector<double> IdealCopy(const CapturedPattern& pattern, std::size_t ends)
{
    const auto inner = pattern.samples.subspan(ends, pattern.samples.size() - 2 * ends);
    const auto [low, high] = std::minmax_element(inner.begin(), inner.end());
    return WithoutMean(
        IdealSignal(pattern.levels, {*low, *high, pattern.levelCount}, pattern.samplesPerUi, pattern.samples.size()));
}

}  // namespace

std::optional<TapSolution> FindLeastSquaresTaps(const LeastSquaresProblem& problem)
{
    const std::size_t ends = problem.ignoredSamples;
    if (2 * ends >= problem.pattern.samples.size())
        return std::nullopt;
    const std::vector<double> capture = WithoutMean(problem.pattern.samples, ends);
    std::vector<double> reference =
        GaussianLowPass(IdealCopy(problem.pattern, ends), problem.sampleRate, problem.bandwidth);
    // How far the ideal copy lags the capture; a negative peak says that the capture is inverted.
    const CorrelationPeak alignment = LargestCorrelationOfEitherSign(reference, capture);
    if (!(alignment.value > 0.0))
        for (double& value : reference)
            value = -value;

    std::vector<int> delays = TapDelays(problem.numberOfTaps, problem.samplesPerUi, problem.tapsPerUi);
    std::vector<int> candidates =
        CandidateDelays(problem.numberOfTaps, problem.samplesPerUi, problem.tapsPerUi, problem.narrowDelaySearch);
    if (problem.mainCursorPosition >= 1)
        candidates = {delays[static_cast<std::size_t>(problem.mainCursorPosition - 1)] - 1};
    // The capture, rotated by the lag, leads by one sample. The searched delays are counted from there. Deliberate.
    const int rotation = static_cast<int>(alignment.lag) - 1;
    std::optional<RowStretch> rows;
    if (ends > 0) {
        // In the capture a row's samples lie delays[j] before its own place, its target a delay and one sample.
        const auto [soonest, latest] = std::minmax_element(candidates.begin(), candidates.end());
        const long long first = static_cast<long long>(ends) + std::max(delays.back(), *latest + 1);
        const long long behind = static_cast<long long>(capture.size() - ends) + std::min(0, *soonest + 1);
        if (behind <= first)
            return std::nullopt;
        rows = RowStretch{first + rotation, static_cast<std::size_t>(behind - first)};
    }
    for (int& delay : delays)
        delay += rotation;
    return SolveTaps(capture, reference, delays, candidates, rows);
}

std::vector<double> SpacedTaps(std::span<const double> taps, std::size_t numberOfTaps, std::size_t spacing)
{
    std::vector<double> kernel(numberOfTaps * spacing, 0.0);
    for (std::size_t k = 0; k < std::min(taps.size(), numberOfTaps); ++k)
        kernel[k * spacing] = taps[k];
    return kernel;
}

}  // namespace Tarnwick::DSO::Maths
