// Option values that several commands take.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "framework/signalcoding.h"

namespace Tarnwick::App {

/// A finite real number from `low` to `high`. CLI11's own range lets NaN pass.
CLI::Validator RealRange(double low, double high);

enum class Precoded { No, Yes };

/// The names of the line codings, with or without the precoded one, as an option takes them.
std::vector<std::string> CodingNames(Precoded precoded);

/// The coding of one of these names; unknown for any other text.
E_SIGNAL_CODING CodingNamed(const std::string& name);

}  // namespace Tarnwick::App
