#include "workbench/transferfunction.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>

#include "maths/patterns/periodicrecord.h"
#include "maths/transforms/arraytransform.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

using Complex = std::complex<double>;

namespace {

constexpr double kDelayFloorDb = -60.0;  // relative to the largest |H|: below, the delay is that of rounding errors
constexpr double kFlatDb = 1e-9;  // above the transform's rounding, so that a flat response peaks at its lowest bin
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The samples of a circular response by their distance n from the peak: -floor((N-1)/2) .. floor(N/2).
template <typename Visit>
void ForEachAroundPeak(const TransferFunction& function, Visit visit)
{
    const auto count = static_cast<std::ptrdiff_t>(function.impulse.size());
    for (std::ptrdiff_t n = -(count - 1) / 2; n <= count / 2; ++n)
        visit(n, function.impulse[Maths::WrappedIndex(function.peak + n, function.impulse.size())]);
}

std::vector<double> GroupDelay(const TransferFunction& function)
{
    const std::size_t count = function.impulse.size();
    std::vector<Complex> windowed(count);
    std::vector<Complex> ramped(count);
    ForEachAroundPeak(function, [&](std::ptrdiff_t n, double value) {
        const auto distance = static_cast<double>(n);
        const double angle = 2.0 * std::numbers::pi * distance / static_cast<double>(count);
        const double weighted = 0.5 * (1.0 + std::cos(angle)) * value;
        const auto at = static_cast<std::size_t>(n < 0 ? n + static_cast<std::ptrdiff_t>(count) : n);
        windowed[at] = weighted;
        ramped[at] = distance * weighted;
    });
    Maths::ForwardTransform(windowed);
    Maths::ForwardTransform(ramped);
    const double floor = *std::max_element(function.magnitudeDb.begin(), function.magnitudeDb.end()) + kDelayFloorDb;
    std::vector<double> delay(function.magnitudeDb.size(), kNaN);
    for (std::size_t k = 0; k < delay.size(); ++k) {
        const double samples = static_cast<double>(function.peak) + (ramped[k] / windowed[k]).real();
        if (function.magnitudeDb[k] > floor && std::isfinite(samples))
            delay[k] = samples / function.sampleRate;
    }
    return delay;
}

}  // namespace

TransferFunction Transform(std::vector<double> impulse, double sampleRate)
{
    TransferFunction function;
    function.sampleRate = sampleRate;
    function.impulse = std::move(impulse);
    const auto count = static_cast<std::ptrdiff_t>(function.impulse.size());
    const auto largest = std::max_element(function.impulse.begin(), function.impulse.end(),
                                          [](double a, double b) { return std::abs(a) < std::abs(b); });
    const std::ptrdiff_t peak = largest - function.impulse.begin();
    function.peak = peak > count / 2 ? peak - count : peak;

    std::vector<Complex> bins(function.impulse.begin(), function.impulse.end());
    Maths::ForwardTransform(bins);
    bins.resize(bins.size() / 2 + 1);
    function.magnitudeDb.resize(bins.size());
    std::transform(bins.begin(), bins.end(), function.magnitudeDb.begin(),
                   [](Complex bin) { return Decibels(std::abs(bin)); });
    function.groupDelay = GroupDelay(function);
    return function;
}

std::size_t LastBinUpTo(const TransferFunction& function, double frequency)
{
    const std::size_t last = function.magnitudeDb.size() - 1;
    const double wanted = std::ceil(frequency / function.Spacing());
    return wanted < static_cast<double>(last) ? static_cast<std::size_t>(wanted) : last;
}

Complex ResponseAt(const TransferFunction& function, double frequency)
{
    const double step = -2.0 * std::numbers::pi * frequency / function.sampleRate;
    Complex sum = 0.0;
    ForEachAroundPeak(function, [&](std::ptrdiff_t n, double value) {
        sum += value * std::polar(1.0, step * static_cast<double>(n));
    });
    return sum * std::polar(1.0, step * static_cast<double>(function.peak));
}

ResponseFigures FiguresOf(const TransferFunction& function, double symbolRate, double bandEnd)
{
    const std::vector<double>& db = function.magnitudeDb;
    ResponseFigures figures{};
    figures.dcGainDb = db.front();
    figures.halfRateGainDb = Decibels(std::abs(ResponseAt(function, 0.5 * symbolRate)));
    const double end = bandEnd > 0.0 ? bandEnd : kSymbolRatesShown * symbolRate;
    const auto bins = static_cast<std::ptrdiff_t>(LastBinUpTo(function, end));
    const auto last = db.begin() + (static_cast<double>(bins) * function.Spacing() > end && bins > 0 ? bins - 1 : bins);
    figures.peakGainDb = *std::max_element(db.begin(), last + 1);
    const auto peak =
        std::find_if(db.begin(), db.end(), [&](double value) { return value >= figures.peakGainDb - kFlatDb; });
    figures.peakFrequency = static_cast<double>(peak - db.begin()) * function.Spacing();
    figures.peakDelay = static_cast<double>(function.peak) / function.sampleRate;

    const double energy = std::inner_product(function.impulse.begin(), function.impulse.end(), function.impulse.begin(),
                                             0.0);  // mean |H|^2, by Parseval
    figures.noiseGain = std::sqrt(energy);
    if (!std::isfinite(figures.dcGainDb))
        return figures;
    // The trapezoidal rule. With an odd count the last bin lies half a bin below half the sample rate and counts in full.
    const auto power = [&](double value) { return std::pow(10.0, 0.1 * (value - figures.dcGainDb)); };
    const bool isOddsLast = last + 1 == db.end() && function.impulse.size() % 2 == 1;
    double sum = 0.5;
    for (auto bin = db.begin() + 1; bin <= last; ++bin)
        sum += (bin == last && !isOddsLast ? 0.5 : 1.0) * power(*bin);
    figures.noiseBandwidth = sum * function.Spacing();

    const double halfPower = figures.dcGainDb + 10.0 * std::log10(0.5);
    const auto below = std::find_if(db.begin(), db.end(), [=](double value) { return value <= halfPower; });
    if (below != db.end()) {
        const double before = *(below - 1);
        const double part = std::isfinite(*below) ? (before - halfPower) / (before - *below) : 0.0;
        figures.cutoffFrequency = (static_cast<double>(below - db.begin() - 1) + part) * function.Spacing();
    }
    return figures;
}

}  // namespace Tarnwick::DSO::Workbench
