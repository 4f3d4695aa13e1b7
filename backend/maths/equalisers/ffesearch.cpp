#include "maths/equalisers/ffesearch.h"

#include <algorithm>

#include <cmath>
#include <numeric>

#include "maths/convolution/circularconvolver.h"
#include "maths/patterns/idealsignal.h"
#include "maths/responses/gaussian.h"

namespace Tarnwick::DSO::Maths {

namespace {

std::vector<double> WithoutMean(std::span<const double> values)
{
    const double mean = std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
    std::vector<double> result(values.begin(), values.end());
    for (double& value : result)
        value -= mean;
    return result;
}

// The ideal copy of a capture between its extremes, without its mean.
std::vector<double> IdealCopy(const CapturedPattern& pattern)
{
    const auto [low, high] = std::minmax_element(pattern.samples.begin(), pattern.samples.end());
    return WithoutMean(
        IdealSignal(pattern.levels, {*low, *high, pattern.levelCount}, pattern.samplesPerUi, pattern.samples.size()));
}

// The delay that the capture has to move by, and its sign: where the circular correlation is largest in magnitude.
struct Alignment {
    int peak;
    double sign;
};

Alignment Align(std::span<const double> reference, std::span<const double> capture)
{
    const std::vector<double> reversed(capture.rbegin(), capture.rend());
    std::vector<double> correlation(capture.size());
    ConvolutionWork work;
    CircularConvolver(reversed, capture.size()).Convolve(reference, correlation, work);
    const auto [least, most] = std::minmax_element(correlation.begin(), correlation.end());
    const double value = std::abs(*most) > std::abs(*least) ? *most : *least;
    const auto peak = std::find(correlation.begin(), correlation.end(), value);
    return {static_cast<int>(peak - correlation.begin()), value > 0.0 ? 1.0 : -1.0};
}

}  // namespace

ReferenceSymbols HeldSymbols(const CapturedPattern& pattern, std::size_t samplesPerUi)
{
    const auto highest = static_cast<std::size_t>(*std::max_element(pattern.levels.begin(), pattern.levels.end()));
    std::vector<int> rank(highest + 1, 0);
    for (const int level : pattern.levels)
        rank[static_cast<std::size_t>(level)] = 1;
    ReferenceSymbols symbols;
    for (int& visited : rank) {
        const int next = symbols.levelCount;
        symbols.levelCount += visited;
        visited = next;
    }
    symbols.firstCentre = samplesPerUi / 2;
    symbols.levels.resize(pattern.samples.size() / samplesPerUi);
    for (std::size_t i = 0; i < symbols.levels.size(); ++i)
        symbols.levels[i] = rank[static_cast<std::size_t>(pattern.levels[i % pattern.levels.size()])];
    return symbols;
}

std::optional<TapSolution> FindLeastSquaresTaps(const LeastSquaresProblem& problem)
{
    const std::vector<double> capture = WithoutMean(problem.pattern.samples);
    std::vector<double> reference = GaussianLowPass(IdealCopy(problem.pattern), problem.sampleRate, problem.bandwidth);
    const Alignment alignment = Align(reference, capture);
    for (double& value : reference)
        value *= alignment.sign;

    std::vector<int> delays = TapDelays(problem.numberOfTaps, problem.samplesPerUi, problem.tapsPerUi);
    // The rotated copy leads by one sample: where no delay is searched, the reference has to lead as well.
    const std::vector<int> candidates =
        problem.mainCursorPosition >= 1
            ? std::vector<int>{delays[static_cast<std::size_t>(problem.mainCursorPosition - 1)] - 1}
            : CandidateDelays(problem.numberOfTaps, problem.samplesPerUi, problem.tapsPerUi, problem.narrowDelaySearch);
    for (int& delay : delays)
        delay += alignment.peak;
    return SolveTaps(capture, reference, delays, candidates);
}

std::optional<ReferenceEqualizer> FindTdecqTaps(const TdecqProblem& problem)
{
    return FindReferenceEqualizer(WithoutMean(problem.pattern.samples), IdealCopy(problem.pattern), problem.symbols,
                                  problem.samplesPerUi, problem.numberOfTaps, problem.cursor);
}

std::vector<double> SpacedTaps(std::span<const double> taps, std::size_t numberOfTaps, std::size_t spacing)
{
    std::vector<double> kernel(numberOfTaps * spacing, 0.0);
    for (std::size_t k = 0; k < std::min(taps.size(), numberOfTaps); ++k)
        kernel[k * spacing] = taps[k];
    return kernel;
}

}  // namespace Tarnwick::DSO::Maths
