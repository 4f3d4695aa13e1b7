// tarnwick: filters captures from the command line.
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>

#include "console.h"
#include "memory.h"
#include "notes.h"
#include "program.h"
#include "reports.h"
#include "workbench/failure.h"

namespace {

using Tarnwick::DSO::Workbench::DataFailure;
using Tarnwick::DSO::Workbench::UsageFailure;

constexpr int kDataStatus = 1;
constexpr int kUsageStatus = 2;

int Report(const std::exception& failure, int status)
{
    Tarnwick::App::PrintNote(failure.what());
    return status;
}

}  // namespace

#if defined(_WIN32)
// The arguments as Windows has them: those of main have lost what the code page does not know.
int wmain(int argc, wchar_t** wideArgv)
{
    const Tarnwick::App::Utf8Arguments arguments(argc, wideArgv);
    const char* const* const argv = arguments.Get();
#else
int main(int argc, char** argv)
{
#endif
    try {
        Tarnwick::App::PrepareMemory();
        Tarnwick::App::PrepareStreams();
        Tarnwick::App::KeepCommandLine(argc, argv);
        Tarnwick::App::RunProgram(argc, argv);
        if (std::fflush(stdout) != 0)
            throw DataFailure("standard output cannot be written");
        return 0;
    } catch (const UsageFailure& failure) {
        return Report(failure, kUsageStatus);
    } catch (const std::bad_alloc&) {
        return Report(std::runtime_error("there is not enough memory for this"), kDataStatus);
    } catch (const std::exception& failure) {
        return Report(failure, kDataStatus);
    }
}
