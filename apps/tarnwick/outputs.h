// What a command leaves behind: its report on stdout, and files that must not be those that it reads.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace Tarnwick::App {

/// As a capture it stands for standard input, as a waveform that is written for standard output.
inline constexpr const char* kStandardStream = "-";

/// Prints a report on stdout, or on stderr where stdout holds the waveform that the command writes.
/// @param output  where that goes; empty: nowhere
/// @throws DataFailure  stdout cannot be written, for example because the disk behind it is full
void PrintReport(const std::string& report, const std::string& output = "");

/// @throws UsageFailure  the output is neither "-" nor named as one of the formats that WriteWaveform knows
void RequireRecordName(const std::string& output);

/// Writes a waveform to a file, as WriteWaveform does, or as CSV to standard output.
/// @throws DataFailure  it cannot be written
void WriteRecord(const std::string& output, std::span<const double> samples, double interval = 0.0, double start = 0.0);

/// Two names of one file; of those that do not exist yet, by the names.
bool IsSameFile(const std::string& one, const std::string& other);

/// @param option  that names the output, for the message
/// @throws UsageFailure  the output is one of the files that are read; standard output is none
void RequireApart(const char* option, const std::string& output, const std::vector<std::string>& inputs);

}  // namespace Tarnwick::App
