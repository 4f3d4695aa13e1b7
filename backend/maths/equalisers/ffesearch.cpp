#include "maths/equalisers/ffesearch.h"

#include <algorithm>

#include "maths/patterns/alignment.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/responses/gaussian.h"

namespace Tarnwick::DSO::Maths {

namespace {

// The ideal copy of a capture between its extremes, without its mean.
std::vector<double> IdealCopy(const CapturedPattern& pattern)
{
    const auto [low, high] = std::minmax_element(pattern.samples.begin(), pattern.samples.end());
    return WithoutMean(
        IdealSignal(pattern.levels, {*low, *high, pattern.levelCount}, pattern.samplesPerUi, pattern.samples.size()));
}

}  // namespace

std::optional<TapSolution> FindLeastSquaresTaps(const LeastSquaresProblem& problem)
{
    const std::vector<double> capture = WithoutMean(problem.pattern.samples);
    std::vector<double> reference = GaussianLowPass(IdealCopy(problem.pattern), problem.sampleRate, problem.bandwidth);
    // Of the ideal copy behind the capture; a negative peak says that the capture is inverted.
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
    for (int& delay : delays)
        delay += static_cast<int>(alignment.lag) - 1;
    return SolveTaps(capture, reference, delays, candidates);
}

std::vector<double> SpacedTaps(std::span<const double> taps, std::size_t numberOfTaps, std::size_t spacing)
{
    std::vector<double> kernel(numberOfTaps * spacing, 0.0);
    for (std::size_t k = 0; k < std::min(taps.size(), numberOfTaps); ++k)
        kernel[k * spacing] = taps[k];
    return kernel;
}

}  // namespace Tarnwick::DSO::Maths
