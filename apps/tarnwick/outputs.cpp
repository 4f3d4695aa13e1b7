#include "outputs.h"

#include <cstdio>

#include <fmt/format.h>

#include "workbench/failure.h"

namespace Tarnwick::App {

namespace fs = std::filesystem;
using DSO::Workbench::DataFailure;
using DSO::Workbench::UsageFailure;

void PrintReport(const std::string& report)
{
    if (std::fwrite(report.data(), 1, report.size(), stdout) != report.size() || std::fflush(stdout) != 0)
        throw DataFailure("standard output cannot be written");
}

bool IsSameFile(const fs::path& one, const fs::path& other)
{
    std::error_code error;
    if (fs::equivalent(one, other, error))
        return true;
    const fs::path first = fs::weakly_canonical(fs::absolute(one, error), error);
    const fs::path second = fs::weakly_canonical(fs::absolute(other, error), error);
    return !first.empty() && first == second;
}

void RequireApart(const char* option, const fs::path& output, const std::vector<std::string>& inputs)
{
    for (const std::string& input : inputs)
        if (!input.empty() && IsSameFile(output, input))
            throw UsageFailure(
                fmt::format("{}: is {}, which this command reads; expected another file", option, output.string()));
}

}  // namespace Tarnwick::App
