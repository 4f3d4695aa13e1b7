// The symbol clock of a capture, from the capture alone. Transitions happen at the boundaries of unit intervals, so the
// squared derivative of the waveform has a line at the symbol rate, whatever the symbols are:
//     s(t) = (dx/dt)^2,   S(f0) = sum_t s(t) exp(-2 pi i f0 t),   boundaries where f0 t + arg S(f0)/(2 pi) is whole
// The square doubles the band, so s is taken at two values a sample. Source: M. Oerder, H. Meyr, "Digital filter and
// square timing recovery", IEEE Trans. Communications 36 (1988) 605-612, with the derivative in place of the matched
// filter's output: it needs no excess bandwidth of its own, and no symbol rate to begin with.
//
// Positions are in samples of the capture from its first one, frequencies in cycles a sample, phases in UI. The samples
// are finite: what is not a number or beyond 1e150 is for the caller to refuse, and gives "no clock" here.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/captures/samplestatistics.h"

namespace Tarnwick::DSO::Maths {

/// Lines that stand out less are no clock: white noise and random walks reach 3.
inline constexpr double kLeastClockScore = 10.0;

/// Where the unit intervals lie: at position t there have been
///     u(t) = (t - boundary) / samplesPerUi + d(t)
/// of them, with d on straight lines between knots and level beyond the outer ones. A constant clock has no knots.
struct TARNWICK_FRAMEWORK_API SymbolClock {
    double samplesPerUi = 0.0;
    double boundary = 0.0;  // position at which a UI of the constant clock begins, 0 to below samplesPerUi
    double firstKnot = 0.0;
    double knotSpacing = 0.0;
    std::vector<double> deviationUi;  // d at the knots; u rises from each to the next

    /// u(t); whole where a UI begins.
    double UiAt(double position) const;
    /// The positions at which u = firstUi + i step / parts, i = 0, 1, ...
    /// @param step, parts  above 0: two whole numbers keep the instants of a long record exact
    void PositionsOf(double firstUi, double step, double parts, std::span<double> positions) const;
};

/// Phase of the clock in blocks of the record.
struct PhaseOverTime {
    double first = 0.0;    // position of the middle of the first block
    double spacing = 0.0;  // [samples]
    std::vector<double> ui;
};

/// The squared derivative's spectrum between the limits of the search, each bin over the median of its neighbourhood: up to
/// some 4000 points, each the largest of the bins that it stands for.
struct LineSpectrum {
    double first = 0.0;    // [cycles a sample] in the middle of the first point's bins
    double spacing = 0.0;  // [cycles a sample]
    std::vector<double> score;
    std::size_t line = 0;  // the point that holds the line
};

enum class ClockTracking {
    Constant,  ///< one rate for the whole record
    Tracked,   ///< the phase behind a second-order loop
};

struct ClockSearch {
    double fewestSamplesPerUi = 2.0;  // the line is looked for between these two; nearer ones where facts are known
    double mostSamplesPerUi = 200.0;
    ClockTracking tracking = ClockTracking::Constant;
    /// Frequency at which the tracked clock follows the capture's by half the power [cycles a sample]; none: symbol
    /// rate / 1667. At most symbol rate / 100.
    std::optional<double> loopBandwidth;
    bool keepSpectrum = false;  // for a picture
};

struct RecoveredClock {
    bool found = false;  // score of at least kLeastClockScore; otherwise only score and spectrum hold something
    double score = 0.0;  // the line over the median of the 401 bins about it (fewer in short records); at most 1000
    SymbolClock clock;
    double phaseResidualUi = 0.0;  // rms of the blocks' phases about the constant clock
    double trackedUi = 0.0;        // rms of what the tracked clock follows, about the constant one
    PhaseOverTime phase;           // about the constant clock, not tracked
    std::optional<LineSpectrum> spectrum;
};

/// The clock without a guess: of the lines of at least half the largest score the lowest, since short edges score alike at
/// every multiple of the symbol rate. Of lines within 3 % of it the strongest counts, or the centre of several that are
/// alike, as a clock that moves has them. The line is looked for in up to 262 144 samples (in the middle, else at the start,
/// else at the end; in fewer where a pattern repeats so often that its own lines stand apart) and refined over all of the
/// record by demodulation: slopes of the phases of 8, 16 and 32 Hann-windowed blocks, of at least 16 UI where there are more
/// than 8. Of records of 8 samples a UI
/// and more what lies below 1.5 times the symbol rate is demodulated as it is, and nothing above four times. Where the clock moves by more than 0.1 UI rms, phases of short steps take the blocks' place.
/// Where no line is found, clocks of 8, 16, 32 and 64 samples per UI and more are searched once more in a derivative that is
/// low-passed at a quarter of its own rate, 8 values for such a UI: noise far above a slow clock would hide it.
/// @param samples  of any number; fewer than 128 and constant ones have no clock, and no line of fewer than 16 UI in the
///                 part that is searched is looked at
/// @param statistics  of the samples, where they are known; null: they are found in one more pass
/// @throws std::invalid_argument  limits out of order or below 2 samples a UI; a loop bandwidth of 0 or less, or above a
///                                hundredth of the symbol rate found
/// Rate to 1e-3 UI over the record for a clean one, 0.02 UI for 127 UI behind 8 dB of loss. O(n log n) with blocks that fit
/// the cache; of long records an eighth of their memory, and some 16 MiB.
TARNWICK_FRAMEWORK_API RecoveredClock RecoverClock(std::span<const double> samples, const ClockSearch& search = {},
                                                   const SampleStatistics* statistics = nullptr);

/// The clock of a rate that is given: its phase, and how far the capture's moves against it (phaseResidualUi, about a
/// constant phase). Found where the record is long enough for RecoverClock; the score is 0, as nothing is searched.
/// @param samplesPerUi  at least 2
TARNWICK_FRAMEWORK_API RecoveredClock ClockOfRate(std::span<const double> samples, double samplesPerUi,
                                                  const ClockSearch& search = {});

/// A given rate and what the capture itself shows.
struct CheckedClock {
    RecoveredClock ofRate;  ///< as ClockOfRate; not found of a rate below 2 samples per UI
    RecoveredClock found;   ///< as RecoverClock with the first search that finds one, or with the last
};

/// ClockOfRate and RecoverClock in one pass over the record.
/// @param samplesPerUi  above 0
/// @param searches      at least one, tried in turn
/// @param statistics    as for RecoverClock
TARNWICK_FRAMEWORK_API CheckedClock CheckClock(std::span<const double> samples, double samplesPerUi,
                                               const ClockSearch& ofRate, std::span<const ClockSearch> searches,
                                               const SampleStatistics* statistics = nullptr);

/// The whole number of samples per UI, of at least 1, from which a clock departs by at most 0.02 UI over the record; by 0.05
/// UI in records of fewer than 500 UI, where the pattern itself moves the line.
TARNWICK_FRAMEWORK_API std::optional<std::size_t> WholeSamplesPerUi(double samplesPerUi, std::size_t sampleCount);

}  // namespace Tarnwick::DSO::Maths
