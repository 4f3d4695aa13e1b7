// Decision-feedback equaliser: subtracts from each symbol what the symbols before it leave in it, as the taps say,
//     y_i = s_i - sum_j taps[j-1] (V(d_(i-j)) - mid)
// s_i the sample at the decision, d the level decided, V the levels' voltages, mid the middle of the outermost two. NRZ,
// PAM3 and PAM4, precoded PAM4 as it is on the line. The whole waveform is corrected: the feedback of a symbol is held
// from half a UI before its decision to half a UI after. Noise is not amplified; a wrong decision feeds on until as many
// right ones have followed as there are taps. Interference from symbols to come is left to other equalisers.
// Error of the taps below 0.01 of the main cursor on lines of known echoes, without noise. The instant is the middle of the
// eye that the known symbols' feedback opens, of a capture of either polarity.
// Source: J. G. Proakis, M. Salehi, "Digital Communications", 5th ed., section 9.5. The taps are relative to the main
// cursor, as in IEEE 802.3 Annex 93A.
#pragma once

#include <cstdint>
#include <vector>

#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"

namespace Tarnwick::DSO::Filters {

class TARNWICK_FILTERS_API DFEFilterParameters : public SystemFramework::BaseFilterParameters {
public:
    DFEFilterParameters() = default;
    DFEFilterParameters(int samplesPerUi, double samplingDelayPs, std::vector<double> taps, int numberOfTaps,
                        bool withoutGrayCoding, bool useManualTaps);
    /// Defaults, with a configuration, which the filter needs.
    DFEFilterParameters(DeviceConfiguration* config);

    std::int32_t samplesPerUi = 0;  ///< whole ones; written by the filter from the configuration
    /// [ps] from the start of a repetition to its first decision; counts modulo a UI, in whole samples: without the
    /// fraction of samplingDelayPs 0.001 baudRateGBd samplesPerUi. Read with manual taps, else written by Prepare.
    double samplingDelayPs = 0.0;
    /// Responses 1, 2, .. UI after the main cursor over the main cursor. Read with manual taps, else written by Prepare.
    std::vector<double> taps;
    std::int32_t numberOfTaps = 0;   ///< 0: the record passes unchanged
    bool withoutGrayCoding = false;  ///< PAM4 symbols are level indices; written by the filter from the configuration
    bool useManualTaps = false;
    /// [UI] at both ends of the first repetition, of which the search for taps takes no sample, as of a record that earlier
    /// filters took for periodic though it is not; 0: it wraps round. Not read with manual taps.
    std::int32_t ignoredUi = 0;
};

class TARNWICK_FILTERS_API DFEFilter : public SystemFramework::BaseFilter {
public:
    /// Checks pattern lock and refreshes the parameters from the configuration; finds no taps yet.
    /// @param parameters  not owned, must outlive the filter
    /// @throws PatternLockFailed      the configuration reports no lock on parameters->channel
    /// @throws std::invalid_argument  parameters is null, its channel is outside 0 to 3, or uiDuration / sampleSpacing
    ///                                gives no number of samples
    DFEFilter(DFEFilterParameters* parameters);
    DFEFilter(const DFEFilter&) = default;
    DFEFilter& operator=(const DFEFilter&) = default;
    ~DFEFilter() override;

    /// Refreshes the parameters while they are dirty. Manual taps: resizes them to numberOfTaps, with zeros. Else finds
    /// sampling delay and taps from the first repetition and the pattern's symbols (patternSymbols; for PAM4 without
    /// useUserPattern those detected in the capture) by least squares, at the delay in the middle of the open eye. Without
    /// taps there is nothing to find. Resets the dirty state. When it throws, the parameters stay as they were.
    /// @throws std::invalid_argument  signal is null; no configuration; a record shorter than one repetition; a tap,
    ///         delay or size that is not usable; a coding without a name; symbols that do not fit the pattern, cannot
    ///         tell the taps apart or are not what the record holds; at every delay a tap above the main cursor
    void Prepare(SystemFramework::SignalData* signal) override;

    /// Prepares dirty parameters, then ApplyDfe with them.
    double* Apply(SystemFramework::SignalData* signal) override;

    /// Equalises each repetition of the pattern by itself, as one period of a periodic signal; zero past the last whole
    /// repetition. Without taps the record is copied whole. With fractional sampling the decisions lie between samples and
    /// are made on the straight line through the neighbours.
    /// @param parameters  prepared; not changed
    /// @return new array of sampleCount values; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  a bad record, one shorter than a repetition, or as Prepare
    double* ApplyDfe(DFEFilterParameters* parameters, SystemFramework::SignalData* signal);
};

}  // namespace Tarnwick::DSO::Filters
