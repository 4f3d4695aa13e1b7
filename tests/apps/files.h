// Files and failures for the host program's tests.
#pragma once

#include <string>

#include "../support/files.h"

namespace Tarnwick::App {

using Testing::TestFolder;

/// The text of the exception of this type that `run` throws.
template <typename Failure, typename Run>
std::string FailureOf(Run run)
{
    try {
        run();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "nothing was thrown";
}

}  // namespace Tarnwick::App
