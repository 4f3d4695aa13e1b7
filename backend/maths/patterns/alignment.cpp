#include "maths/patterns/alignment.h"

#include <algorithm>
#include <cmath>

#include "maths/convolution/circularconvolver.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

// c[1], c[2], .., c[n - 1], c[0]: the convolution of the capture with the reversed reference, whose last value comes first.
std::vector<double> CorrelationFromLagOne(std::span<const double> capture, std::span<const double> reference)
{
    const std::vector<double> reversed(reference.rbegin(), reference.rend());
    std::vector<double> correlation(capture.size());
    ConvolutionWork work;
    CircularConvolver(reversed, capture.size()).Convolve(capture, correlation, work);
    return correlation;
}

CorrelationPeak PeakAt(const std::vector<double>& fromLagOne, std::vector<double>::const_iterator place)
{
    return {static_cast<std::size_t>(place - fromLagOne.begin() + 1) % fromLagOne.size(), *place};
}

}  // namespace

std::vector<double> CircularCorrelation(std::span<const double> capture, std::span<const double> reference)
{
    std::vector<double> correlation = CorrelationFromLagOne(capture, reference);
    std::rotate(correlation.begin(), correlation.end() - 1, correlation.end());
    return correlation;
}

std::vector<double> CircularCorrelationWithHeld(std::span<const double> capture, std::span<const double> levels)
{
    const std::size_t uiCount = levels.size();
    const std::size_t samplesPerUi = capture.size() / uiCount;
    const std::vector<double> reversed(levels.rbegin(), levels.rend());
    const CircularConvolver convolver(reversed, uiCount);
    ConvolutionWork work;
    std::vector<double> ofUi(uiCount);  // sums over a UI from one phase on
    for (std::size_t i = 0; i < uiCount; ++i)
        for (std::size_t k = 0; k < samplesPerUi; ++k)
            ofUi[i] += capture[i * samplesPerUi + k];
    std::vector<double> fromLagOne(uiCount);
    std::vector<double> correlation(capture.size());
    for (std::size_t phase = 0; phase < samplesPerUi; ++phase) {
        convolver.Convolve(ofUi, fromLagOne, work);
        for (std::size_t i = 0; i < uiCount; ++i)
            correlation[(i + 1) % uiCount * samplesPerUi + phase] = fromLagOne[i];
        for (std::size_t i = 0; i < uiCount; ++i)
            ofUi[i] += capture[(i + 1) % uiCount * samplesPerUi + phase] - capture[i * samplesPerUi + phase];
    }
    return correlation;
}

CorrelationPeak PeakOfEitherSign(std::span<const double> correlation)
{
    const auto smallest = std::min_element(correlation.begin(), correlation.end());
    const auto largest = std::max_element(correlation.begin(), correlation.end());
    const auto peak = std::abs(*largest) > std::abs(*smallest) ? largest : smallest;
    return {static_cast<std::size_t>(peak - correlation.begin()), *peak};
}

CorrelationPeak LargestCorrelation(std::span<const double> capture, std::span<const double> reference)
{
    const std::vector<double> correlation = CorrelationFromLagOne(capture, reference);
    return PeakAt(correlation, std::max_element(correlation.begin(), correlation.end()));
}

CorrelationPeak LargestCorrelationOfEitherSign(std::span<const double> capture, std::span<const double> reference)
{
    const std::vector<double> correlation = CorrelationFromLagOne(capture, reference);
    const CorrelationPeak peak = PeakOfEitherSign(correlation);
    return {(peak.lag + 1) % correlation.size(), peak.value};
}

Alignment AlignmentOf(std::span<const double> capture, std::span<const double> reference)
{
    constexpr double kRounding = 1e-9;  // of a peak, and more than any transform's
    const std::vector<double> correlation = CorrelationFromLagOne(capture, reference);
    const auto smallest = std::min_element(correlation.begin(), correlation.end());
    const auto largest = std::max_element(correlation.begin(), correlation.end());
    // Offsets of the two records stand at every lag.
    const double offset = Mean(correlation);
    const bool isInverted = offset - *smallest > (1.0 + kRounding) * (*largest - offset);
    return {PeakAt(correlation, isInverted ? smallest : largest).lag, isInverted};
}

}  // namespace Tarnwick::DSO::Maths
