#include "filters/plumbing/taps.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <string>

#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "maths/equalisers/ffesearch.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Refuse;

namespace {

constexpr int kMostTaps = 1 << 20;  // far beyond any channel's memory, and 8 MB of taps at most

}  // namespace

void RequireTapCount(const char* filter, int numberOfTaps)
{
    if (numberOfTaps < 0)
        Refuse(filter, "numberOfTaps", numberOfTaps, "0 or more taps");
    if (numberOfTaps > kMostTaps)
        Refuse(filter, "numberOfTaps", numberOfTaps, "at most " + std::to_string(kMostTaps) + " taps");
}

void RequireFiniteTaps(const char* filter, std::span<const double> taps)
{
    for (std::size_t k = 0; k < taps.size(); ++k)
        SystemFramework::RequireFinite(filter, "taps[" + std::to_string(k) + "]", taps[k], "a finite number");
}

std::vector<double> TapShares(const char* filter, std::span<const double> taps)
{
    const double sum =
        std::accumulate(taps.begin(), taps.end(), 0.0, [](double total, double tap) { return total + std::abs(tap); });
    if (!std::isfinite(sum) || sum == 0.0)
        Refuse(filter, "sum of the taps' magnitudes", sum, "a finite positive number");
    std::vector<double> shares(taps.begin(), taps.end());
    for (double& tap : shares)
        tap /= sum;
    return shares;
}

std::vector<double> TapSteps(const char* filter, std::span<const double> taps, int resolution)
{
    std::vector<double> steps = TapShares(filter, taps);
    for (double& tap : steps)
        tap = std::round(tap * resolution);
    return steps;
}

std::vector<double> WithUnitGain(const char* filter, std::vector<double> taps)
{
    const double gain = std::accumulate(taps.begin(), taps.end(), 0.0);
    if (!std::isfinite(gain) || gain == 0.0)
        Refuse(filter, "sum", gain, "a finite sum other than zero");
    for (double& tap : taps)
        tap /= gain;
    return taps;
}

void IgnoredEnds::Require(const char* filter) const
{
    if (ignoredUi < 0)
        Refuse(filter, "ignoredUi", ignoredUi, "0 or more UI");
    const std::size_t needed = 2 * (reachUi + unknowns);
    const std::size_t most = recordUi > needed ? (recordUi - needed) / 2 : 0;
    if (static_cast<std::size_t>(ignoredUi) > most)
        Refuse(filter, "ignoredUi", ignoredUi,
               "at most " + std::to_string(most) + " of " + std::to_string(recordUi) +
                   " UI, which leave twice as many as the fit has unknowns, " + std::to_string(unknowns));
}

std::size_t TapGrid::KernelLength() const
{
    return static_cast<std::size_t>(Spacing()) * static_cast<std::size_t>(numberOfTaps);
}

std::vector<double> TapGrid::Kernel(std::span<const double> taps) const
{
    return Maths::SpacedTaps(taps, static_cast<std::size_t>(numberOfTaps), static_cast<std::size_t>(Spacing()));
}

void TapGrid::Require(const char* filter) const
{
    if (samplesPerUi < 1)
        Refuse(filter, "samplesPerUi", samplesPerUi, "at least 1");
    if (tapsPerUi < 1 || tapsPerUi > samplesPerUi)
        Refuse(filter, "tapsPerUi", tapsPerUi, "1 to samplesPerUi, " + std::to_string(samplesPerUi));
    RequireTapCount(filter, numberOfTaps);
    CheckedProduct(filter, "4 * numberOfTaps * samplesPerUi", 4, numberOfTaps, samplesPerUi);
}

void TapGrid::RequireFit(const char* filter, int patternLengthUi, int mainCursorPosition) const
{
    const int places = CheckedProduct(filter, "patternLengthUi * tapsPerUi", patternLengthUi, tapsPerUi);
    if (numberOfTaps < 1 || numberOfTaps > places)
        Refuse(filter, "numberOfTaps", numberOfTaps,
               "1 to " + std::to_string(places) + ", the places in one repetition");
    if (mainCursorPosition > numberOfTaps)
        Refuse(filter, "mainCursorPosition", mainCursorPosition,
               "at most numberOfTaps, " + std::to_string(numberOfTaps));
}

}  // namespace Tarnwick::DSO::Filters
