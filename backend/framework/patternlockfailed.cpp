#include "framework/patternlockfailed.h"

namespace Tarnwick::DSO {

PatternLockFailed::PatternLockFailed() noexcept = default;

PatternLockFailed::~PatternLockFailed() = default;

const char* PatternLockFailed::what() const noexcept
{
    return "No pattern lock";
}

}  // namespace Tarnwick::DSO
