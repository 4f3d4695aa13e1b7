#include "facts.h"

#include "commandline.h"
#include "workbench/pattern.h"

namespace Tarnwick::App {

void AddFactOptions(const CommandLine& command, FactOptions& options)
{
    constexpr int kMostUi = 2147483647;
    command.AddOption("--coding", options.coding, "Line coding; found when left out")
        .Check(OneOf(DSO::Workbench::CodingNames()));
    command.AddOption("--baud", options.symbolRateGBd, "Symbol rate [GBd]; found when left out")
        .Check(RealRange(1e-6, 1e6));
    command.AddOption("--samples-per-ui", options.samplesPerUi, "Samples per UI, whole or not; found when left out")
        .Check(RealRange(1.0, 1e6));
    command.AddOption("--pattern-length", options.patternLengthUi, "UI in the pattern; found when left out")
        .Check(WholeRange(1, kMostUi));
}

DSO::Workbench::CaptureFacts With(const FactOptions& options, DSO::Workbench::CaptureFacts facts)
{
    if (!options.coding.empty())
        facts.coding = DSO::Workbench::CodingOf(options.coding);
    if (options.symbolRateGBd > 0.0)
        facts.symbolRateGBd = options.symbolRateGBd;
    if (options.samplesPerUi > 0.0)
        facts.samplesPerUi = options.samplesPerUi;
    if (options.patternLengthUi > 0)
        facts.patternLengthUi = options.patternLengthUi;
    return facts;
}

}  // namespace Tarnwick::App
