// A record through the filters of a chain.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

/// Prepares the stage's filter and applies it. Settings that it refuses are the chain file's fault, records that it
/// refuses the capture's.
/// @param samples  [V] left as they are; filters take them through a pointer to mutable samples
/// @param chain    the chain file's name, for messages
/// @param capture  the capture's name, for messages
/// @return as many samples [V]
/// @throws UsageFailure  the settings, also when they turn finite samples into values that are not
/// @throws DataFailure   the record
TARNWICK_WORKBENCH_API std::vector<double> RunStage(Stage& stage, std::vector<double>& samples,
                                                    const std::string& chain, const std::string& capture);

/// What is known of a waveform: the capture, or what a stage has made of it.
struct StageReport {
    std::string name;         ///< the stage's type; "capture" for the first
    std::size_t samples = 0;  ///< how many there are
    int repetitions = 0;      ///< of the pattern, as the chain counts them
    double mean = 0.0;        ///< [V]
    double rms = 0.0;         ///< [V] of the samples themselves, their mean included
    double peakToPeak = 0.0;  ///< [V]
    EyeReport eye;            ///< without levels when the chain does not name the coding or the samples per UI
    double seconds = 0.0;     ///< [s] that the filter took
    std::string findings;     ///< what the filter has found: a JSON object as text; empty: nothing
};

/// @param samples  [V] at least one
/// @param seconds  [s] that it took to make them
TARNWICK_WORKBENCH_API StageReport Describe(const std::string& name, std::span<const double> samples,
                                            const Chain& chain, double seconds = 0.0);

struct ChainResult {
    std::vector<double> samples;      ///< [V] behind the last stage
    std::vector<StageReport> stages;  ///< the first is the capture as read
};

/// Runs every stage and describes the waveform behind each.
/// @param capture  [V] at least one sample, as many as the chain was made for
/// @param name     the capture's, for messages
/// @param begin    is told the name of each stage before it runs, "capture" first; may be empty
/// @throws UsageFailure  @throws DataFailure  as RunStage
TARNWICK_WORKBENCH_API ChainResult RunChain(Chain& chain, std::span<const double> capture, const std::string& name,
                                            const std::function<void(const std::string& stage)>& begin = {});

/// {"stages": [{"name", "samples", "repetitions", "mean", "rms", "peakToPeak", "levels", "eyes", "phaseUi", "seconds",
/// "ber", "noiseRms", "symbolsKnown", "valid", ...}]} as JSON text, indented by two; an eye is {"height", "openingPercent",
/// "widthUi", "widthPs", "threshold", "heightAtBer", "q"}. What a filter has found follows under its own keys. Not a number
/// and infinity are null.
TARNWICK_WORKBENCH_API std::string ReportAsJson(std::span<const StageReport> stages);

}  // namespace Tarnwick::DSO::Workbench
