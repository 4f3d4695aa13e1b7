#include "console.h"

#if defined(_WIN32)
#include <cstdio>
#include <memory>

// Before the others.
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>
#else
#include <csignal>
#endif

namespace Tarnwick::App {

#if defined(_WIN32)

namespace {

std::string Utf8Of(const wchar_t* text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return {};
    std::string coded(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, coded.data(), size, nullptr, nullptr);
    coded.pop_back();  // the end of the text
    return coded;
}

}  // namespace

void PrepareStreams()
{
    for (std::FILE* stream : {stdin, stdout, stderr})
        (void)_setmode(_fileno(stream), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
}

std::vector<std::string> ArgumentsAsUtf8(int count, const char* const* arguments)
{
    int wideCount = 0;
    const std::unique_ptr<wchar_t*, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &wideCount),
                                                               &LocalFree);
    if (wide == nullptr)
        return {arguments, arguments + count};
    std::vector<std::string> all;
    for (int i = 0; i < wideCount; ++i)
        all.push_back(Utf8Of(wide.get()[i]));
    return all;
}

#else

void PrepareStreams()
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, nullptr);
}

std::vector<std::string> ArgumentsAsUtf8(int count, const char* const* arguments)
{
    // Old systems let a program be started without even its name.
    if (count < 1)
        return {"tarnwick"};
    return {arguments, arguments + count};
}

#endif

}  // namespace Tarnwick::App
