#include "commands/commands.h"

namespace Tarnwick::App {

namespace {

constexpr Command kCommands[] = {
    {"apply", "Run a capture through a chain of filters", "chain.json capture.csv -o filtered.csv --eye eye", AddApply},
    {"eye", "Show the eye of a capture, without a chain and without facts", "capture.csv -o eye", AddEye},
    {"lock", "Find clock, coding and pattern of a capture, and cut or resample it for the filters",
     "capture.csv -o locked.npy --chain chain.json", AddLock},
    {"simulate", "Write a synthetic capture", "-o capture.csv --loss 6 --noise 0.01 --repetitions 4 --chain chain.json",
     AddSimulate},
    {"info", "Tell what a capture holds", "capture.csv", AddInfo},
    {"measure", "Measure levels, eyes, RLM and, for PAM4, TDECQ of a capture", "capture.csv", AddMeasure},
    {"sweep", "Rank settings of a chain by the eyes behind it",
     "chain.json capture.csv --over filters.1.cutoffPercent=50:100:5", AddSweep},
    {"optimise", "Find the best CTLE, FFE and DFE for a capture",
     "chain.json capture.csv -o best.json --ffe-taps 5 --dfe-taps 3", AddOptimise},
    {"batch", "Run many captures through a chain, side by side, with a table of the results",
     "chain.json captures/*.csv -o filtered --eyes", AddBatch},
    {"report", "Write a page with all figures, eyes and plots of a capture behind a chain, for any browser",
     "chain.json capture.csv -o report.html", AddReport},
    {"response", "Show what the filters of a chain do to a spectrum", "chain.json -o response", AddResponse},
    {"presets", "List the presets of the CTLE", "--json", AddPresets},
    {"touchstone",
     "Show an S-parameter file, and where the de-embedding filter reads it differently from what was meant",
     "fixture.s4p --normalise clean.s4p -o fixture", AddTouchstone},
    {"chain-keys", "List the keys of a chain file with units and defaults", "--markdown", AddChainKeys},
    {"completion", "Print what a shell needs to complete this program's commands", "bash", AddCompletion},
    {"manual", "Print the manual page", "> tarnwick.1", AddManual},
};

}  // namespace

std::span<const Command> Commands()
{
    return kCommands;
}

}  // namespace Tarnwick::App
