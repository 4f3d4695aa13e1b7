// The capture that a command works on, as its options name it.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "workbench/chain.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

struct CaptureOptions {
    std::string name;
    std::string minus;  ///< a second capture to subtract; empty: none
    int skipLines = 0;
};

void AddCaptureOptions(CLI::App& command, CaptureOptions& options);
void AddMinusOption(CLI::App& command, CaptureOptions& options);

/// Reads the capture and subtracts the other one. What was passed over in the files goes to stderr.
/// @throws DataFailure  naming the file; also for two lengths, and more samples than a filter can take
Waveform ReadCapture(const CaptureOptions& options);

/// Says on stderr that the chain's samples per UI are not those of the capture's times: a chain file made for another
/// capture is the likeliest mistake of all.
void WarnOfInterval(const Waveform& capture, const Chain& chain, const CaptureOptions& options,
                    const std::string& chainName);

/// Drops what stands behind the last whole repetition of the chain's pattern, which filters leave out, and says so on
/// stderr. A capture without a whole repetition stays as it is, and so does one with a fraction of samples per UI.
void KeepWholeRepetitions(std::vector<double>& samples, const Chain& chain, const CaptureOptions& options);

}  // namespace Tarnwick::App
