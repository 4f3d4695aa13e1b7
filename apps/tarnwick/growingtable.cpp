#include "growingtable.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "framework/filenames.h"
#include "workbench/failure.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

// A device may never end, and would itself be replaced.
void RequireFile(const std::string& name)
{
    const std::filesystem::path path = DSO::Openable(DSO::PathOf(name));
    std::error_code error;
    if (std::filesystem::exists(path, error) && !std::filesystem::is_regular_file(path, error))
        throw DSO::Workbench::DataFailure(name + ": is no regular file; expected one, or none");
}

}  // namespace

std::string GrowingTable::Text() const
{
    RequireFile(path_);
    std::ifstream file(DSO::Openable(DSO::PathOf(path_)), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void GrowingTable::Replace(const std::string& text) const
{
    if (path_.empty())
        return;
    RequireFile(path_);
    DSO::Workbench::WriteWhole(DSO::PathOf(path_), text);
}

void GrowingTable::Add(const std::string& row) const
{
    if (path_.empty())
        return;
    const std::filesystem::path path = DSO::Openable(DSO::PathOf(path_));
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    {
        std::ofstream file(path, std::ios::binary | std::ios::app);
        if (!error && file << row && file.flush())
            return;
    }
    if (!error)
        std::filesystem::resize_file(path, size, error);
    throw DSO::Workbench::DataFailure(path_ + ": cannot be written");
}

}  // namespace Tarnwick::App
