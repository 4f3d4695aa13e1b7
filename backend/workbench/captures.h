// A capture as a chain takes it: read from its file, a second one subtracted, cut to whole repetitions of the pattern.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// Where a capture comes from.
struct CaptureSource {
    std::string name;         ///< the file
    std::string minus;        ///< a second file, whose samples are subtracted (differential pairs); empty: none
    WaveformOptions options;  ///< of both files
};

/// A capture and what it is called in messages.
struct NamedCapture {
    std::string name;
    Waveform waveform;
};

/// Reads the capture and subtracts the second one. The notes are those of both files.
/// @throws DataFailure  naming the file; also for two lengths, and for more samples than a filter can take (2^31 - 1)
TARNWICK_WORKBENCH_API Waveform ReadCapture(const CaptureSource& source);

/// Drops what follows the last whole repetition of the chain's pattern, which filters leave out. A capture without a whole
/// repetition stays as it is, and so does one with a fractional number of samples per UI.
/// @param samples  [V]
/// @param name     the capture's, for the note
/// @return a note when samples were dropped
TARNWICK_WORKBENCH_API std::optional<std::string> KeepWholeRepetitions(std::vector<double>& samples, const Chain& chain,
                                                                       const std::string& name);

}  // namespace Tarnwick::DSO::Workbench
