// tarnwick touchstone: an S-parameter file before a waveform is de-embedded with it.
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "commandline.h"
#include "commands/commands.h"
#include "framework/filenames.h"
#include "notes.h"
#include "outputs.h"
#include "pictures/touchstoneplot.h"
#include "reports.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"
#include "workbench/fixturereport.h"
#include "workbench/touchstonenormal.h"
#include "workbench/units.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct TouchstoneOptions {
    std::string file;
    std::string normalised;
    std::string prefix;
    std::vector<double> at;  ///< [GHz]
    bool json = false;
};

void Normalise(std::string_view text, const TouchstoneOptions& options)
{
    const auto normalised = Workbench::NormaliseFixture(text, options.file, options.normalised);
    Workbench::WriteWhole(DSO::PathOf(options.normalised), normalised.text);
    PrintNotes(normalised.notes);
}

std::vector<Workbench::TransmissionCurve> Curves(const Workbench::FixtureFile& file, const TouchstoneOptions& options)
{
    std::vector<Workbench::TransmissionCurve> curves = CurvesOf(file);
    if (curves.empty())
        throw Workbench::DataFailure(fmt::format("{}: holds nothing to draw; {}", options.file,
                                                 Workbench::Printable(file.Report().plainFailure)));
    return curves;
}

// [Hz] Those at which values are asked for.
std::vector<double> Frequencies(const Workbench::FixtureFile& file, const TouchstoneOptions& options)
{
    const Workbench::FixtureTransmission& data = file.Report().plain;
    std::vector<double> frequencies;
    for (const double frequencyGHz : options.at) {
        frequencies.push_back(frequencyGHz * Workbench::kGiga);
        if (data.empty() || frequencies.back() < data.begin()->first || frequencies.back() > data.rbegin()->first)
            throw Workbench::UsageFailure(
                fmt::format("--at: is {} GHz; expected a frequency within the data of {}", frequencyGHz, options.file));
    }
    return frequencies;
}

void Run(const TouchstoneOptions& options)
{
    const std::string text = Workbench::ReadFixtureText(DSO::PathOf(options.file));
    const Workbench::FixtureFile file = Workbench::DescribeFixture(text, options.file);
    if (!options.normalised.empty())
        Normalise(text, options);
    const std::vector<double> frequencies = Frequencies(file, options);
    std::vector<Workbench::TransmissionCurve> curves;
    if (!options.prefix.empty()) {
        curves = Curves(file, options);
        Workbench::WriteWhole(DSO::PathOf(options.prefix + ".csv"), Workbench::TransmissionColumns(curves));
    }
    PrintReport(options.json ? FixtureAsJson(file, options.file, options.normalised, frequencies) + "\n"
                             : FixtureAsText(file, options.file, frequencies));
    if (!options.prefix.empty())  // behind the table, which does not need gnuplot
        DrawTransmission(DSO::PathOf(options.prefix + ".png"), curves, DSO::FileNameOf(options.file));
    const Workbench::TouchstoneReport& report = file.Report();
    if (!report.readFailure.empty() && options.normalised.empty())
        throw Workbench::DataFailure(fmt::format(
            "{}: the filter refuses it in line {}; {}", options.file, report.readFailureLine,
            report.plainFailure.empty() ? "--normalise OUT rewrites it so that it is read"
                                        : "--normalise cannot mend it: " + Workbench::Printable(report.plainFailure)));
}

}  // namespace

void AddTouchstone(const CommandLine& command)
{
    auto options = std::make_shared<TouchstoneOptions>();
    command.AddOption("file", options->file, "Fixture: .s1p, .s2p, .s4p, or a table of dB and radians, .s21")
        .Required();
    command.AddOption("--normalise", options->normalised, "Rewrite the file so that the filter reads it as intended")
        .TypeName("OUT");
    command.AddOption("-o,--output", options->prefix, "Draw magnitude and delay in PREFIX.png, write PREFIX.csv")
        .TypeName("PREFIX");
    command.AddOption("--at", options->at, "Print the values at these frequencies [GHz]")
        .Check(RealRange(0.0, 1e6))
        .Delimiter(',')
        .TypeName("GHZ,...");
    command.AddFlag("--json", options->json, "Print the report as JSON");
    command.OnRun([options] { Run(*options); });
}

}  // namespace Tarnwick::App
