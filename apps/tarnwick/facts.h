// What the user knows about a capture: the same options for every command that reads one.
#pragma once

#include <string>

#include "commandline.h"

#include "workbench/lock.h"

namespace Tarnwick::App {

struct FactOptions {
    std::string coding;  ///< empty: found
    double symbolRateGBd = 0.0;
    double samplesPerUi = 0.0;
    int patternLengthUi = 0;
};

void AddFactOptions(const CommandLine& command, FactOptions& options);

/// What the options say goes before what `facts` holds.
DSO::Workbench::CaptureFacts With(const FactOptions& options, DSO::Workbench::CaptureFacts facts = {});

}  // namespace Tarnwick::App
