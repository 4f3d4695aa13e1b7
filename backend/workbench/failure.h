// What the workbench throws: the type says whose fault it was, the text where to look.
#pragma once

#include <stdexcept>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

/// Something in the data: a file, a line, a sample. The program ends with status 1.
struct TARNWICK_WORKBENCH_API DataFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// No symbol clock can be found in a capture, or be followed.
struct TARNWICK_WORKBENCH_API NoClockFailure : DataFailure {
    using DataFailure::DataFailure;
};

/// A wrong setting: the command line or the chain file. The program ends with status 2.
struct TARNWICK_WORKBENCH_API UsageFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A key that the chain file must not have.
struct TARNWICK_WORKBENCH_API UnknownKeyFailure : UsageFailure {
    using UsageFailure::UsageFailure;
};

/// A filter of the chain needs pattern lock on its channel, and the device says that there is none.
struct TARNWICK_WORKBENCH_API NoPatternLockFailure : UsageFailure {
    using UsageFailure::UsageFailure;
};

}  // namespace Tarnwick::DSO::Workbench
