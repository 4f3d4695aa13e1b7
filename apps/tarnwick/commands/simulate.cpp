// tarnwick simulate: a synthetic capture to try things on.
#include "workbench/simulation.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "commands/commands.h"
#include "notes.h"
#include "options.h"
#include "outputs.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/symbols.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct Options {
    Workbench::Simulation settings;
    Workbench::SimulatedPattern pattern;
    std::string coding = "PAM4";
    std::string output;
    std::string chain;
};

// A precoded signal looks like PAM4.
std::vector<std::string> SimulatedCodings()
{
    std::vector<std::string> names = Workbench::CodingNames();
    names.erase(std::remove(names.begin(), names.end(), Workbench::NameOf(SIGNAL_CODING_PAM4_PRECODED)), names.end());
    return names;
}

void Run(Options& options)
{
    Workbench::RequireWaveformName(options.output);
    if (!options.chain.empty() && IsSameFile(options.output, options.chain))
        throw Workbench::UsageFailure(
            fmt::format("--chain: is {}, as the capture; expected another file", options.chain));
    const Workbench::Simulation& settings = options.settings;
    options.pattern.coding = Workbench::CodingOf(options.coding);
    const std::vector<int> levels = options.pattern.Levels();
    const std::vector<double> capture =
        Workbench::Simulate(levels, Workbench::LevelCount(options.pattern.coding), settings);
    Workbench::WriteWaveform(options.output, capture, 1e-9 / (settings.symbolRateGBd * settings.samplesPerUi));
    if (!options.chain.empty())
        Workbench::WriteWhole(options.chain, Workbench::ChainFileFor(options.pattern, settings));
    // Beyond three standard deviations clipping hardly shows.
    if (3.0 * settings.jitterRms > settings.LargestEdgeShiftUi())
        PrintNote(fmt::format("edges of {} UI hold the jitter within {:.6g} UI; its rms stays below {} UI",
                              settings.riseUi, settings.LargestEdgeShiftUi(), settings.jitterRms));
    PrintReport(fmt::format("{}: {} samples, {} UI of {} at {} GBd, {} samples per UI, {} repetition{}\n",
                            options.output, capture.size(), levels.size(), options.coding, settings.symbolRateGBd,
                            settings.samplesPerUi, settings.repetitions, settings.repetitions == 1 ? "" : "s"));
}

}  // namespace

void AddSimulate(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    Workbench::Simulation& settings = options->settings;
    Workbench::SimulatedPattern& pattern = options->pattern;
    command.add_option("-o,--output", options->output, "Capture: .csv, .txt or .npy")->required();
    auto* prbs = command.add_option("--prbs", pattern.prbs, "Pattern: PRBS 7, 9, 11, 13 or 15")
                     ->check(OneOf({"7", "9", "11", "13", "15"}))
                     ->capture_default_str();
    command.add_option("--symbols", pattern.symbols, "Pattern: one digit a symbol")->excludes(prbs);
    command.add_option("--coding", options->coding, "Line coding")
        ->check(OneOf(SimulatedCodings()))
        ->capture_default_str();
    command.add_flag("--without-gray", pattern.withoutGrayCoding, "PAM4 symbols are level indices");
    command.add_option("--baud", settings.symbolRateGBd, "Symbol rate [GBd]")
        ->check(RealRange(1e-6, 1e6))
        ->capture_default_str();
    command.add_option("--spu", settings.samplesPerUi, "Samples per UI")
        ->check(WholeRange(1, 4096))
        ->capture_default_str();
    command.add_option("--repetitions", settings.repetitions, "Repetitions of the pattern")
        ->check(WholeRange(1, 1000000))
        ->capture_default_str();
    command.add_option("--amplitude", settings.amplitude, "Lowest to highest level [V]")
        ->check(RealRange(0.0, 1e6))
        ->capture_default_str();
    command.add_option("--rise", settings.riseUi, "Edge from 0 to 100 % [UI]")
        ->check(RealRange(0.0, 1.0))
        ->capture_default_str();
    command.add_option("--loss", settings.lossDb, "Loss of the line at half the symbol rate [dB]")
        ->check(RealRange(0.0, 100.0))
        ->capture_default_str();
    command.add_option("--noise", settings.noiseRms, "White noise, rms [V]")
        ->check(RealRange(0.0, 1e6))
        ->capture_default_str();
    command.add_option("--jitter", settings.jitterRms, "Random jitter of the edges, rms [UI]")
        ->check(RealRange(0.0, 1.0))
        ->capture_default_str();
    command.add_option("--seed", settings.seed, "Seed of noise and jitter")
        ->check(WholeRange(0, std::numeric_limits<long long>::max()))
        ->capture_default_str();
    command.add_option("--chain", options->chain, "Also write a chain file that fits the capture");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
