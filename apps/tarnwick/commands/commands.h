// The commands of the program: one table, from which the program and its help are made; a file a command.
#pragma once

#include <span>

#include <CLI/CLI.hpp>

namespace Tarnwick::App {

struct Command {
    const char* name;
    const char* help;                       ///< one sentence without a full stop
    const char* example;                    ///< the arguments of one call
    void (*addOptions)(CLI::App& command);  ///< and what to do when it is called
};

/// In the order of the program's help.
std::span<const Command> Commands();

void AddApply(CLI::App& command);
void AddBatch(CLI::App& command);
void AddChainKeys(CLI::App& command);
void AddEye(CLI::App& command);
void AddInfo(CLI::App& command);
void AddLock(CLI::App& command);
void AddMeasure(CLI::App& command);
void AddOptimise(CLI::App& command);
void AddPresets(CLI::App& command);
void AddReport(CLI::App& command);
void AddResponse(CLI::App& command);
void AddSimulate(CLI::App& command);
void AddSweep(CLI::App& command);
void AddTouchstone(CLI::App& command);

}  // namespace Tarnwick::App
