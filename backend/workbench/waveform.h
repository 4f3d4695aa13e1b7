// Waveform files: text with one value a line, CSV, NumPy's .npy and raw numbers, packed by gzip or not.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct Waveform {
    std::vector<double> samples;          ///< [V]
    double interval = 0.0;                ///< [s] from a column of times or as given; 0: not known
    double start = 0.0;                   ///< [s] the first of those times
    std::vector<std::string> notes = {};  ///< what was passed over or assumed, for the user to read
    std::string gap = {};                 ///< where its times leave one, in words; empty: nowhere
};

/// How to read what a file leaves open.
struct WaveformOptions {
    std::optional<std::size_t>
        skipLines;       ///< lines of a text file to drop first; 0 says that numbers at its head are samples
    std::string column;  ///< of a text file: the values' title in its header, with or without unit, or number, from 1
    double sampleRate = 0.0;  ///< [Hz] goes before the file's times; 0: as those say
    double scale = 1.0;       ///< factor of every sample: for raw counts the volts of one
};

/// Reads a capture; "-" is text on standard input. Its name's ending says what it is: ".npy" NumPy's; ".f32", ".f64" and
/// ".i16" raw little-endian numbers; any other is text. ".gz" after that is unpacked first. In a text, header and trailer
/// lines are skipped, and units in the header are honoured.
/// @throws DataFailure   naming the file and the line or sample; also where a file leaves open which of its numbers are the
///                       samples: several columns of values, numbers at its head that look like a header
/// @throws UsageFailure  a column that the file has not, a sample rate or scale that is none
TARNWICK_WORKBENCH_API Waveform ReadWaveform(const std::filesystem::path& path, const WaveformOptions& options = {});

/// The same of a file's content; `path` stands for the file in messages and says by its ending what it is. Takes memory
/// and time in proportion to the content, whatever that says of itself; a packed one may expand to 100 times its size.
TARNWICK_WORKBENCH_API Waveform WaveformFrom(std::string_view content, const std::filesystem::path& path,
                                             const WaveformOptions& options = {});

/// The CSV text of a waveform: a line that names the columns, then time and value where the interval is known, else values.
TARNWICK_WORKBENCH_API std::string WaveformAsCsv(std::span<const double> samples, double interval = 0.0,
                                                 double start = 0.0);

/// @throws UsageFailure  a name that ends in none of .npy, .csv and .txt
TARNWICK_WORKBENCH_API void RequireWaveformName(const std::filesystem::path& path);

/// Writes a waveform as ".npy", ".csv" (WaveformAsCsv) or ".txt" (the same without times).
/// The file appears when it is complete, or not at all.
/// @throws UsageFailure  a name with another ending
/// @throws DataFailure   the file cannot be written
TARNWICK_WORKBENCH_API void WriteWaveform(const std::filesystem::path& path, std::span<const double> samples,
                                          double interval = 0.0, double start = 0.0);

/// Writes any file by way of a temporary one beside it, so that it is complete or absent.
TARNWICK_WORKBENCH_API void WriteWhole(const std::filesystem::path& path, std::span<const char> content);

}  // namespace Tarnwick::DSO::Workbench
