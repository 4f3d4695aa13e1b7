#pragma once

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// Gaussian low-pass of zero phase for one period of a repeated waveform.
///     H(f) = exp(-(ln 2 / 2) (f / B)^2), 3.01 dB down at B, sampled at the record's own frequencies
/// In time a bell of standard deviation 0.1325/B. Towards half the sample rate the taps have small negative lobes.
class TARNWICK_FRAMEWORK_API GaussianFilter {
public:
    /// The circular kernel: lag 0 at index 0, negative lags at the end, sum 1. It delays nothing.
    /// @param length         written: workingLength
    /// @param baudRateGBd    symbol rate [GBd]
    /// @param bandwidth      B [GHz] while byDroop is false; checked in either case
    /// @param samplesPerUi   samples per symbol
    /// @param workingLength  taps: the samples of one period
    /// @param byDroop        true: B is set by flatness, droopDb of loss at droopGHz, B = droopGHz sqrt(3.01/droopDb)
    /// @param droopDb        [dB] read only with byDroop
    /// @param droopGHz       [GHz] read only with byDroop
    /// @return new array of `length` taps; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  a value that is read is not positive and finite; length is then as it was
    static double* GetGaussianFilter_A(int& length, double baudRateGBd, double bandwidth, int samplesPerUi,
                                       int workingLength, bool byDroop, double droopDb, double droopGHz);

    /// One period of a waveform behind the same response.
    /// @param x          n samples, read only; NaN and infinity flow through
    /// @param bandwidth  B [GHz]
    /// @return new array of n values; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  x is null, or n, the symbol rate, the bandwidth or samplesPerUi is not positive
    static double* ApplyGaussianFilter(const double* x, int n, double baudRateGBd, double bandwidth, int samplesPerUi);
};

}  // namespace Tarnwick::DSO::SystemFramework
