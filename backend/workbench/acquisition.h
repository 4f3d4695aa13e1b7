// What a capture alone reveals: its symbol clock, the length of its pattern, its levels and so its line coding.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

struct SampleStatistics {
    double low = 0.0;   ///< [V]
    double high = 0.0;  ///< [V]
    double mean = 0.0;  ///< [V]
    double rms = 0.0;   ///< [V] about 0 V
};

/// @param samples  at least one
TARNWICK_WORKBENCH_API SampleStatistics StatisticsOf(std::span<const double> samples);

/// How a capture is sampled and coded.
struct SignalDescription {
    double samplesPerUi = 0.0;  ///< 0: not known
    E_SIGNAL_CODING coding = SIGNAL_CODING_UNKNOWN;
    int patternLengthUi = 0;     ///< [UI] 0: not known
    double symbolRateGBd = 0.0;  ///< 0: not known
};

enum class Confidence { Likely, Certain };

/// "likely" or "certain".
TARNWICK_WORKBENCH_API const char* NameOf(Confidence confidence);

struct Estimate {
    double value;
    Confidence confidence;
};

/// Samples per UI, from the line that the symbol clock leaves in the spectrum of the squared slope; nothing when no line
/// stands out. The capture needs at least 2 and at most 1024 samples per UI, and some hundred symbols.
TARNWICK_WORKBENCH_API std::optional<Estimate> FindSamplesPerUi(std::span<const double> samples);

/// Samples in one repetition of the pattern, from the autocorrelation; nothing when the record does not repeat, as when
/// it holds no more than one repetition.
/// @param samplesPerUi  lags up to 1.5 UI are left out, because neighbouring samples are alike; 0 when unknown
TARNWICK_WORKBENCH_API std::optional<Estimate> FindPeriod(std::span<const double> samples, double samplesPerUi);

/// UI in one repetition of the pattern; of a record that does not repeat, UI in the record. 0 when that is no whole number.
TARNWICK_WORKBENCH_API int FindPatternLengthUi(std::span<const double> samples, double samplesPerUi);

/// The two to four levels [V], lowest first, whose eyes are widest open; empty when all eyes are closed.
TARNWICK_WORKBENCH_API std::vector<double> FindLevels(std::span<const double> samples, double samplesPerUi);

/// The line coding with as many levels; nothing when all eyes are closed. PAM4 with precoding looks like PAM4.
TARNWICK_WORKBENCH_API std::optional<E_SIGNAL_CODING> FindCoding(std::span<const double> samples, double samplesPerUi);

/// What a capture shows before anything is known of it.
struct CaptureContent {
    std::size_t sampleCount = 0;
    double interval = 0.0;  ///< [s] 0: not in the file
    SampleStatistics statistics;
    std::optional<Estimate> samplesPerUi;
    double symbolRateGBd = 0.0;  ///< 0: not found
    std::optional<Estimate> period;
    std::vector<double> levels;  ///< [V]
};
TARNWICK_WORKBENCH_API CaptureContent FindContent(const Waveform& capture);

}  // namespace Tarnwick::DSO::Workbench
