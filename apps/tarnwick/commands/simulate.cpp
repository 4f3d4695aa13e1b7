// tarnwick simulate: a synthetic capture to try things on.
#include "framework/filenames.h"
#include "workbench/simulation.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "commandline.h"
#include "commands/commands.h"
#include "notes.h"
#include "outputs.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/symbols.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct SimulateOptions {
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

void Run(SimulateOptions& options)
{
    RequireRecordName(options.output);
    if (!options.chain.empty() && IsSameFile(options.output, options.chain))
        throw Workbench::UsageFailure(
            fmt::format("--chain: is {}, as the capture; expected another file", options.chain));
    const Workbench::Simulation& settings = options.settings;
    options.pattern.coding = Workbench::CodingOf(options.coding);
    // Only as much of a long pattern as the cut reaches into.
    const bool isCut = settings.lengthUi > 0;
    const std::vector<int> levels = options.pattern.Levels(
        isCut ? static_cast<std::size_t>(settings.firstUi) + static_cast<std::size_t>(settings.lengthUi) : 0);
    const std::vector<double> capture =
        Workbench::Simulate(levels, Workbench::LevelCount(options.pattern.coding), settings);
    WriteRecord(options.output, capture, 1e-9 / (settings.symbolRateGBd * settings.samplesPerUi));
    if (!options.chain.empty())
        Workbench::WriteWhole(DSO::PathOf(options.chain), Workbench::ChainFileFor(options.pattern, settings));
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

void AddSimulate(const CommandLine& command)
{
    auto options = std::make_shared<SimulateOptions>();
    Workbench::Simulation& settings = options->settings;
    Workbench::SimulatedPattern& pattern = options->pattern;
    command
        .AddOption("-o,--output", options->output,
                   "Capture: .csv, .txt or .npy; - writes CSV to standard output, and the report to standard error")
        .Required();
    const Option prbs = command.AddOption("--prbs", pattern.prbs, "Pattern: PRBS 7, 9, 11, 13, 15, 23 or 31")
                            .Check(OneOf({"7", "9", "11", "13", "15", "23", "31"}))
                            .ShowDefault();
    command.AddOption("--symbols", pattern.symbols, "Pattern: one digit a symbol").Excludes(prbs);
    command.AddOption("--coding", options->coding, "Line coding").Check(OneOf(SimulatedCodings())).ShowDefault();
    command.AddFlag("--without-gray", pattern.withoutGrayCoding, "PAM4 symbols are level indices");
    command.AddOption("--baud", settings.symbolRateGBd, "Symbol rate [GBd]").Check(RealRange(1e-6, 1e6)).ShowDefault();
    command.AddOption("--spu", settings.samplesPerUi, "Samples per UI, whole or not")
        .Check(RealRange(1.0, 4096.0))
        .ShowDefault();
    const Option repetitions = command.AddOption("--repetitions", settings.repetitions, "Repetitions of the pattern")
                                   .Check(WholeRange(1, 1000000))
                                   .ShowDefault();
    command.AddOption("--amplitude", settings.amplitude, "Lowest to highest level [V]")
        .Check(RealRange(0.0, 1e6))
        .ShowDefault();
    command.AddOption("--rise", settings.riseUi, "Edge from 0 to 100 % [UI]").Check(RealRange(0.0, 1.0)).ShowDefault();
    command.AddOption("--loss", settings.lossDb, "Loss of the line at half the symbol rate [dB]")
        .Check(RealRange(0.0, 100.0))
        .ShowDefault();
    command.AddOption("--noise", settings.noiseRms, "White noise, rms [V]").Check(RealRange(0.0, 1e6)).ShowDefault();
    command.AddOption("--jitter", settings.jitterRms, "Random jitter of the edges, rms [UI]")
        .Check(RealRange(0.0, 1.0))
        .ShowDefault();
    command.AddOption("--length", settings.lengthUi, "Cut this many UI out of the pattern instead of whole repetitions")
        .Check(WholeRange(1, 1 << 30))
        .Excludes(repetitions);
    command.AddOption("--first", settings.firstUi, "The cut begins this many UI into the pattern")
        .Check(WholeRange(0, 1 << 30))
        .Needs("--length");
    command.AddOption("--ppm", settings.clockOffsetPpm, "Offset of the clock: a UI takes this many more samples [ppm]")
        .Check(RealRange(-1e5, 1e5));
    command.AddOption("--sinusoidal-jitter", settings.sinusoidalJitterUi, "Its peak deviation of the edges [UI]")
        .Check(RealRange(0.0, 10.0));
    command.AddOption("--sinusoidal-jitter-frequency", settings.sinusoidalJitterMHz, "Its frequency [MHz]")
        .Check(RealRange(1e-6, 1e6))
        .ShowDefault();
    command.AddOption("--averages", settings.averages, "Acquisitions averaged, which lowers the noise by their root")
        .Check(WholeRange(1, 1000000))
        .ShowDefault();
    command.AddFlag(
        "--band-limited", settings.bandLimited,
        "Nothing of the waveform folds at half the sample rate; so is every capture that is no whole number "
        "of repetitions and of samples per UI");
    command.AddOption("--seed", settings.seed, "Seed of noise and jitter")
        .Check(WholeRange(0, std::numeric_limits<long long>::max()))
        .ShowDefault();
    command.AddOption("--chain", options->chain, "Also write a chain file that fits the capture");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
