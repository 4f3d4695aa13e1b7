// Checks of option values that several commands make.
#pragma once

#include <CLI/CLI.hpp>

namespace Tarnwick::App {

/// A finite real number from `low` to `high`. CLI11's own range lets NaN pass.
CLI::Validator RealRange(double low, double high);

}  // namespace Tarnwick::App
