// A record through the filters of a chain.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/eye.h"
#include "workbench/lock.h"
#include "workbench/pulseresponse.h"
#include "workbench/validpart.h"

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

/// A waveform on its way through the stages of a chain.
struct TARNWICK_WORKBENCH_API PassingRecord {
    std::vector<double> samples;  ///< [V]
    bool circular = true;         ///< whole periods; false: a single shot, which stages filter as one circular piece
    std::size_t endsUi = 0;       ///< [UI] at either end of a single shot that give no figure, whatever runs
    std::size_t reachUi = 0;      ///< [UI] at either end to which the stages so far have carried the seam

    /// All of whole periods; of a single shot what lies within both ends.
    ValidPart Valid(double samplesPerUi) const;
};

/// A record in front of the first stage.
/// @param eyes  what is known of it; what is not valid are its ends
TARNWICK_WORKBENCH_API PassingRecord RecordOf(std::vector<double> samples, const EyeSettings& eyes);

/// The record through a stage, as RunStage; of a single shot its reach grows by the stage's: by the span of the taps of an
/// equaliser, whose fit leaves these ends out, and otherwise by how far the stage carries this record, as its response to
/// an impulse says (a thousandth of the record's rms may come from farther away).
/// @param record   of a single shot whole UI
/// @param chain    the stage's
/// @param capture  the capture's name, for messages
/// @return [s] that the filter took
/// @throws UsageFailure  as RunStage
/// @throws DataFailure   as RunStage; or the ends are more than half of a single shot
TARNWICK_WORKBENCH_API double PassStage(Stage& stage, PassingRecord& record, const Chain& chain,
                                        const std::string& capture);

/// What is known of a waveform: the capture, or what a stage has made of it.
struct StageReport {
    std::string name;         ///< the stage's type; "capture" for the first
    std::size_t samples = 0;  ///< how many there are
    int repetitions = 0;      ///< of the pattern, as the chain counts them
    double mean = 0.0;        ///< [V] of the valid part, as the other figures
    double rms = 0.0;         ///< [V] of the samples themselves, their mean included
    double peakToPeak = 0.0;  ///< [V]
    EyeReport eye;            ///< with the valid part; without levels when coding or samples per UI are not known
    double seconds = 0.0;     ///< [s] that the filter took
    std::string findings;     ///< what the filter has found: a JSON object as text; empty: nothing
    /// For a stage that has taps, when pulse responses were asked for.
    std::optional<TapFigure> taps;
};

struct ChainResult {
    std::vector<double> samples;      ///< [V] behind the last stage
    ValidPart valid;                  ///< of them
    std::vector<StageReport> stages;  ///< the first is the capture as read
};

/// Runs every stage and describes the waveform behind each.
/// @param record  [V] at least one sample, as many as the chain was made for
/// @param eyes    what the eyes are measured with; with the bathtub it is measured in front of and behind the chain,
///                with pulse responses these are in front of and behind each stage that has taps
/// @param name    the capture's, for messages
/// @param begin   called with the name of each stage before it runs, "capture" first; may be empty
/// @param end     called with what each stage has made; may be empty
/// @throws UsageFailure  @throws DataFailure  as PassStage
TARNWICK_WORKBENCH_API ChainResult
RunChain(Chain& chain, std::span<const double> record, const EyeSettings& eyes, const std::string& name,
         const std::function<void(const std::string& stage)>& begin = {},
         const std::function<void(const StageReport& report, std::span<const double> samples)>& end = {});

/// The same; the record is taken, so that it is not held beside what becomes of it.
TARNWICK_WORKBENCH_API ChainResult
RunChain(Chain& chain, std::vector<double>&& record, const EyeSettings& eyes, const std::string& name,
         const std::function<void(const std::string& stage)>& begin = {},
         const std::function<void(const StageReport& report, std::span<const double> samples)>& end = {});

/// The same of whole periods of the pattern that the chain's device describes.
TARNWICK_WORKBENCH_API ChainResult RunChain(Chain& chain, std::span<const double> record, const std::string& name,
                                            const std::function<void(const std::string& stage)>& begin = {});

/// Runs every stage and describes the waveform behind the last alone, as RunChain does.
/// @param record  [V] as for RunChain; taken, so that it is not held beside what becomes of it
TARNWICK_WORKBENCH_API ChainResult RunToEnd(Chain& chain, std::vector<double> record, const EyeSettings& eyes,
                                            const std::string& name);

/// What the stage's filter has found, a line a finding with the stage's name, numbers in five digits: more than the measurement
/// is good for. Applied taps that are those found are left out.
TARNWICK_WORKBENCH_API std::string FindingsAsText(const StageReport& report);

/// {"acquisition": as LockAsJson, left out where there was none, "stages": [{"name", "samples", "repetitions", "mean", "rms",
/// "peakToPeak", "levels", "eyes", "phaseUi", "seconds", "ber", "noiseRms", "symbolsKnown", "valid", ...}]} as JSON text,
/// indented by two; an eye is {"height", "openingPercent", "widthUi", "widthPs", "threshold", "heightAtBer", "q"}. What a
/// filter has found follows under its own keys. Not a number and infinity are null.
TARNWICK_WORKBENCH_API std::string ReportAsJson(std::span<const StageReport> stages,
                                                const std::optional<LockReport>& acquisition = std::nullopt);

}  // namespace Tarnwick::DSO::Workbench
