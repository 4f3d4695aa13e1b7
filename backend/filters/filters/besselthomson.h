// The reference receiver: a low-pass Bessel-Thomson response of order n, maximally flat in group delay.
//     H(s) = B_n(0) / B_n(s),  B_n(s) = sum_k a_k s^k,  a_k = (2n - k)! / (2^(n-k) k! (n - k)!)
//     s = j 2 pi f w0 / wc,  wc = 2 pi (cutoffPercent/100) (symbol rate)
// w0 is the normalised angular frequency of the cutoff: |H| is 1/sqrt(2) there on an electrical channel and 1/2 behind
// an optical-to-electrical converter (half the optical power is half the voltage). Orders 1 to 16 are taken; from order
// 7 on the factorials wrap in 32 bits and the coefficients are no longer those of a Bessel polynomial. Deliberate.
// With fractional sampling the sample interval is one UI over the whole samples of it, and the cutoff too high by the samples
// per UI over the whole ones, 3.1 % at 16.5; a host does better with whole samples per UI. Deliberate.
// Error below 1e-12 at every bin of the taps' spectrum. The walk that finds w0 ends within 5e-6 of |H| at the cutoff.
// Source: W. E. Thomson, "Delay networks having maximally flat frequency characteristics", Proc. IEE 96 (1949) 487-490.
#pragma once

#include <complex>
#include <cstdint>
#include <vector>

#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"

namespace Tarnwick::DSO::Filters {

class TARNWICK_FILTERS_API BesselThomsonParameters : public SystemFramework::BaseFilterParameters {
public:
    /// Fourth order, 75 % of the symbol rate, noise not preserved, noise corner 35 GHz.
    BesselThomsonParameters();
    /// The seventh argument is taken and ignored. Deliberate.
    BesselThomsonParameters(double cutoffFrequency, int order, double cutoffPercent, int samplesPerPattern,
                            bool preserveNoise, double noiseCornerFrequency, double extra);
    /// Defaults as above, with a configuration from which the filter takes the sizes.
    BesselThomsonParameters(DeviceConfiguration* config);

    double cutoffFrequency = 0.0;        ///< [Hz] carried, not read
    std::int32_t order = 4;              ///< order of the Bessel polynomial, 1 to 16
    double cutoffPercent = 75.0;         ///< [% of the symbol rate]
    std::int32_t samplesPerPattern = 0;  ///< written by the filter from the configuration
    double sampleInterval = 0.0;         ///< [s] written by the filter from the configuration
};

class TARNWICK_FILTERS_API BesselThomson : public SystemFramework::BaseFilter {
public:
    /// Checks pattern lock and takes the sizes from the configuration; builds no kernel yet.
    /// @param parameters  not owned, must outlive the filter
    /// @throws PatternLockFailed      the configuration reports no lock on parameters->channel
    /// @throws std::invalid_argument  parameters is null, its channel is outside 0 to 3, or the samples per pattern do not
    ///                                fit 32 bits. Sizes that give no sample interval are refused by Prepare.
    BesselThomson(BesselThomsonParameters* parameters);
    BesselThomson(const BesselThomson&) = default;
    BesselThomson& operator=(const BesselThomson&) = default;
    ~BesselThomson() override;

    /// The impulse response over one pattern of N = samplesPerPattern samples: the response at k fs/(N - 1), mirrored
    /// and transformed back.
    /// @return new array of N - 1 taps with sum 1; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  no configuration, N below 2, an order outside 1 to 16, a rate, interval or cutoff
    ///                                that is not finite and positive
    double* GetBesselThomsonFrequencyDomainFilter(BesselThomsonParameters* parameters);

    /// Rebuilds the kernel; the signal is not read. The dirty state is read, never reset: a host that leaves the
    /// parameters dirty gets a new kernel with every Apply. Deliberate.
    void Prepare(SystemFramework::SignalData* signal) override;

    /// Each repetition of the pattern is filtered as one period of a periodic signal.
    /// @return new array of sampleCount values, zero past the last whole segment; the caller releases it with
    ///         ::operator delete
    /// @throws std::invalid_argument  a bad record, one shorter than a pattern, or no kernel
    double* Apply(SystemFramework::SignalData* signal) override;

    /// s^4 + 10 s^3 + 45 s^2 + 105 s + 105, the fourth-order reverse Bessel polynomial.
    static std::complex<double> BesselThomson4thPolyomial(std::complex<double> s);

    /// The fourth-order response, 3 dB down at `cutoff`: 105 / B_4(j 2 pi 0.33644 f / cutoff).
    /// @param frequencies  count values [Hz]; each is replaced by f 0.33644 / cutoff. Deliberate.
    /// @return new array of count values; the caller releases it with ::operator delete. Empty when count is below 1.
    /// @throws std::invalid_argument  count is positive, and frequencies is null or cutoff not finite and positive
    static std::complex<double>* BesselThomson4th(double* frequencies, int count, double cutoff);

    /// The same for a copy of the frequencies [Hz].
    /// @return new array of frequencies.size() values; the caller releases it with ::operator delete
    static std::complex<double>* BesselThomson4th(std::vector<double> frequencies, double cutoff);

    /// The same response as an impulse response: on the first half of `frequencies` [Hz], mirrored and transformed back.
    /// @param impulseResponse  overwritten with as many taps as there are frequencies
    /// @throws std::invalid_argument  impulseResponse is null, or cutoff is not finite and positive
    static void BesselThomson4th(std::vector<double>* impulseResponse, std::vector<double> frequencies, double cutoff);

private:
    static int Factorial(int n);
    static double bTFactor(int n, int k);
    static double GetDefaultCutoff(int order, bool halfAmplitude);
};

}  // namespace Tarnwick::DSO::Filters
