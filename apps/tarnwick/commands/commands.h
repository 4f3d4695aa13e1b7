// The commands, one file each. Each adds itself, with its options and help, to the program.
#pragma once

#include <CLI/CLI.hpp>

namespace Tarnwick::App {

void AddApply(CLI::App& program);
void AddChainKeys(CLI::App& program);
void AddSimulate(CLI::App& program);
void AddInfo(CLI::App& program);
void AddMeasure(CLI::App& program);
void AddSweep(CLI::App& program);
void AddResponse(CLI::App& program);
void AddPresets(CLI::App& program);
void AddTouchstone(CLI::App& program);

}  // namespace Tarnwick::App
