// tarnwick simulate: a synthetic capture to try things on.
#include "commands/simulate.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "framework/fftifft.h"
#include "options.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

namespace {

namespace fs = std::filesystem;

using Complex = std::complex<double>;

constexpr double kDbPerNeper = 8.685889638065035;
constexpr std::size_t kMostSamples = 1U << 30U;

// Normal deviates from the generator's raw bits, which the standard fixes, where its normal distribution is the library's
// own. Source: G. Marsaglia, T. A. Bray, "A convenient method for generating normal variables", SIAM Review 6 (1964) 260.
class Gaussian {
public:
    explicit Gaussian(std::uint64_t seed) : bits_(seed) {}
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

// How far an edge has come, `since` UI behind the middle of it.
double EdgeAt(double since, double riseUi)
{
    if (riseUi <= 0.0)
        return since < 0.0 ? 0.0 : 1.0;
    return std::clamp(since / riseUi + 0.5, 0.0, 1.0);
}

// The pattern's levels joined by edges; edge i stands `shifts[i]` UI from the start of symbol i. Circular.
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
    auto& transform = DSO::SystemFramework::FFTIFFT_Factory::GetInstance();
    std::vector<Complex> bins(samples.begin(), samples.end());
    const int count = static_cast<int>(bins.size());
    transform.FFT(bins.data(), count);
    // In units of the symbol rate; k makes the loss what was asked for at one half.
    const double k = settings.lossDb / kDbPerNeper / std::sqrt(0.5);
    for (int bin = 1; 2 * bin <= count; ++bin) {
        const double root = std::sqrt(static_cast<double>(bin) * settings.samplesPerUi / count);
        bins[static_cast<std::size_t>(bin)] *= std::exp(Complex(-k * root, -k * root));
        bins[static_cast<std::size_t>(count - bin)] = std::conj(bins[static_cast<std::size_t>(bin)]);
    }
    transform.IFFT(bins.data(), count, true);
    std::transform(bins.begin(), bins.end(), samples.begin(), [](Complex value) { return value.real(); });
}

// [UI] How far an edge may move: it stays within the halves of the UIs at its sides.
double WidestShift(const Simulation& settings)
{
    return 0.5 * (1.0 - settings.riseUi);
}

std::vector<double> Repeated(const std::vector<double>& period, int repetitions)
{
    std::vector<double> record;
    record.reserve(period.size() * static_cast<std::size_t>(repetitions));
    for (int k = 0; k < repetitions; ++k)
        record.insert(record.end(), period.begin(), period.end());
    return record;
}

struct Options {
    Simulation settings;
    std::string output;
    std::string chain;
    std::string coding = "PAM4";
    std::string symbols;
    int prbs = 13;
    bool withoutGrayCoding = false;
};

E_SIGNAL_CODING CodingOf(const std::string& name)
{
    if (name == "NRZ")
        return SIGNAL_CODING_NRZ;
    return name == "PAM3" ? SIGNAL_CODING_PAM3 : SIGNAL_CODING_PAM4;
}

void WriteChain(const Options& options)
{
    nlohmann::ordered_json device = {{"baudRateGBd", options.settings.symbolRateGBd},
                                     {"samplesPerUi", options.settings.samplesPerUi},
                                     {"signalCoding", options.coding}};
    if (options.symbols.empty())
        device["patternSymbols"] = {{"prbs", options.prbs}};
    else
        device["patternSymbols"] = options.symbols;
    if (options.withoutGrayCoding)
        device["withoutGrayCoding"] = true;
    const nlohmann::ordered_json chain = {{"device", device},
                                          {"filters",
                                           {{{"type", "moving-average"}, {"WindowLength", 3}},
                                            {{"type", "bessel-thomson"}, {"order", 4}, {"cutoffPercent", 75}}}}};
    WriteWhole(options.chain, chain.dump(4) + "\n");
}

// Files that do not exist yet are told by their names.
bool IsSameFile(const fs::path& one, const fs::path& other)
{
    std::error_code error;
    if (fs::equivalent(one, other, error))
        return true;
    const fs::path first = fs::weakly_canonical(fs::absolute(one, error), error);
    const fs::path second = fs::weakly_canonical(fs::absolute(other, error), error);
    return !first.empty() && first == second;
}

void Run(const Options& options)
{
    RequireWaveformName(options.output);
    if (!options.chain.empty() && IsSameFile(options.output, options.chain))
        throw UsageFailure(fmt::format("--chain: is {}, as the capture; expected another file", options.chain));
    const E_SIGNAL_CODING coding = CodingOf(options.coding);
    const std::string symbols = options.symbols.empty() ? PrbsSymbols(options.prbs, coding) : options.symbols;
    const std::vector<int> levels = LevelsOf(symbols, coding, options.withoutGrayCoding);
    const Simulation& settings = options.settings;
    const double samples = static_cast<double>(levels.size()) * settings.samplesPerUi * settings.repetitions;
    if (samples > static_cast<double>(kMostSamples))
        throw UsageFailure(fmt::format("the capture has {} samples; expected at most {}", samples, kMostSamples));
    const std::vector<double> capture = Simulate(levels, LevelCount(coding), settings);
    WriteWaveform(options.output, capture, 1e-9 / (settings.symbolRateGBd * settings.samplesPerUi));
    if (!options.chain.empty())
        WriteChain(options);
    if (3.0 * settings.jitterRms > WidestShift(settings))
        fmt::print(stderr, "tarnwick: edges of {} UI hold the jitter within {:.6g} UI; its rms stays below {} UI\n",
                   settings.riseUi, WidestShift(settings), settings.jitterRms);
    fmt::print("{}: {} samples, {} UI of {} at {} GBd, {} samples per UI, {} repetition{}\n", options.output,
               capture.size(), levels.size(), options.coding, settings.symbolRateGBd, settings.samplesPerUi,
               settings.repetitions, settings.repetitions == 1 ? "" : "s");
}

}  // namespace

std::vector<double> Simulate(std::span<const int> levels, int levelCount, const Simulation& settings)
{
    const double widest = WidestShift(settings);
    if (settings.jitterRms > widest)
        throw UsageFailure(
            fmt::format("jitter is {} UI rms; expected at most {:.6g} UI, half of what edges of {} UI leave of a UI",
                        settings.jitterRms, widest, settings.riseUi));
    Gaussian random(settings.seed);
    // Jittered edges differ from repetition to repetition: then the whole record is the period.
    const int periods = settings.jitterRms > 0.0 ? settings.repetitions : 1;
    std::vector<double> volts;
    for (int period = 0; period < periods; ++period)
        for (const int level : levels)
            volts.push_back(settings.amplitude * (static_cast<double>(level) / (levelCount - 1) - 0.5));
    std::vector<double> shifts(volts.size(), 0.0);
    if (settings.jitterRms > 0.0)
        for (double& shift : shifts)
            shift = std::clamp(settings.jitterRms * random(), -widest, widest);
    std::vector<double> samples = DrawEdges(volts, shifts, settings.samplesPerUi, settings.riseUi);
    ApplyLine(samples, settings);
    samples = Repeated(samples, settings.repetitions / periods);
    if (settings.noiseRms > 0.0)
        for (double& sample : samples)
            sample += settings.noiseRms * random();
    return samples;
}

void AddSimulate(CLI::App& program)
{
    auto options = std::make_shared<Options>();
    Simulation& settings = options->settings;
    CLI::App* command = program.add_subcommand("simulate", "Write a synthetic capture");
    command->add_option("-o,--output", options->output, "Capture: .csv, .txt or .npy")->required();
    auto* prbs =
        command->add_option("--prbs", options->prbs, "Pattern: PRBS 7, 9, 11, 13 or 15")->capture_default_str();
    command->add_option("--symbols", options->symbols, "Pattern: one digit a symbol")->excludes(prbs);
    command->add_option("--coding", options->coding, "Line coding")
        ->check(CLI::IsMember({"NRZ", "PAM3", "PAM4"}))
        ->capture_default_str();
    command->add_flag("--without-gray", options->withoutGrayCoding, "PAM4 symbols are level indices");
    command->add_option("--baud", settings.symbolRateGBd, "Symbol rate [GBd]")
        ->check(RealRange(1e-6, 1e6))
        ->capture_default_str();
    command->add_option("--spu", settings.samplesPerUi, "Samples per UI")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    command->add_option("--repetitions", settings.repetitions, "Repetitions of the pattern")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    command->add_option("--amplitude", settings.amplitude, "Lowest to highest level [V]")
        ->check(RealRange(0.0, 1e6))
        ->capture_default_str();
    command->add_option("--rise", settings.riseUi, "Edge from 0 to 100 % [UI]")
        ->check(RealRange(0.0, 1.0))
        ->capture_default_str();
    command->add_option("--loss", settings.lossDb, "Loss of the line at half the symbol rate [dB]")
        ->check(RealRange(0.0, 100.0))
        ->capture_default_str();
    command->add_option("--noise", settings.noiseRms, "White noise, rms [V]")
        ->check(RealRange(0.0, 1e6))
        ->capture_default_str();
    command->add_option("--jitter", settings.jitterRms, "Random jitter of the edges, rms [UI]")
        ->check(RealRange(0.0, 1.0))
        ->capture_default_str();
    command->add_option("--seed", settings.seed, "Seed of noise and jitter")->capture_default_str();
    command->add_option("--chain", options->chain, "Also write a chain file that fits the capture");
    command->footer(
        "Example: tarnwick simulate -o capture.csv --loss 6 --noise 0.01 --repetitions 4 --chain chain.json");
    command->callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
