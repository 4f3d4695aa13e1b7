#include "workbench/simulation.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <random>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "framework/fftifft.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Complex = std::complex<double>;

constexpr double kDbPerNeper = 8.685889638065035;  // 20 log10 e
constexpr std::size_t kMostSamples = 1U << 30U;    // 8 GiB

// Normal deviates from the generator's raw bits, which the standard fixes; its normal distribution differs from library
// to library. Source: G. Marsaglia, T. A. Bray, "A convenient method for generating normal variables", SIAM Review 6
// (1964) 260.
class GaussianNoise {
public:
    explicit GaussianNoise(std::uint64_t seed) : bits_(seed) {}
    double operator()()
    {
        if (hasSpare_) {
            hasSpare_ = false;
            return spare_;
        }
        double x = 0.0;
        double y = 0.0;
        double square = 0.0;
        do {
            x = Uniform();
            y = Uniform();
            square = x * x + y * y;
        } while (square >= 1.0 || square == 0.0);
        const double factor = std::sqrt(-2.0 * std::log(square) / square);
        spare_ = y * factor;
        hasSpare_ = true;
        return x * factor;
    }

private:
    double Uniform() { return static_cast<double>(bits_() >> 11U) * 0x1p-52 - 1.0; }  // -1 to 1
    std::mt19937_64 bits_;
    double spare_ = 0.0;
    bool hasSpare_ = false;
};

// How far an edge has come `sinceMiddleUi` after its middle, 0 to 1.
double EdgeAt(double sinceMiddleUi, double riseUi)
{
    if (riseUi <= 0.0)
        return sinceMiddleUi < 0.0 ? 0.0 : 1.0;
    return std::clamp(sinceMiddleUi / riseUi + 0.5, 0.0, 1.0);
}

// The pattern's levels joined by edges; edge i comes `shifts[i]` UI after the start of symbol i. Circular.
std::vector<double> DrawEdges(std::span<const double> volts, std::span<const double> shifts, int samplesPerUi,
                              double riseUi)
{
    std::vector<double> samples;
    samples.reserve(volts.size() * static_cast<std::size_t>(samplesPerUi));
    for (std::size_t i = 0; i < volts.size(); ++i) {
        const std::size_t before = (i + volts.size() - 1) % volts.size();
        const std::size_t after = (i + 1) % volts.size();
        for (int k = 0; k < samplesPerUi; ++k) {
            const double t = (k + 0.5) / samplesPerUi;
            const double arrived = EdgeAt(t - shifts[i], riseUi);
            const double leaving = EdgeAt(t - 1.0 - shifts[after], riseUi);
            samples.push_back(volts[i] + (1.0 - arrived) * (volts[before] - volts[i]) +
                              leaving * (volts[after] - volts[i]));
        }
    }
    return samples;
}

void ApplyLine(std::vector<double>& samples, const Simulation& settings)
{
    if (settings.lossDb == 0.0)
        return;
    auto& transform = SystemFramework::FFTIFFT_Factory::GetInstance();
    std::vector<Complex> bins(samples.begin(), samples.end());
    const int count = static_cast<int>(bins.size());
    transform.FFT(bins.data(), count);
    // Frequencies in units of the symbol rate; at one half of it the loss is what was asked for.
    const double k = settings.lossDb / kDbPerNeper / std::sqrt(0.5);
    for (int bin = 1; 2 * bin <= count; ++bin) {
        const double root = std::sqrt(static_cast<double>(bin) * settings.samplesPerUi / count);
        bins[static_cast<std::size_t>(bin)] *= std::exp(Complex(-k * root, -k * root));
        bins[static_cast<std::size_t>(count - bin)] = std::conj(bins[static_cast<std::size_t>(bin)]);
    }
    transform.IFFT(bins.data(), count, true);
    std::transform(bins.begin(), bins.end(), samples.begin(), [](Complex value) { return value.real(); });
}

std::vector<double> Repeated(const std::vector<double>& period, int repetitions)
{
    std::vector<double> record;
    record.reserve(period.size() * static_cast<std::size_t>(repetitions));
    for (int k = 0; k < repetitions; ++k)
        record.insert(record.end(), period.begin(), period.end());
    return record;
}

}  // namespace

std::vector<int> SimulatedPattern::Levels() const
{
    return LevelsOf(symbols.empty() ? PrbsSymbols(prbs, coding) : symbols, coding, withoutGrayCoding);
}

std::vector<double> Simulate(std::span<const int> levels, int levelCount, const Simulation& settings)
{
    const double count = static_cast<double>(levels.size()) * settings.samplesPerUi * settings.repetitions;
    if (count > static_cast<double>(kMostSamples))
        throw UsageFailure(fmt::format("the capture has {} samples; expected at most {}", count, kMostSamples));
    const double largestShift = settings.LargestEdgeShiftUi();
    if (settings.jitterRms > largestShift)
        throw UsageFailure(
            fmt::format("jitter is {} UI rms; expected at most {:.6g} UI, half of what edges of {} UI leave of a UI",
                        settings.jitterRms, largestShift, settings.riseUi));
    GaussianNoise noise(settings.seed);
    // Jittered edges differ from repetition to repetition: then the whole record is the period.
    const int periods = settings.jitterRms > 0.0 ? settings.repetitions : 1;
    std::vector<double> volts;
    for (int period = 0; period < periods; ++period)
        for (const int level : levels)
            volts.push_back(settings.amplitude * (static_cast<double>(level) / (levelCount - 1) - 0.5));
    std::vector<double> shifts(volts.size(), 0.0);
    if (settings.jitterRms > 0.0)
        for (double& shift : shifts)
            shift = std::clamp(settings.jitterRms * noise(), -largestShift, largestShift);
    std::vector<double> samples = DrawEdges(volts, shifts, settings.samplesPerUi, settings.riseUi);
    ApplyLine(samples, settings);
    samples = Repeated(samples, settings.repetitions / periods);
    if (settings.noiseRms > 0.0)
        for (double& sample : samples)
            sample += settings.noiseRms * noise();
    return samples;
}

std::string ChainFileFor(const SimulatedPattern& pattern, const Simulation& settings)
{
    nlohmann::ordered_json device = {{"baudRateGBd", settings.symbolRateGBd},
                                     {"samplesPerUi", settings.samplesPerUi},
                                     {"signalCoding", NameOf(pattern.coding)}};
    if (pattern.symbols.empty())
        device["patternSymbols"] = {{"prbs", pattern.prbs}};
    else
        device["patternSymbols"] = pattern.symbols;
    if (pattern.withoutGrayCoding)
        device["withoutGrayCoding"] = true;
    const nlohmann::ordered_json chain = {{"device", device},
                                          {"filters",
                                           {{{"type", "moving-average"}, {"WindowLength", 3}},
                                            {{"type", "bessel-thomson"}, {"order", 4}, {"cutoffPercent", 75}}}}};
    return chain.dump(4) + "\n";
}

}  // namespace Tarnwick::DSO::Workbench
