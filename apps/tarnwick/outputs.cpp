#include "outputs.h"

#include <cstdio>
#include <filesystem>

#include <fmt/format.h>

#include "framework/filenames.h"
#include "workbench/failure.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace fs = std::filesystem;
using DSO::Workbench::DataFailure;
using DSO::Workbench::UsageFailure;

namespace {

void Print(const std::string& text, std::FILE* stream, const char* name)
{
    if (std::fwrite(text.data(), 1, text.size(), stream) != text.size() || std::fflush(stream) != 0)
        throw DataFailure(fmt::format("{} cannot be written", name));
}

}  // namespace

void PrintReport(const std::string& report, const std::string& output)
{
    if (output == kStandardStream)
        Print(report, stderr, "standard error");
    else
        Print(report, stdout, "standard output");
}

void RequireRecordName(const std::string& output)
{
    if (output != kStandardStream)
        DSO::Workbench::RequireWaveformName(DSO::PathOf(output));
}

void WriteRecord(const std::string& output, std::span<const double> samples, double interval, double start)
{
    if (output == kStandardStream)
        Print(DSO::Workbench::WaveformAsCsv(samples, interval, start), stdout, "standard output");
    else
        DSO::Workbench::WriteWaveform(DSO::PathOf(output), samples, interval, start);
}

bool IsSameFile(const std::string& one, const std::string& other)
{
    const fs::path onePath = DSO::PathOf(one);
    const fs::path otherPath = DSO::PathOf(other);
    std::error_code error;
    if (fs::equivalent(onePath, otherPath, error))
        return true;
    const fs::path first = fs::weakly_canonical(fs::absolute(onePath, error), error);
    const fs::path second = fs::weakly_canonical(fs::absolute(otherPath, error), error);
    return !first.empty() && first == second;
}

void RequireApart(const char* option, const std::string& output, const std::vector<std::string>& inputs)
{
    for (const std::string& input : inputs)
        if (output != kStandardStream && !input.empty() && IsSameFile(output, input))
            throw UsageFailure(
                fmt::format("{}: is {}, which this command reads; expected another file", option, output));
}

}  // namespace Tarnwick::App
