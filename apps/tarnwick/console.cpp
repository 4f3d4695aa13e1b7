#include "console.h"

#if defined(_WIN32)
#include <cstdio>

// Before the others.
#include <windows.h>

#include <fcntl.h>
#include <io.h>

// The runtime then puts the names of files in place of wildcards among the arguments, as shells do elsewhere.
extern "C" {
int _dowildcard = -1;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
}
#else
#include <csignal>
#endif

namespace Tarnwick::App {

void PrepareStreams()
{
#if defined(_WIN32)
    for (std::FILE* stream : {stdin, stdout, stderr})
        (void)_setmode(_fileno(stream), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
#else
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, nullptr);
#endif
}

#if defined(_WIN32)
Utf8Arguments::Utf8Arguments(int count, const wchar_t* const* arguments)
{
    for (int k = 0; k < count; ++k) {
        const int size = WideCharToMultiByte(CP_UTF8, 0, arguments[k], -1, nullptr, 0, nullptr, nullptr);
        std::string text(static_cast<std::size_t>(size), '\0');  // with the null at the end
        WideCharToMultiByte(CP_UTF8, 0, arguments[k], -1, text.data(), size, nullptr, nullptr);
        text.resize(static_cast<std::size_t>(size - 1));
        texts_.push_back(std::move(text));
    }
    for (const std::string& text : texts_)
        pointers_.push_back(text.c_str());
    pointers_.push_back(nullptr);
}
#endif

}  // namespace Tarnwick::App
