// Reports as one HTML file: figures, curves and density eyes as JSON inside the page, beside the script that draws them. A page
// asks nothing of a network and allows nothing from outside; what reaches it as text stays text.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/runreport.h"
#include "workbench/tablereport.h"

namespace Tarnwick::DSO::Workbench {

/// A capture that a report is of.
struct ReportSource {
    std::string name;
    std::optional<std::size_t> samples = {};
    std::string sha256 = {};  ///< of the file's bytes, 64 hexadecimal digits; empty: there is no file
};

/// The digest is left empty of what is no regular file: a pipe cannot be read twice.
/// @throws DataFailure  the file cannot be read
TARNWICK_WORKBENCH_API ReportSource SourceOf(const std::filesystem::path& file,
                                             std::optional<std::size_t> samples = std::nullopt);

/// Where no trace of an eye should be.
struct ReportMask {
    std::string name;
    /// At least three points each, [UI] from the measuring phase and [V]; closed.
    std::vector<std::vector<std::pair<double, double>>> polygons;
};

/// Reads {"name": "...", "polygons": [[[UI, V], ...], ...]}.
/// @throws UsageFailure  naming the file and what is wrong with it
TARNWICK_WORKBENCH_API ReportMask ReadReportMask(const std::filesystem::path& path);

/// What a report is of, and what made it.
struct ReportHead {
    std::string title;
    std::string version;                      ///< of the program
    std::string date;                         ///< ISO 8601 with its offset
    std::string command = {};                 ///< the command line that makes the report again; empty: none
    std::vector<ReportSource> captures = {};  ///< in their order
    std::optional<ChainFile> chain = {};      ///< as it was read
    std::optional<ReportMask> mask = {};
};

/// Now, "2026-11-22T17:58:22Z".
TARNWICK_WORKBENCH_API std::string ReportDate();

/// The page of a capture behind a chain, and that of a table. Below 4 MB with 200 stages, or as many rows as fit without their
/// eyes: the more there are, the coarser are the eyes.
/// What is not UTF-8 is replaced.
TARNWICK_WORKBENCH_API std::string HtmlReport(const RunReport& report, const ReportHead& head);
TARNWICK_WORKBENCH_API std::string HtmlReport(const TableReport& report, const ReportHead& head);

}  // namespace Tarnwick::DSO::Workbench
