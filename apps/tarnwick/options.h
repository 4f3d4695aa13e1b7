// Checks of option values that several commands make.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Tarnwick::App {

/// A finite real number from `low` to `high`. CLI11's own range lets NaN pass.
CLI::Validator RealRange(double low, double high);

/// A whole number from `low` to `high`.
CLI::Validator WholeRange(long long low, long long high);

/// One of these words.
CLI::Validator OneOf(std::vector<std::string> words);

}  // namespace Tarnwick::App
