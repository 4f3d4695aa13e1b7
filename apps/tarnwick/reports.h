// Reports as HTML: what every command that writes one puts at its head.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "capture.h"
#include "commandline.h"
#include "workbench/captures.h"
#include "workbench/chain.h"
#include "workbench/htmlreport.h"

namespace Tarnwick::App {

/// To be called once, before a command runs: reports name the command line that makes them again.
void KeepCommandLine(int count, const char* const* arguments);

/// The command line with the program's plain name, quoted for a shell.
std::string CommandText();

/// The mask that a report compares eyes with.
Option AddMaskOption(const CommandLine& command, std::string& path);
/// A report beside a command's own output, and its mask.
/// @param help  what the page holds
void AddReportOptions(const CommandLine& command, std::string& path, std::string& mask, const char* help);

/// Title, version, date, command line; captures, chain and mask as they are named.
/// @param chain  as read; none: there is no chain
/// @param mask   a file; empty: none
/// @throws UsageFailure  the mask
DSO::Workbench::ReportHead HeadOf(const std::string& title, std::optional<DSO::Workbench::ChainFile> chain,
                                  const std::string& mask = "");

/// The capture and the one that is subtracted from it.
/// @param samples  of each
std::vector<DSO::Workbench::ReportSource> SourcesOf(const CaptureOptions& options, std::size_t samples);
std::vector<DSO::Workbench::ReportSource> SourcesOf(const CapturesOptions& options,
                                                    const std::vector<DSO::Workbench::NamedCapture>& captures);

}  // namespace Tarnwick::App
