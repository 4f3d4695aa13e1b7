// What ends a command: the exit status says whose fault it was.
#pragma once

#include <stdexcept>

namespace Tarnwick::DSO::Workbench {

/// Something in the data: a file, a line, a sample. Exit status 1.
struct DataFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The command line or the chain file. Exit status 2.
struct UsageFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A key of the chain file that nothing knows.
struct UnknownKeyFailure : UsageFailure {
    using UsageFailure::UsageFailure;
};

}  // namespace Tarnwick::DSO::Workbench
