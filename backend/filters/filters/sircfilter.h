// System impulse response correction (SiRC): gives the instrument channel's measured response the shape of a
// fourth-order Bessel-Thomson receiver whose cutoff is a part of the symbol rate. Error of channel times kernel below
// 0.1 dB up to 1.5 times the cutoff, from a clean measurement.
//     K(f) = R(f)/C(f) taper(f) BT4(f; cutoff) / BT4(f; channelBandwidth)
// C and R are the transforms of the measured impulse responses of the channel and of a reference receiver, smoothed
// alike, aligned by their peaks and of unit area. Index 0 of the kernel is zero delay. Gain at DC is not corrected, nor
// are reflections later than 5 ns. The correction ends at twice the channel bandwidth. Where half the sample rate lies below
// that it ends there and fades from 0.8 of it or from the channel bandwidth, whichever is lower: within 0.15 dB of the target
// up to both 0.4 of the sample rate and the channel bandwidth, at 2 samples per UI and more.
#pragma once

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"

namespace Tarnwick::DSO::Filters {

class TARNWICK_FILTERS_API SircFilterParameters : public SystemFramework::BaseFilterParameters {
public:
    SircFilterParameters() = default;
    /// @param first   uiSamples
    /// @param second  referenceCutoffPercent. The texts are taken and ignored. Deliberate.
    SircFilterParameters(std::string, std::string, std::string, std::string, double first, double second);
    /// With a configuration from which the filter takes the tables and uiSamples; referenceCutoffPercent stays 0 until
    /// the host writes it.
    SircFilterParameters(DeviceConfiguration* config);

    /// Measured impulse response of the channel, in any scale, sign and offset: an even number of values spans 10 ns; of
    /// an odd number the first is the sample interval [s]. Not owned; written by the filter from the configuration.
    std::vector<double>* channelResponse = nullptr;
    /// The same of the reference receiver; an empty one stands for a Bessel-Thomson response of the channel bandwidth.
    std::vector<double>* channelReference = nullptr;
    double uiSamples = 0.0;               ///< samples per UI, with their fraction; written by the filter
    double referenceCutoffPercent = 0.0;  ///< cutoff of the result [% of the symbol rate]
};

class TARNWICK_FILTERS_API SircFilter : public SystemFramework::BaseFilter {
public:
    /// A filter without parameters, which can neither prepare nor apply.
    SircFilter(DeviceConfiguration* config);
    /// Checks pattern lock, takes the channel's tables, bandwidth and uiSamples from the configuration, and prepares at
    /// once when the channel is fed through an O/E converter.
    /// @param parameters  not owned, must outlive the filter
    /// @throws PatternLockFailed      the configuration reports no lock on parameters->channel
    /// @throws std::invalid_argument  parameters is null, its channel is outside 0 to 3, or a table has no entry for it
    /// @throws std::exception         as Prepare, for an O/E channel
    SircFilter(SircFilterParameters* parameters);
    SircFilter(const SircFilter&) = default;
    SircFilter& operator=(const SircFilter&) = default;
    ~SircFilter() override;

    /// Rebuilds the kernel and resets the dirty state; the signal is not read. Dirty parameters get their tables and
    /// uiSamples from the configuration again. A failure leaves kernel, parameters and dirty state as they were:
    /// the kernel from before is not released, and filters again as soon as the host calls ResetDirty.
    /// @throws std::exception  what GenerateSircFilter_BasedOnDCA throws: std::bad_alloc itself, a new
    ///                         std::invalid_argument or, for anything else, a new exception with the same text
    void Prepare(SystemFramework::SignalData* signal) override;

    /// Each repetition of the pattern is corrected as one period of a periodic signal, with the first kernelLength taps
    /// of `kernel`. Dirty parameters are prepared first.
    /// @return new array of sampleCount values, zero past the last whole segment; the caller releases it with ::operator
    ///         delete. Null for a null signal or a record shorter than one pattern.
    /// @throws std::invalid_argument  a bad record, a pattern without samples, or no kernel (an empty table makes none)
    double* Apply(SystemFramework::SignalData* signal) override;

    /// GenerateSircFilter_BasedOnDCA of these parameters; `kernel` and the dirty state stay.
    /// @throws std::invalid_argument  parameters is null or no SircFilterParameters
    double* ApplyA(SystemFramework::BaseFilterParameters* parameters);

    /// The correction kernel over one pattern of trunc(patternLengthUi uiSamples) samples, with sum 1.
    /// Writes `kernelLength`, the number of taps of what it returns; `kernel` stays as it is.
    /// @return new array of kernelLength values; the caller releases it with ::operator delete. Null, and kernelLength 0,
    ///         when the channel's table is empty.
    /// @throws std::invalid_argument  no parameters, no channel table, no configuration; a rate, uiSamples, cutoff,
    ///                                bandwidth or generation constant that is not positive; a pattern without samples;
    ///                                more than 1e6 samples in the span of the generation grid
    /// @throws std::exception         "SRC not configured properly.": a table holds NaN or infinity, nothing but one
    ///                                value, or an interval that is not between 1e-15 s and 1e-9 s
    double* GenerateSircFilter_BasedOnDCA(SircFilterParameters* parameters);

    /// P(j 2 pi 0.33644 f / channelCutoff) / P(j 2 pi 0.33644 f / referenceCutoff), P the fourth-order Bessel polynomial:
    /// the fourth-order Bessel-Thomson response of referenceCutoff over that of channelCutoff.
    /// @param frequencies  count values [Hz], read only
    /// @return new array of count values; the caller releases it with ::operator delete. Empty when count is below 1.
    /// @throws std::invalid_argument  count is positive, and frequencies is null or a cutoff not finite and positive
    std::complex<double>* BesselThomson4th_corrected(double* frequencies, int count, double channelCutoff,
                                                     double referenceCutoff);

    /// The signal convolved circularly with the kernel; turned over when its most negative value is at least as large as
    /// its largest; its peak rotated to index tapCount/2 - 1; less its baseline, the mean of the values up to
    /// baselineEndIndex (none when that is negative); over its sum. All zeros come back as NaN.
    /// @param signal  signalLength values, read only
    /// @param kernel  tapCount values, read only
    /// @return new array of signalLength values with sum 1; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  an array that has values is null, a length is negative, or the signal is empty or
    ///                                ends before baselineEndIndex
    double* ProcessImpulseResponse(double* signal, int signalLength, double* kernel, int tapCount) const;

    double channelBandwidth = 0.0;         ///< [Hz] of the channel and its reference; from the configuration
    double generationBandwidth = 1.27e10;  ///< [Bd] rate at which the generation grid counts its intervals
    std::int32_t generationParam1 = 100;   ///< [GHz] bandwidth of the smoothing Gaussian
    std::int32_t generationParam2 = 64;    ///< grid points an interval
    std::int32_t generationParam3 = 127;   ///< intervals of the grid: 10 ns
    std::int32_t baselineEndIndex = 1300;  ///< last of the leading points whose mean is the baseline
    std::int32_t generationParam5 = 2;     ///< the correction ends at this many times the channel bandwidth
    std::int32_t kernelLength = 0;         ///< taps of `kernel`, written by the generation

private:
    struct Settings;
    static Settings SettingsFrom(DeviceConfiguration& config, int channel);
    void Store(const Settings& settings);
    std::vector<double> Generated(const SircFilterParameters& parameters, const Settings& settings) const;
    void Rebuild(const Settings& settings);
};

}  // namespace Tarnwick::DSO::Filters
