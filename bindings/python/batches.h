// Captures by the thousand.
#pragma once

#include <pybind11/pybind11.h>

namespace Tarnwick::Python {

/// Registers Batch and the functions of its table.
void BindBatches(pybind11::module_& module);

}  // namespace Tarnwick::Python
