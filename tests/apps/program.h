// The program as its user runs it.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "../support/failures.h"
#include "../support/files.h"

namespace Tarnwick::App {

using nlohmann::json;
using Testing::FailureOf;
using Testing::TestFolder;

/// The program of this build, or the one that the environment names: one for another system, with what runs it here.
inline std::string TestedProgram()
{
    const char* const other = std::getenv("TARNWICK_TESTED_PROGRAM");  // NOLINT(concurrency-mt-unsafe)
    return other != nullptr ? other : TARNWICK_PROGRAM;
}

/// Runs the program inside the folder; stdout and stderr go to the files "out" and "err" there.
/// @return its exit status
/// @param before  what the shell does first, "ulimit -f 1 && " for example
inline int RunProgram(const TestFolder& folder, const std::string& arguments, const std::string& before = "")
{
    const std::string place = (folder / ".").string();
    const std::string command =
        "cd \"" + place + "\" && " + before + "\"" + TestedProgram() + "\" " + arguments + " > out 2> err";
    const int status = std::system(command.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
    return status / 256 + status % 256;               // a shell's exit status, 0 to 255
}

/// What the program prints with --json and these arguments, which it has to take.
inline json ReportOf(const TestFolder& folder, const std::string& arguments)
{
    EXPECT_EQ(RunProgram(folder, arguments + " --json"), 0) << folder.Read("err");
    return json::parse(folder.Read("out"));
}

struct Refusal {
    std::string arguments;
    int status;
    const char* message;
};

/// Each ends with its status and its message on stderr, prints nothing else and writes no file.
inline void ExpectRefusals(const TestFolder& folder, const std::string& command,
                           std::initializer_list<Refusal> refusals)
{
    const auto forget = [&] {
        std::filesystem::remove(folder / "out");
        std::filesystem::remove(folder / "err");
    };
    forget();
    const std::size_t before = folder.Count();
    for (const auto& [arguments, status, expected] : refusals) {
        const std::string whole = fmt::format("{} {}", command, arguments);
        SCOPED_TRACE(whole);
        EXPECT_EQ(RunProgram(folder, whole), status);
        const std::string message = folder.Read("err");
        EXPECT_EQ(message.rfind("tarnwick: ", 0), 0U) << message;
        EXPECT_NE(message.find(expected), std::string::npos) << message;
        EXPECT_EQ(folder.Read("out"), "");
        forget();
        EXPECT_EQ(folder.Count(), before);
    }
}

inline bool IsPng(const std::string& content)
{
    return content.substr(0, 8) == "\x89PNG\r\n\x1a\n" && content.substr(content.size() - 8, 4) == "IEND";
}

}  // namespace Tarnwick::App
