// The capture that a command works on, as its options name it.
#pragma once

#include <string>
#include <vector>

#include "commandline.h"

#include "progress.h"
#include "workbench/captures.h"
#include "workbench/lock.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

struct CaptureOptions {
    std::string name;   ///< "-": standard input
    std::string minus;  ///< a second capture to subtract; empty: none
    DSO::Workbench::WaveformOptions reading;
    double sampleRateGsps = 0.0;  ///< 0: as the file's times say
};

/// Several captures, all read in the same way.
struct CapturesOptions {
    std::vector<std::string> names;
    CaptureOptions each;  ///< but for its name
};

/// How to read a capture.
void AddReadingOptions(const CommandLine& command, CaptureOptions& options);

/// The capture and how to read it: the same for every command that reads one.
void AddCaptureOptions(const CommandLine& command, CaptureOptions& options);

/// The same for one capture or more.
void AddCapturesOptions(const CommandLine& command, CapturesOptions& options);

/// The files that are read.
std::vector<std::string> FilesOf(const CapturesOptions& options);

/// The captures in their order; notes go to stderr.
/// @throws UsageFailure  standard input is among several captures, or a second one to be subtracted from several
std::vector<DSO::Workbench::NamedCapture> ReadCaptures(const CapturesOptions& options);

/// The capture's name in messages and titles: as given, or what "-" stands for.
std::string NameOf(const CaptureOptions& options);

/// How to read it, as the options say.
DSO::Workbench::WaveformOptions ReadingOf(const CaptureOptions& options);

/// The capture that the options name; notes go to stderr.
/// @throws UsageFailure  both captures are standard input
DSO::Workbench::Waveform ReadCapture(const CaptureOptions& options);

/// The same, shown as a step "read" with the step "lock" begun behind it.
DSO::Workbench::Waveform ReadCaptureToLock(const CaptureOptions& options, Progress& progress);

/// The capture that the options name, locked, in the steps "read" and "lock".
/// @throws UsageFailure  as ReadCapture
DSO::Workbench::LockedCapture ReadLocked(const CaptureOptions& options, const DSO::Workbench::CaptureFacts& facts,
                                         Progress& progress);

}  // namespace Tarnwick::App
