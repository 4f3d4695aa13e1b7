#include "workbench/plumbing/csvtable.h"

#include <cstddef>
#include <utility>

namespace Tarnwick::DSO::Workbench {

std::string CsvRow(std::span<const std::string> cells)
{
    std::string row;
    for (std::size_t k = 0; k < cells.size(); ++k) {
        const std::string& cell = cells[k];
        row += k == 0 ? "" : ",";
        if (cell.find_first_of(",\"\r\n") == std::string::npos) {
            row += cell;
            continue;
        }
        row += '"';
        for (const char letter : cell)
            row.append(letter == '"' ? 2 : 1, letter);
        row += '"';
    }
    return row + '\n';
}

std::vector<std::vector<std::string>> CsvRows(std::string_view text)
{
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row;
    std::string cell;
    bool isQuoted = false;
    for (std::size_t k = 0; k < text.size(); ++k) {
        const char letter = text[k];
        if (letter == '"' && isQuoted && k + 1 < text.size() && text[k + 1] == '"') {
            cell += text[++k];
        } else if (letter == '"') {
            isQuoted = !isQuoted;
        } else if (isQuoted || (letter != ',' && letter != '\n' && letter != '\r')) {
            cell += letter;
        } else if (letter != '\r') {
            row.push_back(std::exchange(cell, {}));
            if (letter == '\n')
                rows.push_back(std::exchange(row, {}));
        }
    }
    return rows;
}

}  // namespace Tarnwick::DSO::Workbench
