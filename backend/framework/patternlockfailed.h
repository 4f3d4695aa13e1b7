#pragma once

#include <exception>

#include "framework/export.h"

namespace Tarnwick::DSO {

/// Thrown by a filter's constructor when the instrument has no pattern lock on the filter's channel.
class TARNWICK_FRAMEWORK_API PatternLockFailed : public std::exception {
public:
    PatternLockFailed() noexcept;
    PatternLockFailed(const PatternLockFailed&) noexcept = default;
    PatternLockFailed& operator=(const PatternLockFailed&) noexcept = default;
    ~PatternLockFailed() override;
    /// "No pattern lock"
    const char* what() const noexcept override;
};

}  // namespace Tarnwick::DSO
