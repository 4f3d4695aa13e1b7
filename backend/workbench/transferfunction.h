// What a filter does to a spectrum, worked out from its impulse response alone.
#pragma once

#include <complex>
#include <cstddef>
#include <optional>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

/// A filter as its circular impulse response over N samples and what follows from it at the frequencies k fs/N.
struct TransferFunction {
    double sampleRate = 0.0;          ///< [Hz] fs
    std::vector<double> impulse;      ///< N values; index 0 is the instant of the impulse, the last ones precede it
    std::ptrdiff_t peak = 0;          ///< [samples] where |h| is largest, above -N/2 and up to N/2
    std::vector<double> magnitudeDb;  ///< [dB] |H(k fs/N)|, N/2 + 1 values; minus infinity where H is 0
    std::vector<double> groupDelay;   ///< [s] -d arg H / d omega; NaN where |H| is 60 dB below its largest value
    double Spacing() const { return sampleRate / static_cast<double>(impulse.size()); }  ///< [Hz] fs/N
};

///     H[k] = sum_n h[n] exp(-2 pi i k n / N),  tau[k] = Re(DFT(n w h) / DFT(w h)) / fs
/// with n counted from the peak to both sides and w the Hann window around the peak, which averages tau over three bins:
/// otherwise, in a response that jumps at fs/2, neighbouring bins differ by more than tau itself.
/// Source: Oppenheim, Schafer, Discrete-Time Signal Processing, group delay from the transform of n h[n].
/// @param impulse     at least one value
/// @param sampleRate  [Hz]
TARNWICK_WORKBENCH_API TransferFunction Transform(std::vector<double> impulse, double sampleRate);

/// Where pictures and tables over frequency end [symbol rate], if the record reaches that far.
inline constexpr double kSymbolRatesShown = 2.0;

/// The lowest bin at or above a frequency [Hz], or the last there is.
TARNWICK_WORKBENCH_API std::size_t LastBinUpTo(const TransferFunction& function, double frequency);

/// H at any frequency [Hz], from the sum above with n counted from the peak to both sides.
TARNWICK_WORKBENCH_API std::complex<double> ResponseAt(const TransferFunction& function, double frequency);

struct ResponseFigures {
    double dcGainDb;
    double halfRateGainDb;                  ///< at half the symbol rate
    double peakGainDb;                      ///< the largest of the bins up to the band's end
    double peakFrequency;                   ///< [Hz] lowest bin that reaches it, to within rounding
    std::optional<double> cutoffFrequency;  ///< [Hz] where |H|^2 first falls to half its value at DC
    double noiseGain;                       ///< rms of white noise, output over input: sqrt(mean |H|^2)
    std::optional<double>
        noiseBandwidth;  ///< [Hz] of an ideal low-pass with the same DC gain that passes as much noise of the band
    double peakDelay;    ///< [s] of the impulse response's largest value, to one sample
};

/// @param symbolRate  [Hz]
/// @param bandEnd     [Hz] up to which peak and noise bandwidth are looked for, if the record reaches that far: beyond the
///                    signal's band a filter's response is what the sampling makes of it; 0: kSymbolRatesShown
TARNWICK_WORKBENCH_API ResponseFigures FiguresOf(const TransferFunction& function, double symbolRate,
                                                 double bandEnd = 0.0);

}  // namespace Tarnwick::DSO::Workbench
