#include "console.h"

#if defined(_WIN32)
#include <cstdio>

// Before the others.
#include <windows.h>

#include <fcntl.h>
#include <io.h>
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

}  // namespace Tarnwick::App
