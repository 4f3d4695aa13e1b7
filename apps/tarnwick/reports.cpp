#include "reports.h"

#include <cctype>
#include <string_view>
#include <utility>

#include "framework/filenames.h"
#include "outputs.h"
#include "workbench/tarnwick.h"

namespace Tarnwick::App {

namespace Workbench = DSO::Workbench;

namespace {

std::string& KeptCommandLine()
{
    static std::string line;
    return line;
}

// As a POSIX shell reads it back.
std::string QuotedForShell(const std::string& word)
{
    constexpr std::string_view kPlain = "-_./:=,+@%";
    bool isPlain = !word.empty();
    std::string quoted = "'";
    for (const char letter : word) {
        isPlain = isPlain && (std::isalnum(static_cast<unsigned char>(letter)) != 0 ||
                              kPlain.find(letter) != std::string_view::npos);
        quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return isPlain ? word : quoted + "'";
}

Workbench::ReportSource SourceOf(const std::string& name, std::size_t samples)
{
    return name == kStandardStream ? Workbench::ReportSource{"standard input", samples}
                                   : Workbench::SourceOf(DSO::PathOf(name), samples);
}

}  // namespace

void KeepCommandLine(int count, const char* const* arguments)
{
    KeptCommandLine() = "tarnwick";
    for (int k = 1; k < count; ++k)
        KeptCommandLine().append(" ").append(QuotedForShell(arguments[k]));
}

std::string CommandText()
{
    return KeptCommandLine();
}

Option AddMaskOption(const CommandLine& command, std::string& path)
{
    return command
        .AddOption(
            "--mask", path,
            "Mask that the report compares eyes with: a JSON file of polygons in UI from the measuring phase and V")
        .TypeName("MASK.json");
}

void AddReportOptions(const CommandLine& command, std::string& path, std::string& mask, const char* help)
{
    command.AddOption("--report", path, help).TypeName("FILE.html");
    AddMaskOption(command, mask).Needs("--report");
}

Workbench::ReportHead HeadOf(const std::string& title, std::optional<Workbench::ChainFile> chain,
                             const std::string& mask)
{
    Workbench::ReportHead head{title, tarnwick_version(), Workbench::ReportDate(), CommandText(), {}, std::move(chain),
                               {}};
    if (!mask.empty())
        head.mask = Workbench::ReadReportMask(DSO::PathOf(mask));
    return head;
}

std::vector<Workbench::ReportSource> SourcesOf(const CaptureOptions& options, std::size_t samples)
{
    std::vector<Workbench::ReportSource> sources = {SourceOf(options.name, samples)};
    if (!options.minus.empty())
        sources.push_back(SourceOf(options.minus, samples));
    return sources;
}

std::vector<Workbench::ReportSource> SourcesOf(const CapturesOptions& options,
                                               const std::vector<Workbench::NamedCapture>& captures)
{
    std::vector<Workbench::ReportSource> sources;
    for (std::size_t k = 0; k < captures.size(); ++k) {
        CaptureOptions one = options.each;
        one.name = options.names[k];
        for (Workbench::ReportSource& source : SourcesOf(one, captures[k].waveform.samples.size()))
            sources.push_back(std::move(source));
    }
    return sources;
}

}  // namespace Tarnwick::App
