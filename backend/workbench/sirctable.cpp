#include "workbench/sirctable.h"

#include <utility>

#include <fmt/format.h>

namespace Tarnwick::DSO::Workbench {

SircTable TableOf(Waveform measured, const std::string& name)
{
    SircTable table{std::move(measured.samples), std::move(measured.notes)};
    if (measured.interval > 0.0) {
        if (table.values.size() % 2 == 1)
            table.values.push_back(table.values.back());
        table.values.insert(table.values.begin(), measured.interval);
    } else if (table.values.size() % 2 == 1) {
        table.notes.push_back(
            fmt::format("{}: an odd number of values without times; the first, {}, is taken as the "
                        "sample interval in seconds",
                        name, table.values.front()));
    }
    return table;
}

SircTable ReadSircTable(const std::filesystem::path& path)
{
    return TableOf(ReadWaveform(path), path.string());
}

}  // namespace Tarnwick::DSO::Workbench
