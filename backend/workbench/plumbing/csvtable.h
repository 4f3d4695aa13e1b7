// Tables as comma-separated values. Source: IETF RFC 4180, with a newline alone at the end of a row.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tarnwick::DSO::Workbench {

/// One row with its newline; what holds a comma, a quotation mark or a line break is quoted.
std::string CsvRow(std::span<const std::string> cells);

/// The rows that end in a newline: a last one that was cut off is left out.
std::vector<std::vector<std::string>> CsvRows(std::string_view text);

}  // namespace Tarnwick::DSO::Workbench
