// Ctrl-C for work whose part that is done is worth keeping.
#pragma once

namespace Tarnwick::App {

/// While one is there, an interruption ends the work, not the program; the second one ends the program. One at a time.
class InterruptionWatch {
public:
    InterruptionWatch();
    InterruptionWatch(const InterruptionWatch&) = delete;
    InterruptionWatch& operator=(const InterruptionWatch&) = delete;
    ~InterruptionWatch();

    /// Since the watch began. On any thread.
    static bool IsInterrupted();

private:
    void (*before_)(int);
};

/// Ends the program as the interruption would have done without a watch, once all is put away.
void EndInterrupted();

}  // namespace Tarnwick::App
