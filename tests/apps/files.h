// Files and failures for the host program's tests.
#pragma once

#include "../support/failures.h"
#include "../support/files.h"

namespace Tarnwick::App {

using Testing::ExpectFailures;
using Testing::FailureOf;
using Testing::TestFolder;

}  // namespace Tarnwick::App
