// Waveform files: text with one value a line, CSV whose last column is the value, and NumPy's .npy.
#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct Waveform {
    std::vector<double> samples;     ///< [V]
    double interval = 0.0;           ///< [s] from a first column of times; 0: the file does not say
    double start = 0.0;              ///< [s] the first of those times
    std::vector<std::string> notes;  ///< what was passed over or assumed, for the user to read
};

/// Reads a capture; a name that ends in ".npy" is NumPy's, any other text. Header lines before the first number are passed over.
/// @param skipLines  lines of a text file to drop first
/// @throws DataFailure  naming the file and the line or sample
TARNWICK_WORKBENCH_API Waveform ReadWaveform(const std::filesystem::path& path, std::size_t skipLines = 0);

/// The same of a file's content; `path` stands for the file in messages and says by its ending what it is. Takes memory
/// and time in proportion to the content, whatever that says of itself.
TARNWICK_WORKBENCH_API Waveform WaveformFrom(std::string_view content, const std::filesystem::path& path,
                                             std::size_t skipLines = 0);

/// @throws UsageFailure  a name that ends in none of .npy, .csv and .txt
TARNWICK_WORKBENCH_API void RequireWaveformName(const std::filesystem::path& path);

/// Writes a waveform as ".npy", ".csv" (time and value when the interval is known, else values) or ".txt" (values).
/// The file appears when it is complete, or not at all.
/// @throws UsageFailure  a name with another ending
/// @throws DataFailure   the file cannot be written
TARNWICK_WORKBENCH_API void WriteWaveform(const std::filesystem::path& path, std::span<const double> samples,
                                          double interval = 0.0, double start = 0.0);

/// Writes any file by way of a temporary one beside it, so that it is complete or absent.
TARNWICK_WORKBENCH_API void WriteWhole(const std::filesystem::path& path, std::span<const char> content);

}  // namespace Tarnwick::DSO::Workbench
