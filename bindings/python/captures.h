// Captures, chains on them, networks: objects that hold what the workbench returned, and whose arrays are views of it.
#pragma once

#include "arrays.h"

namespace Tarnwick::Python {

/// Registers Waveform, Locked and lock.
void BindCaptures(py::module_& module);

/// Registers ChainFile and Result.
void BindChains(py::module_& module);

/// Registers read_network.
void BindNetworks(py::module_& module);

}  // namespace Tarnwick::Python
