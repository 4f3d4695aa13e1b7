#pragma once

#include <complex>
#include <map>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

class TARNWICK_FRAMEWORK_API SParameter {
public:
    /// The impulse response, over one pattern, that removes a measured fixture from a waveform or adds it.
    ///     remove: H = min(1/|S|, 10^(A/20)/max|S|) exp(-i arg S),  add: H = S,  each times the band's taper
    /// Magnitude and unwrapped phase are interpolated linearly between the frequencies of the data. Where these have no
    /// value at 0 Hz the phase goes on linearly to a multiple of pi there, and the loss as skin effect, a + b sqrt(f) in dB. The taper is 1 up to 0.8 B and a raised cosine to 0 at 1.2 B; nothing is used above the data's last
    /// frequency. The fixture's delay is part of its response: removing it moves the waveform earlier.
    ///
    /// @param length                 written: samplesPerPattern
    /// @param baudRateGBd            symbol rate [GBd]
    /// @param samplesPerPattern      N, samples of one pattern repetition
    /// @param patternLengthUi        symbols of one repetition; with N and the symbol rate it gives the sample rate
    /// @param data                   [Hz] to transmission, at least two frequencies, in steps below 1/(2 delay)
    /// @param conversionFlag         true: remove the fixture; false: add it
    /// @param conversionParameterA   A [dB], the largest boost over the strongest transmission in the data
    /// @param conversionParameterB   [GHz] the -6 dB point B of the taper, which also ends at the data's last frequency and
    ///                               at half the sample rate; 0: only there
    /// @param preserveNoise          pass the response through DSP_Helpers::preserve_noise_TF
    /// @param noiseCornerFrequency   [Hz] its corner; read only with preserveNoise
    /// @param noiseSecondParameter   [Hz] its upper end; 200 GHz where that does not lie above the corner
    /// @param frequencyGrid          not needed: the response's own frequencies are k fs/N; may be null
    /// @param preserveNoiseApplied   written: whether the correction was applied
    /// @return new array of N taps, tap k the delay k/fs, negative delays at the end; the caller releases it with ::operator
    ///         delete
    /// @throws std::invalid_argument  fewer than two frequencies, as after a file that is missing; a frequency or value that
    ///         is not finite, or a negative frequency; data of zeros to be removed; a negative A or B; a rate or length that
    ///         is not positive; a corner or upper end that is read and not finite. Nothing is written then.
    /// Error below 0.01 % of the waveform's rms within the band, for a fixture of 3 dB at 10 GHz measured every 10 MHz.
    static double* ConvertSparamFilterDataToImpulseResponse(int& length, double baudRateGBd, int samplesPerPattern,
                                                            int patternLengthUi,
                                                            std::map<double, std::complex<double>> data,
                                                            bool conversionFlag, int conversionParameterA,
                                                            int conversionParameterB, bool preserveNoise,
                                                            double noiseCornerFrequency, double noiseSecondParameter,
                                                            double* frequencyGrid, bool& preserveNoiseApplied);
};

}  // namespace Tarnwick::DSO::SystemFramework
