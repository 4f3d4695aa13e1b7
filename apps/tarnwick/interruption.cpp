#include "interruption.h"

#include <atomic>
#include <csignal>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace Tarnwick::App {

namespace {

std::atomic<bool> interrupted = false;

}  // namespace

InterruptionWatch::InterruptionWatch()
{
    interrupted = false;
    before_ = std::signal(SIGINT, [](int signal) {
        interrupted = true;
        (void)std::signal(signal, SIG_DFL);
    });
}

InterruptionWatch::~InterruptionWatch()
{
    (void)std::signal(SIGINT, before_ == SIG_ERR ? SIG_DFL : before_);
}

bool InterruptionWatch::IsInterrupted()
{
    return interrupted.load();
}

void EndInterrupted()
{
#if defined(_WIN32)
    // By which command files know; what raise would end with is an ordinary failure.
    ExitProcess(STATUS_CONTROL_C_EXIT);
#else
    (void)std::signal(SIGINT, SIG_DFL);
    (void)std::raise(SIGINT);
#endif
}

}  // namespace Tarnwick::App
