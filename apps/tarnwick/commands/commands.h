// The commands of the program: one table, from which the program and its help are made; one file per command.
#pragma once

#include <span>

#include "commandline.h"

namespace Tarnwick::App {

struct Command {
    const char* name;
    const char* help;                                ///< one sentence without a full stop
    const char* example;                             ///< the arguments of one call
    void (*addOptions)(const CommandLine& command);  ///< and what to do when it is called
};

/// In the order of the program's help.
std::span<const Command> Commands();

void AddApply(const CommandLine& command);
void AddBatch(const CommandLine& command);
void AddChainKeys(const CommandLine& command);
void AddCompletion(const CommandLine& command);
void AddEye(const CommandLine& command);
void AddInfo(const CommandLine& command);
void AddLock(const CommandLine& command);
void AddManual(const CommandLine& command);
void AddMeasure(const CommandLine& command);
void AddOptimise(const CommandLine& command);
void AddPresets(const CommandLine& command);
void AddReport(const CommandLine& command);
void AddResponse(const CommandLine& command);
void AddSimulate(const CommandLine& command);
void AddSweep(const CommandLine& command);
void AddTouchstone(const CommandLine& command);

}  // namespace Tarnwick::App
