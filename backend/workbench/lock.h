// Acquisition: from whatever an instrument saved to a record that filters can take. It finds the symbol clock, the line
// coding, the symbols and the pattern, resamples what is not sampled at a whole number of samples per UI, and says whether the
// record is whole periods of a pattern or a single shot with two ends. What is known beforehand is used, and checked
// against the capture.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

enum class RecordKind {
    Auto,        ///< of facts: to be found
    Periodic,    ///< whole periods of a pattern
    SingleShot,  ///< anything else: its ends do not join
};

enum class ClockKind {
    Constant,
    Tracked,  ///< the record is resampled along a clock that follows slow changes of phase
};

/// What is known of a capture beforehand. Zeros and empty fields: not known, to be found.
struct CaptureFacts {
    double symbolRateGBd = 0.0;
    double samplesPerUi = 0.0;  ///< real; goes before the symbol rate
    E_SIGNAL_CODING coding = SIGNAL_CODING_UNKNOWN;
    int patternLengthUi = 0;
    std::vector<int> pattern = {};  ///< level of each UI of one period, 0 the lowest
    RecordKind record = RecordKind::Auto;
    ClockKind clock = ClockKind::Constant;
    double loopBandwidthMHz = 0.0;  ///< of the tracked clock; 0: symbol rate / 1667
    int samplesPerUiOut = 0;        ///< 0: its own of a record that is sampled at a whole number already, otherwise 16
    bool average = false;           ///< of whole periods: their mean in place of them
};

/// The spectrum of the squared slope between the limits of the search, in which the clock is a line.
struct ClockSpectrum {
    double first = 0.0;           ///< [cycles a sample] of the capture
    double spacing = 0.0;         ///< [cycles a sample]
    double line = 0.0;            ///< [cycles a sample] the clock's
    double leastDb = 0.0;         ///< [dB] a weaker line is not taken for the clock
    std::vector<double> scoreDb;  ///< [dB] about the median of the neighbourhood; empty: too short to look for a clock
};

/// What was found, and how. Every figure is of the capture as it was read unless it says otherwise.
struct LockReport {
    double symbolRateGBd = 0.0;  ///< 0: neither given nor to be had from the file's times
    double samplesPerUi = 0.0;
    bool samplesPerUiGiven = false;
    double clockScore = 0.0;  ///< the clock's line over the median of its neighbourhood; 0: too short to look for it
    double phaseResidualUi = 0.0;    ///< [UI] rms of the clock's phase about a constant one
    double trackedUi = 0.0;          ///< [UI] rms that the tracked clock took off
    double trackedResidualUi = 0.0;  ///< [UI] rms of the phase that it left
    bool resampled = false;
    int samplesPerUiOut = 0;
    E_SIGNAL_CODING coding = SIGNAL_CODING_UNKNOWN;  ///< unknown: no levels can be made out
    bool codingGiven = false;
    std::vector<double>
        levels;  ///< [V] means of the samples at the phase where they lie farthest apart; empty: no symbols
    double symbolQuality = 0.0;  ///< mean squared distance to the level over the squared spacing; 0: no symbols
    std::string pattern;         ///< "PRBS15 inverted"; empty: not recognised
    int periodUi = 0;            ///< [UI] 0: no period is proven
    bool periodGiven = false;
    double seamRatio = 0.0;  ///< rms at the seam of a given period over that of the interior; 0: not tried
    RecordKind mode = RecordKind::SingleShot;
    int repetitions = 1;
    std::size_t firstSample = 0;         ///< of the capture, at which the record begins
    std::size_t samples = 0;             ///< of the record
    std::size_t leftOut = 0;             ///< [samples] of the record after its last whole UI or period
    double removedNoiseRms = 0.0;        ///< [V] that averaging took off
    std::vector<std::string> warnings;   ///< facts that contradict the capture, and what spoils its figures
    double phaseFirst = 0.0;             ///< [samples] of the capture, of the first of phaseUi
    double phaseSpacing = 0.0;           ///< [samples]
    std::vector<double> phaseUi;         ///< [UI] of the clock over the record, about a constant one
    std::vector<double> trackedPhaseUi;  ///< [UI] what the tracked clock follows of it; empty: the clock is constant
    ClockSpectrum spectrum;
};

/// A record of a whole number of samples per UI.
struct LockedCapture {
    std::vector<double> samples;  ///< [V] whole UI, whole periods where they are proven
    double interval = 0.0;        ///< [s] 0: not known
    double start = 0.0;           ///< [s] of the first sample
    std::vector<int> symbols;     ///< level of each UI of the first period, or of a single shot; empty: not found
    LockReport report;
};

/// @param capture  at least one sample
/// @param name     the capture's, for messages
/// @throws DataFailure  samples that are not finite, a constant record, no clock where none is given, less than
///                      a UI, or times with a gap
TARNWICK_WORKBENCH_API LockedCapture Lock(const Waveform& capture, const CaptureFacts& facts, const std::string& name);

/// The same; the samples are taken when the clock is known and they need not be resampled, and left where no clock is found.
TARNWICK_WORKBENCH_API LockedCapture Lock(Waveform&& capture, const CaptureFacts& facts, const std::string& name);

/// @throws DataFailure  no levels were made out: there are no eyes to measure
TARNWICK_WORKBENCH_API void RequireLevels(const LockReport& report, const std::string& name);

/// A line a figure.
TARNWICK_WORKBENCH_API std::string LockAsText(const LockReport& report);

/// {"symbolRateGBd", "samplesPerUi", "clockScore", "phaseResidualUi", "resampled", "samplesPerUiOut", "coding", "pattern",
/// "levels", "periodUi", "mode", "repetitions", "firstSample", "samples", "warnings"}, indented by two; null where nothing was
/// found.
TARNWICK_WORKBENCH_API std::string LockAsJson(const LockReport& report);

/// A chain file for the record: its device, of a single shot with the whole record as its pattern, and no filters.
TARNWICK_WORKBENCH_API std::string ChainFileFor(const LockedCapture& capture);

}  // namespace Tarnwick::DSO::Workbench
