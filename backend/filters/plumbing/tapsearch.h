// The searches for the FFE's taps, checked: what they are asked for, and how they refuse.
#pragma once

#include <limits>
#include <span>
#include <string>
#include <vector>

#include "filters/plumbing/taps.h"
#include "framework/deviceconfiguration.h"
#include "framework/signalcoding.h"

namespace Tarnwick::DSO::Filters {

/// What all searches are asked for.
struct TapSearch {
    const DeviceConfiguration& config;
    std::span<const double> record;  // whole repetitions of the pattern
    int patternLengthUi;
    TapGrid grid;
    E_SIGNAL_CODING signalCoding;
    bool withoutGrayCoding;
    bool useUserPattern;
    const std::string& patternSymbols;
    int ignoredUi;  // at both ends of the record, that the search leaves out
};

/// What a search for least-squares taps has found; NaN and empty what it has no figure for.
struct FittedTaps {
    std::vector<double> taps;
    /// rms of the error over that of the reference, at the sampling phase over that of the levels about their mean
    double residualError = std::numeric_limits<double>::quiet_NaN();
    double conditionNumber = std::numeric_limits<double>::quiet_NaN();  // largest over smallest pivot
    double samplingPhaseUi = std::numeric_limits<double>::quiet_NaN();  // [UI] 0 to below 1
    double constant = std::numeric_limits<double>::quiet_NaN();         // [V] about 0 V
    std::vector<double> feedback;                                       // what a DFE takes off
};

/// Taps of least squares against the ideal copy of the pattern. PAM4 symbols are detected unless the user gives them.
struct LeastSquaresSearch : TapSearch {
    double baudRateGBd;
    int mainCursorPosition;  // counted from 1; below 1: the delay is searched
    bool narrowDelaySearch;
    double gaussianBandwidth;  // [GHz] 0: 40 GHz or the symbol rate, whichever is larger
};

/// @throws std::invalid_argument  as FFEFilter::Prepare
FittedTaps FindTaps(const char* filter, const LeastSquaresSearch& search);

/// The settings of the fit at the sampling phase.
struct PhaseSettings {
    bool fitAtSamplingPhase;
    int dfeTaps;
    double ridge;

    /// @throws std::invalid_argument  one is outside its range, is set without fitAtSamplingPhase, or useTdecqEqualizer is
    ///         set with it
    void Require(const char* filter, bool useTdecqEqualizer) const;
};

/// Taps fitted at one phase of the UI, with the feedback of a DFE behind them. Symbols as above.
struct PhaseSearch : TapSearch {
    int mainCursorPosition;  // counted from 1; below 1: the delay is searched
    PhaseSettings settings;
};

/// The taps keep the polarity of the capture.
/// @throws std::invalid_argument  as FFEFilter::Prepare
FittedTaps FindTaps(const char* filter, const PhaseSearch& search);

/// Taps of the TDECQ reference equaliser, a UI apart. Symbols are detected unless the user gives them.
struct TdecqSearch : TapSearch {
    std::span<const double> lowPass;
    int mainCursorIndex;  // counted from 0; below 0: the first three are tried
};

/// @throws std::invalid_argument  as FFEFilter::Prepare
std::vector<double> FindTaps(const char* filter, const TdecqSearch& search);

/// An equaliser as its settings ask for it, before any tap is found.
struct EqualiserSettings {
    TapGrid grid;
    const std::vector<double>* manualTaps;  // null: the taps are searched for
    bool quantizeTaps;
    int mainCursorPosition;  // counted from 1; below 1: the delay is searched
    PhaseSettings phase;
    bool useTdecqEqualizer;

    /// Where the taps lie in the kernel as Apply reads it. The TDECQ equaliser is symbol-spaced whatever tapsPerUi says; how
    /// much of its kernel is read follows from tapsPerUi all the same, unless that is not a spacing.
    TapGrid KernelGrid(int samplesPerUi) const;
    /// @param length  samples of the record
    /// @throws std::invalid_argument  as PhaseSettings and TapGrid; the symbol rate is not finite and positive, or taps by hand
    ///         not finite or, to be quantised, without weight; for the TDECQ equaliser as RequireWholeSampling, or no taps,
    ///         more than the record has room for, or such as have no gain
    void Require(const char* filter, const DeviceConfiguration& config, int length) const;
};

/// The taps of the TDECQ path's low-pass for `length` samples, of 80 GHz.
/// @param isSearched  for automatic taps the record has to consist of whole repetitions; taps by hand go with part of one
/// @throws std::invalid_argument  the record is less than half a repetition
std::vector<double> TdecqLowPass(const char* filter, const DeviceConfiguration& config, int samplesPerUi, int length,
                                 bool isSearched, std::size_t patternSymbols);

/// What fits to one sample a UI ask for.
/// @param fit  what asks, for the text
/// @throws std::invalid_argument  sampling is fractional, and uiDuration / sampleSpacing other than samplesPerUi
void RequireWholeSampling(const char* filter, const DeviceConfiguration& config, int samplesPerUi,
                          const std::string& fit = "the TDECQ equaliser");

}  // namespace Tarnwick::DSO::Filters
