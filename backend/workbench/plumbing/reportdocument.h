// The JSON document inside a report's page. report/src/document.ts says what each key holds; the page refuses any other format.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "workbench/htmlreport.h"
#include "workbench/plumbing/json.h"

namespace Tarnwick::DSO::Workbench {

/// Of document.ts.
inline constexpr int kReportFormat = 1;

Json DocumentOf(const RunReport& report, const ReportHead& head);
/// @param eyes  so many of the rows, the first ones, have theirs
Json DocumentOf(const TableReport& report, const ReportHead& head, std::size_t eyes);

/// Hits of cells as LEB128 numbers in base64: one above 0 stands for its cell; 0 and the next number n for n empty cells.
std::string CodedCounts(std::span<const std::uint32_t> hits);

}  // namespace Tarnwick::DSO::Workbench
