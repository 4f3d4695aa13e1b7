// Log lines of the filters: level Trace, logger "default", with file, line and the function's full signature.
#pragma once

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// Dispatches one line through the shared storage. Use the macro, which adds file, line and function. A line for
/// which memory runs out is lost; nothing is thrown.
TARNWICK_FRAMEWORK_API void TraceLine(const char* file, unsigned long line, const char* function, const char* message);

}  // namespace Tarnwick::DSO::SystemFramework

#if defined(_MSC_VER)
#define TARNWICK_FUNCTION __FUNCSIG__
#else
#define TARNWICK_FUNCTION __PRETTY_FUNCTION__
#endif

// A macro because g++ 12 and clang 14 together have no std::source_location.
#define TARNWICK_TRACE(message)                                                                                  \
    ::Tarnwick::DSO::SystemFramework::TraceLine(__FILE__, __LINE__, static_cast<const char*>(TARNWICK_FUNCTION), \
                                                message)
