// Feed-forward equaliser: a finite impulse response whose taps stand D = samplesPerUi / tapsPerUi samples apart,
//     y[k] = sum_j w_j x[k - j D]
// The taps are given by hand, found from the captured pattern by least squares against its ideal copy, or those of the
// TDECQ reference equaliser of IEEE 802.3 clause 121.8.5 (symbol-spaced, DC gain 1, least TDECQ). Least squares go by the
// whole waveform, transitions included, or with fitAtSamplingPhase by one sample a UI, where a receiver takes it,
//     minimise sum_i (sum_j w_j x[q + i s - j D] + sum_k b_k a_(i-k) + c - a_i)^2
// over the UI i, the phase and the delay in q, and the feedback b of the dfeTaps taps that a DFE behind has (J. G. Proakis,
// M. Salehi, "Digital Communications", 5th ed., sections 9.4-4 and 9.5). a_i are the levels sent, c a constant.
// With fractional sampling D comes from the whole samples per UI; the TDECQ equaliser and the fit at the
// sampling phase take whole ones only.
// Automatic taps need the pattern's symbols: the text for NRZ and PAM3, the text or detection for PAM4. The capture must
// hold whole periods of the pattern. Error below 1e-12 of taps against the matrices of samples. Where the capture cannot tell
// the taps apart (a constant record, more taps than the pattern has places for, equal delays) the call is refused. NaN and
// infinity among the samples are refused when taps are to be found from them; taps given by hand let them through. Taps that
// are all zero cannot be quantised, as they have no weight to be counted in steps.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "framework/arrayowner.h"
#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"
#include "framework/signalcoding.h"

namespace Tarnwick::DSO::Filters {

struct FittedTaps;
struct LeastSquaresSearch;
struct TdecqSearch;

class TARNWICK_FILTERS_API FFEFilterParameters : public SystemFramework::BaseFilterParameters {
public:
    FFEFilterParameters();
    /// mainCursorPosition becomes tapsPerUi as well. Deliberate.
    FFEFilterParameters(int samplesPerUi, std::vector<double> taps, int numberOfTaps, int tapsPerUi,
                        E_SIGNAL_CODING signalCoding, bool useManualTaps, bool withoutGrayCoding,
                        bool useTdecqEqualizer);
    /// Takes withoutGrayCoding from the configuration; everything else as by default.
    FFEFilterParameters(DeviceConfiguration* config);

    std::int32_t samplesPerUi = 0;  ///< written by the filter from the configuration
    /// The taps: read when useManualTaps is set; written by Prepare: the taps in use, or with quantizeTaps their steps.
    std::vector<double> taps;
    std::vector<double> appliedTaps;  ///< written by Prepare: the exact taps in use
    std::int32_t numberOfTaps = 0;
    std::int32_t tapsPerUi = 0;           ///< 1 to samplesPerUi; with useTdecqEqualizer any other stands for 1
    std::int32_t mainCursorPosition = 0;  ///< 1-based place of the main cursor among the taps; below 1: searched
    bool spareFlag = false;               ///< carried
    E_SIGNAL_CODING signalCoding = SIGNAL_CODING_UNKNOWN;  ///< written by the filter from the configuration
    bool useManualTaps = false;
    bool withoutGrayCoding = false;  ///< PAM4 symbols are level indices; written by the filter from the configuration
    bool quantizeTaps = false;       ///< report taps as steps: round(tap / sum|taps| x tapResolution)
    /// Steps per unit of normalised tap weight; 0 reports zeros, a negative number the steps with their signs turned.
    std::int32_t tapResolution = 1;
    bool useTdecqEqualizer = false;  ///< the TDECQ reference equaliser instead of the least-squares taps
    /// Least squares at the instants where a receiver samples, not over the whole waveform. Not with useTdecqEqualizer.
    bool fitAtSamplingPhase = false;
    /// Taps of the DFE behind, 0 or more: the fit leaves it what these take off. Above 0 only with fitAtSamplingPhase.
    std::int32_t dfeTaps = 0;
    /// Added to the diagonal of the normal equations, whose columns are scaled to one length; finite, 0 or more: for ill-posed
    /// fits. Above 0 only with fitAtSamplingPhase.
    double ridge = 0.0;
    /// [UI] at both ends of the record from which no fit takes a sample or a symbol, for a record that earlier filters took
    /// for periodic though it is not; 0: the record wraps round. The reach of the fit's own taps is left out as well. Not
    /// read with manual taps.
    std::int32_t ignoredUi = 0;
    std::string patternSymbols;   ///< one character per symbol; written by the filter from the configuration
    bool useUserPattern = false;  ///< patternSymbols is taken as given; written by the filter from the configuration
    double* gaussianFilter = nullptr;       ///< low-pass made by Prepare; owned only when made there
    std::int32_t gaussianFilterLength = 0;  ///< values in gaussianFilter
    bool prepared = false;                  ///< set by every Prepare

    /// Puts new low-pass taps in place of those that this object owns.
    /// @param lowPass  made by ::operator new; shared by copies of this object, released with the last or when replaced
    void SetGaussianFilter(double* lowPass, std::int32_t length);

private:
    friend class FFEFilter;
    // Steps reported by an earlier Prepare are not taps; the taps are still in appliedTaps.
    const std::vector<double>& ManualTaps() const;

    std::vector<double> reportedTaps_;  // the steps that quantizeTaps wrote into `taps`
    SystemFramework::ArrayOwner gaussianOwner_;
};

class TARNWICK_FILTERS_API FFEFilter : public SystemFramework::BaseFilter {
public:
    /// Checks pattern lock and refreshes the parameters from the configuration; finds no taps yet.
    /// @param parameters  not owned, must outlive the filter
    /// @throws PatternLockFailed      the configuration reports no lock on parameters->channel
    /// @throws std::invalid_argument  parameters is null or its channel is outside 0 to 3
    FFEFilter(FFEFilterParameters* parameters);
    /// A filter without parameters; the configuration is not read. Deliberate.
    FFEFilter(DeviceConfiguration* config);
    FFEFilter(const FFEFilter&) = default;
    FFEFilter& operator=(const FFEFilter&) = default;
    ~FFEFilter() override;

    /// Refreshes the parameters while they are dirty, finds or takes the taps and lays them out as the kernel. Resets
    /// the dirty state. When it throws, kernel and parameters stay as they were (memory that ends at the last step leaves
    /// the TDECQ equaliser published).
    /// @throws std::invalid_argument  signal is null; no configuration; a record shorter than one repetition or, for
    ///         automatic taps, not of whole repetitions; sizes, taps or a pattern that give no equaliser
    void Prepare(SystemFramework::SignalData* signal) override;

    /// Each repetition of the pattern is equalised as one period of a periodic signal. Dirty parameters are prepared
    /// first.
    /// @return new array of sampleCount values, zero past the last whole segment; the caller releases it with
    ///         ::operator delete
    /// @throws std::invalid_argument  as Prepare, or no kernel
    double* Apply(SystemFramework::SignalData* signal) override;

    /// The kernel for ordinary taps: (samplesPerUi / tapsPerUi) numberOfTaps values. Writes taps and appliedTaps; steps are
    /// reported for numberOfTaps taps, missing ones as zeros.
    /// @param signal  whole repetitions of the pattern; not read with manual taps
    /// @return new array; the caller releases it with ::operator delete
    double* GetFFEAutomaticCoefficients(FFEFilterParameters* parameters, SystemFramework::SignalData* signal);

    /// The taps over the sum of their magnitudes; with quantizeTaps times tapResolution and rounded, halves away from
    /// zero.
    /// @return new array of taps.size() values, null when there are none; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  the sum is zero or not finite
    double* GetOptimizedTaps(FFEFilterParameters* parameters);

    /// Least-squares taps: the capture against its ideal copy, low-passed at gaussianBandwidth [GHz] (0: 40 GHz or the
    /// symbol rate, whichever is larger), aligned by circular correlation, at the delay that leaves the least error, or
    /// with the main cursor where the filter's parameters fix it. Their ignoredUi counts too.
    /// @param signal             whole repetitions of the pattern
    /// @param narrowDelaySearch  7 delays instead of four per tap
    /// @return new array of numberOfTaps taps, not normalised; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  as Prepare
    double* GenerateFFEAutomaticCoefficients(SystemFramework::SignalData* signal, double baudRateGBd,
                                             int patternLengthUi, int samplesPerUi, int numberOfTaps, int tapsPerUi,
                                             E_SIGNAL_CODING signalCoding, bool withoutGrayCoding,
                                             bool narrowDelaySearch, double gaussianBandwidth);

    /// The kernel of the TDECQ reference equaliser: its taps samplesPerUi apart whatever tapsPerUi says, divided by
    /// their sum, continued with zeros to signal->sampleCount values. Writes taps and appliedTaps, and publishes the
    /// first numberOfTaps samplesPerUi values in the configuration.
    /// @return new array of sampleCount values; the caller releases it with ::operator delete
    double* GenerateTdecqEqualizer(FFEFilterParameters* parameters, SystemFramework::SignalData* signal);

    /// Taps of least TDECQ for a capture behind the given low-pass, samplesPerUi apart. A signalCoding without a name
    /// counts as PAM4.
    /// @param mainCursorIndex  0-based place of the largest tap; -1: the first three are tried
    /// @return new array of numberOfTaps taps with sum 1; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  as Prepare; fractional sampling other than samplesPerUi
    double* GenerateTDECQAutomaticCoefficients(double* samples, int sampleCount, double* gaussianFilter,
                                               int gaussianFilterLength, std::string patternSymbols,
                                               int patternLengthUi, int samplesPerUi, int numberOfTaps,
                                               bool useUserPattern, bool withoutGrayCoding,
                                               E_SIGNAL_CODING signalCoding, int mainCursorIndex);

    /// What the last automatic least-squares search left: rms of the error over that of the reference, at the sampling phase
    /// over that of the levels about their mean. NaN before one and with manual or TDECQ taps.
    double residualError = std::numeric_limits<double>::quiet_NaN();
    /// What the last fit at the sampling phase found beside the taps; NaN and empty before one and with all other taps.
    double conditionNumber = std::numeric_limits<double>::quiet_NaN();  ///< largest over smallest pivot of its matrix
    /// [UI] 0 to below 1: its instants in the filtered waveform, from the start of the record.
    double samplingPhaseUi = std::numeric_limits<double>::quiet_NaN();
    /// [V] added at the instants to come nearest to the levels, about 0 V; no tap, and the filter does not add it.
    double fitConstant = std::numeric_limits<double>::quiet_NaN();
    /// What it leaves of the symbols 1, 2, .. dfeTaps UI before, over the main cursor: as DFEFilterParameters::taps.
    std::vector<double> feedbackTaps;

private:
    std::vector<double> ReportFit(FittedTaps fit);
    static void ApplyTaps(FFEFilterParameters& settings, std::vector<double> taps);
    // The public members of the same names, on settings that are not the filter's own yet and on what is checked.
    std::vector<double> GetFFEAutomaticCoefficients(FFEFilterParameters& settings,
                                                    SystemFramework::BaseFilterParameters* owner,
                                                    const SystemFramework::SignalData* signal);
    std::vector<double> GenerateFFEAutomaticCoefficients(const LeastSquaresSearch& search);
    std::vector<double> GenerateTdecqEqualizer(FFEFilterParameters& settings,
                                               SystemFramework::BaseFilterParameters* owner,
                                               const SystemFramework::SignalData* signal);
    static std::vector<double> GenerateTDECQAutomaticCoefficients(const TdecqSearch& search);
};

}  // namespace Tarnwick::DSO::Filters
