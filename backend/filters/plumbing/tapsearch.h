// The searches for the FFE's taps, checked: what they are asked for, and how they refuse.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "filters/plumbing/taps.h"
#include "framework/deviceconfiguration.h"
#include "framework/signalcoding.h"
#include "maths/equalisers/ffesearch.h"
#include "maths/equalisers/phasefit.h"

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

/// Taps of least squares against the ideal copy of the pattern. PAM4 symbols are detected unless the user gives them.
struct LeastSquaresSearch : TapSearch {
    double baudRateGBd;
    int mainCursorPosition;  // counted from 1; below 1: the delay is searched
    bool narrowDelaySearch;
    double gaussianBandwidth;  // [GHz] 0: 40 GHz or the symbol rate, whichever is larger
};

/// @throws std::invalid_argument  as FFEFilter::Prepare
Maths::TapSolution FindTaps(const char* filter, const LeastSquaresSearch& search);

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

/// The taps keep the polarity of the capture; the feedback is what a DFE takes off.
/// @throws std::invalid_argument  as FFEFilter::Prepare
Maths::PhaseFit FindTaps(const char* filter, const PhaseSearch& search);

/// Taps of the TDECQ reference equaliser, a UI apart. Symbols are detected unless the user gives them.
struct TdecqSearch : TapSearch {
    std::span<const double> lowPass;
    int mainCursorIndex;  // counted from 0; below 0: the first three are tried
};

/// @throws std::invalid_argument  as FFEFilter::Prepare
std::vector<double> FindTaps(const char* filter, const TdecqSearch& search);

/// What the TDECQ equaliser asks for.
/// @param manualTaps  null unless the taps are given by hand
/// @param length      samples of the record
/// @throws std::invalid_argument  as RequireWholeSampling, or no taps, more than the record has room for, or such as have no
///         gain
void RequireTdecqTaps(const char* filter, const DeviceConfiguration& config, int samplesPerUi, int numberOfTaps,
                      const std::vector<double>* manualTaps, int length);

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
