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
    RequireRecordName(options.output);
    if (!options.chain.empty() && IsSameFile(options.output, options.chain))
        throw Workbench::UsageFailure(
            fmt::format("--chain: is {}, as the capture; expected another file", options.chain));
    const Workbench::Simulation& settings = options.settings;
    options.pattern.coding = Workbench::CodingOf(options.coding);
    // Of a long pattern no more than the cut reaches into.
    const bool isCut = settings.lengthUi > 0;
    const std::vector<int> levels = options.pattern.Levels(
        isCut ? static_cast<std::size_t>(settings.firstUi) + static_cast<std::size_t>(settings.lengthUi) : 0);
    const std::vector<double> capture =
        Workbench::Simulate(levels, Workbench::LevelCount(options.pattern.coding), settings);
    WriteRecord(options.output, capture, 1e-9 / (settings.symbolRateGBd * settings.samplesPerUi));
    if (!options.chain.empty())
        Workbench::WriteWhole(options.chain, Workbench::ChainFileFor(options.pattern, settings));
    // Beyond three standard deviations clipping hardly shows.
    if (3.0 * settings.jitterRms > settings.LargestEdgeShiftUi())
        PrintNote(fmt::format("edges of {} UI hold the jitter within {:.6g} UI; its rms stays below {} UI",
                              settings.riseUi, settings.LargestEdgeShiftUi(), settings.jitterRms));
    const std::string part = isCut ? fmt::format("{} UI", settings.lengthUi)
                                   : fmt::format("{} UI, {} repetition{}", levels.size(), settings.repetitions,
                                                 settings.repetitions == 1 ? "" : "s");
    PrintReport(fmt::format("{}: {} samples, {} of {} at {} GBd, {:.10g} samples per UI\n",
                            options.output == kStandardStream ? "standard output" : options.output, capture.size(),
                            part, options.coding, settings.symbolRateGBd, settings.SampledPerUi()),
                options.output);
}

}  // namespace

void AddSimulate(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    Workbench::Simulation& settings = options->settings;
    Workbench::SimulatedPattern& pattern = options->pattern;
    command
        .add_option("-o,--output", options->output,
                    "Capture: .csv, .txt or .npy; - writes CSV to standard output, and the report to standard error")
        ->required();
    auto* prbs = command.add_option("--prbs", pattern.prbs, "Pattern: PRBS 7, 9, 11, 13, 15, 23 or 31")
                     ->check(OneOf({"7", "9", "11", "13", "15", "23", "31"}))
                     ->capture_default_str();
    command.add_option("--symbols", pattern.symbols, "Pattern: one digit a symbol")->excludes(prbs);
    command.add_option("--coding", options->coding, "Line coding")
        ->check(OneOf(SimulatedCodings()))
        ->capture_default_str();
    command.add_flag("--without-gray", pattern.withoutGrayCoding, "PAM4 symbols are level indices");
    command.add_option("--baud", settings.symbolRateGBd, "Symbol rate [GBd]")
        ->check(RealRange(1e-6, 1e6))
        ->capture_default_str();
    command.add_option("--spu", settings.samplesPerUi, "Samples per UI, whole or not")
        ->check(RealRange(1.0, 4096.0))
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
    auto* repetitions = command.get_option("--repetitions");
    command
        .add_option("--length", settings.lengthUi, "Cut so many UI out of the pattern in place of whole repetitions")
        ->check(WholeRange(1, 1 << 30))
        ->excludes(repetitions);
    command.add_option("--first", settings.firstUi, "The cut begins so many UI into the pattern")
        ->check(WholeRange(0, 1 << 30))
        ->needs("--length");
    command.add_option("--ppm", settings.clockOffsetPpm, "Offset of the clock: a UI takes so many samples more [ppm]")
        ->check(RealRange(-1e5, 1e5));
    command.add_option("--sinusoidal-jitter", settings.sinusoidalJitterUi, "Its peak deviation of the edges [UI]")
        ->check(RealRange(0.0, 10.0));
    command.add_option("--sinusoidal-jitter-frequency", settings.sinusoidalJitterMHz, "Its frequency [MHz]")
        ->check(RealRange(1e-6, 1e6))
        ->capture_default_str();
    command.add_option("--averages", settings.averages, "Acquisitions averaged, which lowers the noise by their root")
        ->check(WholeRange(1, 1000000))
        ->capture_default_str();
    command.add_flag(
        "--band-limited", settings.bandLimited,
        "Nothing of the waveform folds at half the sample rate; so is every capture that is no whole number "
        "of repetitions and of samples per UI");
    command.add_option("--seed", settings.seed, "Seed of noise and jitter")
        ->check(WholeRange(0, std::numeric_limits<long long>::max()))
        ->capture_default_str();
    command.add_option("--chain", options->chain, "Also write a chain file that fits the capture");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
