// The eyes of a waveform, the error ratio of a slicer in them, and what noise leaves of them. A waveform is read between its
// samples as the band-limited one that they stand for, at 64 phases a UI. Symbols say on which side of an eye a sample
// belongs: known ones where the pattern is known and found in the waveform, decided ones otherwise.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "workbench/validpart.h"

namespace Tarnwick::DSO::Workbench {

inline constexpr double kFewestSamplesPerUi = 2.0;  ///< fewer do not hold the waveform between the symbols

/// What is known of a waveform whose eyes are measured.
struct EyeSettings {
    double samplesPerUi = 0.0;      ///< real, at least 1
    int levelCount = 2;             ///< 2 to 4
    double symbolRateGBd = 0.0;     ///< 0: not known, and no width in ps
    std::vector<int> pattern = {};  ///< level of each UI of one period, any rotation; empty: the symbols are decided
    std::size_t periodUi = 0;       ///< [UI] after which the record is known to repeat; 0: it is not
    std::optional<ValidPart> valid = {};  ///< none: all of the record
    bool circular = true;                 ///< the record is whole periods, all of it valid; false: its ends are ends
    double targetBer = 1e-6;              ///< bit error ratio at which heights and contours are measured
    bool withBathtub = false;             ///< measure the error ratio at every phase too
    bool holdsWaveform = true;        ///< false: it was taken at fewer than two samples per UI, which tell no widths
    bool bathtubOfEachStage = false;  ///< of a chain: behind every stage, not only behind the last
    bool withPulses = false;  ///< of a chain: fit the pulse responses in front of and behind each stage that has taps
};

/// Whether the waveform is known between the symbols: its width, its bathtub and TDECQ ask for it.
TARNWICK_WORKBENCH_API bool HoldsWaveform(const EyeSettings& settings);

struct EyeOpening {
    double height = 0.0;  ///< [V] smallest sample above it minus the largest below; negative: it is closed
    std::optional<double> widthUi = 0.0;  ///< [UI] phases around the measuring one at which no sample crosses the
                                          ///< threshold; none: too few samples per UI to tell
    double leftUi = 0.0;                  ///< [UI] where they begin, from the measuring one; 0 of a closed eye
    double rightUi = 0.0;                 ///< [UI] where they end
    double openingPercent = 0.0;          ///< height over the distance of its two levels
    std::optional<double> widthPs = {};
    double threshold = 0.0;                  ///< [V] fixed: the middle of the opening at the measuring phase
    std::optional<double> heightAtBer = {};  ///< [V] at the target error ratio; none: too few symbols to tell noise
    double q = 0.0;  ///< distance of its levels over the sum of their rms; infinite without spread beyond rounding
};

/// The eyes at one phase, in the order of the report.
struct BathtubPoint {
    double offsetUi;  ///< [UI] from the measuring phase
    double ber;       ///< bit error ratio at the fixed thresholds
    struct Opening {
        double low;   ///< [V]
        double high;  ///< [V] below low: closed
    };
    std::vector<Opening> openings;  ///< what lies between the thresholds of the target error ratio
};

struct EyeReport {
    std::vector<double> levels;         ///< [V] means of the levels' samples at the measuring phase, lowest first
    std::vector<EyeOpening> eyes;       ///< one fewer, lowest first
    double phaseUi = 0.0;               ///< [UI] 0 to below 1: where the smallest opening over the eyes is largest
    ValidPart valid;                    ///< [samples] what was measured
    bool symbolsKnown = false;          ///< false: they were decided, and a closed eye looks more open than it is
    std::optional<double> ber;          ///< bit error ratio of a slicer at the thresholds; none: too few symbols
    std::optional<double> noiseRms;     ///< [V] at the measuring phase: what the symbols do not explain
    double targetBer = 0.0;             ///< as set
    double symbolRateGBd = 0.0;         ///< as set
    std::vector<BathtubPoint> bathtub;  ///< when asked for: 65 phases, the UI about the middle between the eyes' walls
};

/// Distance of the outermost levels [V], the outer modulation amplitude; 0 without levels.
TARNWICK_WORKBENCH_API double OuterModulationAmplitude(const EyeReport& report);

/// Highest over lowest level [dB], 10 log10, where 0 V is dark; nothing when the lowest is not above 0 V. Source: IEEE 802.3
/// clause 52.9.4.
TARNWICK_WORKBENCH_API std::optional<double> ExtinctionRatioDb(const EyeReport& report);

/// @param samples  [V]
/// @return a report without levels and eyes when a sample of the valid part is not finite, or at no phase the samples fall
///         into that many levels
TARNWICK_WORKBENCH_API EyeReport MeasureEyes(std::span<const double> samples, const EyeSettings& settings);

/// The same of whole periods of unknown symbols.
TARNWICK_WORKBENCH_API EyeReport MeasureEyes(std::span<const double> samples, double samplesPerUi, int levelCount);

/// Reads a waveform as MeasureEyes does, between its samples: values[k] at first + k step [samples].
/// @param samples  finite
/// @param first    24 or more, and so far from the end does the last position stay
TARNWICK_WORKBENCH_API void ReadBetween(std::span<const double> samples, double first, double step,
                                        std::span<double> values);

/// Where a picture of a waveform reads it between its samples, so that lines from value to value are not seen as such.
struct ReadingGrid {
    static constexpr std::size_t kValuesPerUi = 32;
    double first;  ///< [samples] where a UI begins
    double step;   ///< [samples]
    std::size_t count;
};

/// Nothing: the samples are as many already, hold no waveform between the symbols, or are too few to be read between.
/// @param samplesPerUi  of samples from the start of a UI on
TARNWICK_WORKBENCH_API std::optional<ReadingGrid> GridBetween(std::size_t sampleCount, double samplesPerUi);

}  // namespace Tarnwick::DSO::Workbench
