#include "workbench/simulation.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>

#include <fmt/format.h>

#include "maths/patterns/edgesignal.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/transforms/arraytransform.h"
#include "maths/transforms/factors.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/json.h"
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

// The levels of the symbols joined by edges; edge i comes `shifts[i]` UI after the start of symbol i. Circular.
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

// Gain at a frequency [symbol rates]; at one half of the symbol rate the loss is what was asked for.
Complex LineGain(double frequency, double lossDb)
{
    const double nepers = lossDb / kDbPerNeper / std::sqrt(0.5) * std::sqrt(frequency);
    return std::exp(Complex(-nepers, -nepers));
}

// The spectrum of a real record, X[0] .. X[n/2], as its n samples.
std::vector<double> SamplesOf(const std::vector<Complex>& half, std::size_t count)
{
    std::vector<Complex> bins(half.begin(), half.end());
    bins.resize(count);
    for (std::size_t bin = 1; 2 * bin < count; ++bin)
        bins[count - bin] = std::conj(bins[bin]);
    Maths::InverseTransform(bins, Maths::Scaling::ByLength);
    std::vector<double> samples(count);
    std::transform(bins.begin(), bins.end(), samples.begin(), [](Complex value) { return value.real(); });
    return samples;
}

void ApplyLine(std::vector<double>& samples, const Simulation& settings)
{
    if (settings.lossDb == 0.0)
        return;
    std::vector<Complex> bins(samples.begin(), samples.end());
    Maths::ForwardTransform(bins);
    bins.resize(samples.size() / 2 + 1);
    const auto count = static_cast<double>(samples.size());
    for (std::size_t k = 1; k < bins.size(); ++k)
        bins[k] *= LineGain(static_cast<double>(k) * settings.samplesPerUi / count, settings.lossDb);
    samples = SamplesOf(bins, samples.size());
}

// 1 up to 0.35 of the sample rate, 0 from 0.45 of it, half a period of a cosine between.
double BandGain(double frequency)
{
    constexpr double kPass = 0.35;
    constexpr double kStop = 0.45;
    const double fall = std::clamp((frequency - kPass) / (kStop - kPass), 0.0, 1.0);
    return 0.5 + 0.5 * std::cos(std::numbers::pi * fall);
}

// The band-limited waveform of symbols of a circle that they need not fill: the last symbol lasts until its end.
// Symbol 0 starts `start` samples before the first sample; that of DrawEdges comes half an interval after it.
std::vector<double> DrawBandLimited(std::span<const double> volts, std::span<const double> shifts, double start,
                                    std::size_t count, const Simulation& settings)
{
    const double perUi = settings.SampledPerUi();
    const auto length = static_cast<double>(count);
    std::vector<Maths::SignalEdge> edges;
    edges.reserve(volts.size());
    double first = volts.back();
    for (std::size_t i = 0; i < volts.size(); ++i) {
        const double before = i > 0 ? volts[i - 1] : volts.back();
        if (volts[i] == before)
            continue;
        const double middle = (static_cast<double>(i) + shifts[i]) * perUi - start;
        if (middle < 0.0)  // the edge at the seam: the record begins behind it
            first = volts[i];
        edges.push_back({middle < 0.0 ? middle + length : middle, volts[i] - before});
    }
    std::vector<Complex> bins = Maths::EdgeSpectrum(edges, first, settings.riseUi * perUi, count);
    for (std::size_t k = 1; k < bins.size(); ++k) {
        const double frequency = static_cast<double>(k) / length;  // [1/samples]
        bins[k] *= BandGain(frequency);
        if (settings.lossDb != 0.0)
            bins[k] *= LineGain(frequency * perUi, settings.lossDb);
    }
    return SamplesOf(bins, count);
}

std::vector<double> Repeated(const std::vector<double>& period, int repetitions)
{
    std::vector<double> record;
    record.reserve(period.size() * static_cast<std::size_t>(repetitions));
    for (int k = 0; k < repetitions; ++k)
        record.insert(record.end(), period.begin(), period.end());
    return record;
}

// What precedes and follows a cut, so that hardly anything of the seam of the longer record shows in it: a line of 6 dB
// answers to what is so far away by 2e-5 of the amplitude.
constexpr int kGuardUi = 1024;

struct Edges {
    std::vector<double> volts;
    std::vector<double> shifts;  // [UI]
};

// Symbols from `firstUi` of the pattern on, and the edges that lead to them.
Edges EdgesOf(std::span<const int> levels, int levelCount, std::int64_t firstUi, std::size_t count,
              const Simulation& settings, GaussianNoise& noise)
{
    const double largestShift = settings.LargestEdgeShiftUi();
    const double radiansPerUi = 2.0 * std::numbers::pi * 1e-3 * settings.sinusoidalJitterMHz / settings.symbolRateGBd;
    Edges edges;
    edges.volts.reserve(count);
    edges.shifts.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto ui = firstUi + static_cast<std::int64_t>(i);
        const int level = levels[Maths::WrappedIndex(ui, levels.size())];
        edges.volts.push_back(settings.amplitude * (static_cast<double>(level) / (levelCount - 1) - 0.5));
        double shift = 0.0;
        if (settings.jitterRms > 0.0)
            shift = std::clamp(settings.jitterRms * noise(), -largestShift, largestShift);
        if (settings.sinusoidalJitterUi > 0.0)
            shift += settings.sinusoidalJitterUi * std::sin(radiansPerUi * static_cast<double>(ui));
        edges.shifts.push_back(shift);
    }
    return edges;
}

// Whole repetitions of whole samples per UI.
std::vector<double> SimulateSeamless(std::span<const int> levels, int levelCount, const Simulation& settings,
                                     GaussianNoise& noise)
{
    // Jittered edges differ from repetition to repetition: then the whole record is the period.
    const int periods = settings.jitterRms > 0.0 ? settings.repetitions : 1;
    const std::size_t symbols = levels.size() * static_cast<std::size_t>(periods);
    const Edges edges = EdgesOf(levels, levelCount, 0, symbols, settings, noise);
    const int samplesPerUi = static_cast<int>(settings.samplesPerUi);
    std::vector<double> samples;
    if (settings.bandLimited) {
        samples =
            DrawBandLimited(edges.volts, edges.shifts, 0.5, symbols * static_cast<std::size_t>(samplesPerUi), settings);
    } else {
        samples = DrawEdges(edges.volts, edges.shifts, samplesPerUi, settings.riseUi);
        ApplyLine(samples, settings);
    }
    return Repeated(samples, settings.repetitions / periods);
}

// A cut out of a longer record.
std::vector<double> SimulateCut(std::span<const int> levels, int levelCount, std::size_t count,
                                const Simulation& settings, GaussianNoise& noise)
{
    const double perUi = settings.SampledPerUi();
    const auto guard = static_cast<std::size_t>(kGuardUi * perUi);
    const double start = 0.5 + kGuardUi * perUi - static_cast<double>(guard);
    const std::size_t length = Maths::QuickEvenLength(count + 2 * guard);
    const auto symbols = static_cast<std::size_t>(static_cast<double>(length) / perUi);
    const Edges edges =
        EdgesOf(levels, levelCount, std::int64_t{settings.firstUi} - kGuardUi, symbols, settings, noise);
    std::vector<double> samples = DrawBandLimited(edges.volts, edges.shifts, start, length, settings);
    const auto first = samples.begin() + static_cast<std::ptrdiff_t>(guard);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

}  // namespace

std::vector<int> SimulatedPattern::Levels(std::size_t count) const
{
    return LevelsOf(symbols.empty() ? PrbsSymbols(prbs, coding, count) : symbols, coding, withoutGrayCoding);
}

bool Simulation::IsSeamless() const
{
    return samplesPerUi == std::round(samplesPerUi) && clockOffsetPpm == 0.0 && sinusoidalJitterUi == 0.0 &&
           firstUi == 0 && lengthUi == 0;
}

std::vector<double> Simulate(std::span<const int> levels, int levelCount, const Simulation& settings)
{
    const double symbols =
        settings.lengthUi > 0 ? settings.lengthUi : static_cast<double>(levels.size()) * settings.repetitions;
    const double count = std::floor(symbols * settings.SampledPerUi());
    if (count > static_cast<double>(kMostSamples))
        throw UsageFailure(fmt::format("the capture has {} samples; expected at most {}", count, kMostSamples));
    if (settings.jitterRms > settings.LargestEdgeShiftUi())
        throw UsageFailure(
            fmt::format("jitter is {} UI rms; expected at most {:.6g} UI, half of what edges of {} UI leave of a UI",
                        settings.jitterRms, settings.LargestEdgeShiftUi(), settings.riseUi));
    GaussianNoise noise(settings.seed);
    std::vector<double> samples =
        settings.IsSeamless() ? SimulateSeamless(levels, levelCount, settings, noise)
                              : SimulateCut(levels, levelCount, static_cast<std::size_t>(count), settings, noise);
    const double noiseRms = settings.noiseRms / std::sqrt(static_cast<double>(settings.averages));
    if (noiseRms > 0.0)
        for (double& sample : samples)
            sample += noiseRms * noise();
    return samples;
}

std::string ChainFileFor(const SimulatedPattern& pattern, const Simulation& settings)
{
    Json device = {{"baudRateGBd", settings.symbolRateGBd}, {"signalCoding", NameOf(pattern.coding)}};
    if (settings.samplesPerUi == std::round(settings.samplesPerUi) && settings.clockOffsetPpm == 0.0)
        device.Set("samplesPerUi", static_cast<int>(settings.samplesPerUi));
    if (settings.IsSeamless() && pattern.symbols.empty())
        device.Set("patternSymbols", {{"prbs", pattern.prbs}});
    else if (settings.IsSeamless())
        device.Set("patternSymbols", pattern.symbols);
    if (pattern.withoutGrayCoding)
        device.Set("withoutGrayCoding", true);
    Json filters = Json::List();
    filters.Add({{"type", "moving-average"}, {"WindowLength", 3}});
    filters.Add({{"type", "bessel-thomson"}, {"order", 4}, {"cutoffPercent", 75}});
    return Json{{"device", device}, {"filters", filters}}.Text(4) + "\n";
}

}  // namespace Tarnwick::DSO::Workbench
