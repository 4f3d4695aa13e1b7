// Continuous-time linear equaliser: lifts the band around half the symbol rate f_b/2 over DC, s = j 2 pi f.
//     CTLE_PEAKING       H = k (s + z) / ((s + p1)(s + p2)),  p1,2 = 2 pi (f_b/2 -+ f_b/40), |H(f_b/2)| = 1; z from the
//                        wanted peaking
//     CTLE_HDMI          the same form, p1 = 3.5 GHz, p2 = 10 GHz, z = p1/A, H(0) = 1; A from the level, 1 to 8
//     CTLE_HDMI_2_0      inverse of a skin-effect cable, bounded by a Bessel-Thomson response: a cable model, since no
//                        public text gives the licensed reference equaliser. Not a statement of compliance.
//     CTLE_IEEE802_3bs   G k (s + z1)(s + z2) / ((s + p1)(s + p2)(s + p3)), 17 presets of IEEE 802.3bs
//     CTLE_OIF_CEI_112G_LINEAR_PAM4
//                        (g1 + jf/f_z)(g2 + jf/f_LF) / ((1 + jf/f_p1)(1 + jf/f_p2)(1 + jf/f_LF)), OIF CEI-112G
// Every response is sampled at k f_s/N over the whole record of N samples, mirrored and transformed back. With an even N
// the bin at half the sample rate is absent and the taps are N - 1. N counts whole samples per UI: with fractional sampling the
// taps are fewer than the record's samples, and what lies before time zero is misplaced (an NRZ waveform is off by 17 % rms at
// 3.3 samples per UI, by 3.9 % at 16.5 and by 1.8 % at 16). A host does better with whole samples per UI. Deliberate.
// Error below 1e-12 of |H| at every bin of the taps' spectrum, 2e-5 for CTLE_PEAKING, whose gains are found to five decimals.
#pragma once

#include <complex>
#include <cstdint>
#include <map>
#include <vector>

#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"

enum CTLE_Type : std::int32_t {
    CTLE_PEAKING = 0,
    CTLE_HDMI = 1,
    CTLE_HDMI_2_0 = 2,
    CTLE_IEEE802_3bs = 3,
    CTLE_OIF_CEI_112G_LINEAR_PAM4 = 4,
};

namespace Tarnwick::DSO::Filters {

/// Poles and zeros are angular frequencies [rad/s] where the filter derives them (CTLE_PEAKING, CTLE_HDMI,
/// CTLE_IEEE802_3bs) and frequencies [GHz] where the user enters them (CTLE_OIF_CEI_112G_LINEAR_PAM4,
/// PolesAndZerosChanged). Deliberate.
class TARNWICK_FILTERS_API CTLEFilterParameters : public SystemFramework::BaseFilterParameters {
public:
    /// Noise not preserved, noise corner 35 GHz.
    CTLEFilterParameters();
    /// The eleventh argument sets `dcGain` and `dcGain2`, the twelfth `peakingRatio`; the thirteenth is ignored.
    /// Deliberate.
    CTLEFilterParameters(CTLE_Type type, double samplesPerUI, double gain, bool preserveNoise, double noiseFrequency,
                         double pole1, double pole2, double pole3, double zero1, double zero2, double dcGain,
                         double dcGain2, double peakingRatio);
    /// Defaults as above, with a configuration, which the filter needs to prepare.
    CTLEFilterParameters(DeviceConfiguration* config);

    double samplesPerUi = 0.0;  ///< written by the filter from the configuration
    /// CTLE_PEAKING: wanted peaking [dB], |H| at half the symbol rate over |H(0)|, rounded to five decimals when
    /// prepared. CTLE_HDMI: level 1 to 8, the fraction does not count; any other gives a null response.
    /// CTLE_HDMI_2_0: |H| at half the symbol rate [dB], -20 to 20. CTLE_IEEE802_3bs: preset 1.0 to 9.0 in steps of 0.5
    /// [dB]. CTLE_OIF_CEI_112G_LINEAR_PAM4: g_DC [dB].
    double gain = 0.0;
    double gain2 = 0.0;             ///< CTLE_OIF_CEI_112G_LINEAR_PAM4: g_DC2 [dB]
    double outputScale = 1.0;       ///< CTLE_OIF_CEI_112G_LINEAR_PAM4: factor of every output sample
    CTLE_Type type = CTLE_PEAKING;  ///< any value without a name stands for CTLE_PEAKING
    double pole1 = 0.0;
    double pole2 = 0.0;
    double pole3 = 0.0;  ///< CTLE_IEEE802_3bs
    double zero1 = 0.0;
    double zero2 = 0.0;         ///< CTLE_IEEE802_3bs; the low-frequency pair of CTLE_OIF_CEI_112G_LINEAR_PAM4
    double dcGain = 0.0;        ///< linear; g_DC [dB] for CTLE_OIF_CEI_112G_LINEAR_PAM4
    double dcGain2 = 0.0;       ///< g_DC2 [dB] for CTLE_OIF_CEI_112G_LINEAR_PAM4
    double peakingRatio = 0.0;  ///< CTLE_HDMI: gain at high frequencies over DC, linear
};

/// The response builders (GetCTLEFilter and its variants) read poles, zeros and gains as they stand in the parameters,
/// samplesPerUi, and from the configuration the symbol rate and the sizes whose product is N. With noise preservation
/// on, the spectrum passes through the noise-preserving correction; one that does not apply leaves it as it was and
/// switches `preserveNoise` off. They return N - 1 taps for an even N, N for an odd one, none for N below 1, and throw
/// std::invalid_argument for no parameters, no configuration, a product that does not fit 32 bits, a rate or
/// samplesPerUi that is not finite and positive, and any number they read that is NaN or infinite. A zero pole or zero
/// is computed with as it stands.
class TARNWICK_FILTERS_API CTLEFilter : public SystemFramework::BaseFilter {
public:
    CTLEFilter();
    /// Checks pattern lock and takes samplesPerUi from the configuration; builds no taps yet.
    /// @param parameters  not owned, must outlive the filter
    /// @throws PatternLockFailed      the configuration reports no lock on parameters->channel
    /// @throws std::invalid_argument  parameters is null or its channel is outside 0 to 3
    CTLEFilter(CTLEFilterParameters* parameters);
    CTLEFilter(const CTLEFilter&) = default;
    CTLEFilter& operator=(const CTLEFilter& other);
    ~CTLEFilter() override;

    /// Each repetition of the pattern is equalised as one period of a periodic signal; taps longer than a repetition
    /// wrap around it. Dirty parameters are prepared first.
    /// @return new array of sampleCount values, zero past the last whole segment; the caller releases it with
    ///         ::operator delete
    /// @throws std::invalid_argument  a bad record, one shorter than a repetition, or a filter never prepared
    double* Apply(SystemFramework::SignalData* signal) override;

    /// Two poles, one zero: CTLE_HDMI with k = peakingRatio p2, any other type with k = dcGain p1 p2 / z.
    std::vector<double> GetCTLEFilter(CTLEFilterParameters* parameters);
    /// The cable model; of the settings only `gain` is read.
    /// @throws std::invalid_argument  a gain outside -20 to 20 dB
    std::vector<double> GetCTLEFilter_HDMI_2_0(CTLEFilterParameters* parameters);
    std::vector<double> GetCTLEFilter_IEEE802_3bs(CTLEFilterParameters* parameters);
    std::vector<double> GetCTLEFilter_OIF_CEI_112G_LINEAR_PAM4(CTLEFilterParameters* parameters);

    /// Writes gain, pole1, pole2, zero1 and dcGain from `gain` and the symbol rate.
    /// @throws std::invalid_argument  no configuration, a gain that is not finite, or a symbol rate at which the search
    ///                                for the DC gain cannot end
    void GetCTLEFilterParams(CTLEFilterParameters* parameters);
    /// Writes dcGain, the poles and the zeros of the preset.
    /// @throws std::invalid_argument  `gain` is no preset; nothing has been written
    void GetCTLEFilter_IEEE802_3bs_PolesAndZeros(CTLEFilterParameters* parameters);
    /// Copies gain to dcGain and gain2 to dcGain2.
    void GetCTLEFilter_OIF_CEI_112G_LINEAR_PAM4Params(CTLEFilterParameters* parameters);
    /// Writes `gain`, the peaking in dB to two decimals, from pole1, pole2, zero1 [GHz] and dcGain after a user changed
    /// them.
    void PolesAndZerosChanged(CTLEFilterParameters* parameters);

    static std::complex<double> ComplexConjugate(std::complex<double> value);

    std::map<int, double> levelMap;  ///< carried, stays empty
    std::vector<double> filterTaps;  ///< what Apply convolves with; `kernel` stays null

private:
    /// Rebuilds filterTaps and resets the dirty state; the signal is not read. When it throws, the taps stay.
    void Prepare(SystemFramework::SignalData* signal) override;
    void GetCtleParams_HDMI(CTLEFilterParameters* parameters);

    struct Variant;
    static const Variant& VariantOf(CTLE_Type type);
};

}  // namespace Tarnwick::DSO::Filters
