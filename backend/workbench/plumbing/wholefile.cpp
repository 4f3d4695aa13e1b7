#include "workbench/plumbing/wholefile.h"

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <system_error>

#include <fmt/format.h>

#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

std::string ReadWholeFile(const std::filesystem::path& path)
{
    std::error_code error;
    std::ifstream file;
    std::uintmax_t size = 0;
    if (std::filesystem::is_regular_file(path, error)) {
        size = std::filesystem::file_size(path, error);
        if (!error)
            file.open(path, std::ios::binary);
    }
    if (!file.is_open())
        throw DataFailure(fmt::format("{}: cannot be read", path.string()));
    std::string content(static_cast<std::size_t>(size), '\0');
    file.read(content.data(), static_cast<std::streamsize>(size));
    if (file.gcount() != static_cast<std::streamsize>(size))
        throw DataFailure(fmt::format("{}: only {} of {} bytes could be read", path.string(), file.gcount(), size));
    return content;
}

}  // namespace Tarnwick::DSO::Workbench
