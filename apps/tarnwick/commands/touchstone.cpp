// tarnwick touchstone: an S-parameter file before a waveform is de-embedded with it.
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "commands/commands.h"
#include "notes.h"
#include "pictures/touchstoneplot.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"
#include "workbench/fixturereport.h"
#include "workbench/touchstonenormal.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

namespace Workbench = DSO::Workbench;

struct Options {
    std::string file;
    std::string normalised;
    std::string prefix;
    bool json = false;
};

void Normalise(std::string_view text, const Options& options)
{
    const auto normalised = Workbench::NormaliseFixture(text, options.file, options.normalised);
    Workbench::WriteWhole(options.normalised, normalised.text);
    PrintNotes(normalised.notes);
}

void Draw(const Workbench::FixtureFile& file, const Options& options)
{
    const std::vector<Workbench::TransmissionCurve> curves = CurvesOf(file);
    if (curves.empty())
        throw Workbench::DataFailure(fmt::format("{}: holds nothing to draw; {}", options.file,
                                                 Workbench::Printable(file.Report().plainFailure)));
    Workbench::WriteWhole(options.prefix + ".csv", Workbench::TransmissionColumns(curves));
    DrawTransmission(options.prefix + ".png", curves, std::filesystem::path(options.file).filename().string());
}

void Run(const Options& options)
{
    const std::string text = Workbench::ReadFixtureText(options.file);
    const Workbench::FixtureFile file = Workbench::DescribeFixture(text, options.file);
    if (!options.normalised.empty())
        Normalise(text, options);
    if (!options.prefix.empty())
        Draw(file, options);
    fmt::print("{}", options.json ? FixtureAsJson(file, options.file, options.normalised) + "\n"
                                  : FixtureAsText(file, options.file));
}

}  // namespace

void AddTouchstone(CLI::App& command)
{
    auto options = std::make_shared<Options>();
    command.add_option("file", options->file, "Fixture: .s1p, .s2p, .s4p, or a table of dB and radians, .s21")
        ->required();
    command
        .add_option("--normalise", options->normalised,
                    "Write the file anew, so that the filter reads it as it is meant")
        ->type_name("OUT");
    command.add_option("-o,--output", options->prefix, "Draw magnitude and phase in PREFIX.png, write PREFIX.csv")
        ->type_name("PREFIX");
    command.add_flag("--json", options->json, "Print the report as JSON");
    command.callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
