// What a filter's constructor throws without pattern lock.
#pragma once

#include "framework/patternlockfailed.h"  // IWYU pragma: export
