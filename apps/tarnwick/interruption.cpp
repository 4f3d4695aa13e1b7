#include "interruption.h"

#include <atomic>
#include <csignal>

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
    (void)std::signal(SIGINT, SIG_DFL);
    (void)std::raise(SIGINT);
}

}  // namespace Tarnwick::App
