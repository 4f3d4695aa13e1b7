// A record read between its samples, as the band-limited waveform that they stand for.
//     y(t) = sum_k x[k] s(t - k),  s(u) = sinc(u) w(u / 24),  each row of weights scaled to sum 1
// with the Kaiser window w of beta 9: up to 0.43 of the sample rate the error is about 1e-5 of the rms. A sample itself is
// read exactly. Source: A. V. Oppenheim, R. W. Schafer, "Discrete-Time Signal Processing", 3rd ed., sections 4.2 and 7.5.3.
#pragma once

#include <cstddef>
#include <span>

#include "framework/export.h"
#include "maths/captures/symbolresponse.h"

namespace Tarnwick::DSO::Maths {

/// Samples on either side of a position that its value is made of.
inline constexpr std::ptrdiff_t kInterpolationReach = 24;

/// How the value at one position is made of samples: for positions that are whole samples apart it is made alike, so that one
/// reading serves a phase of every UI.
struct BandLimitedReading {
    std::ptrdiff_t sample;  ///< floor of the position
    const double* weights;  ///< of the samples from 23 before to 24 behind that one; null: the sample itself
    double towardsNext;     ///< share of the next row of weights, 0 at 64ths of a sample interval
};

/// Positions at 64ths of a sample interval have weights made for them; between those, weights are interpolated linearly in
/// steps of 1/1024, which leaves 2e-6.
TARNWICK_FRAMEWORK_API BandLimitedReading ReadingAt(double position);

class TARNWICK_FRAMEWORK_API BandLimitedRecord {
public:
    /// @param samples  at least one; read, not copied
    BandLimitedRecord(std::span<const double> samples, Wrapping wrapping) : samples_(samples), wrapping_(wrapping) {}
    /// Whether the record holds, or wraps round to, all samples that positions from `low` to `high` are made of.
    bool Covers(double low, double high) const;
    /// values[k] = y(position of readings[k] + shift)
    /// @param readings  at ascending positions, as many as values; all positions are covered
    /// @param shift     [samples]
    void Read(std::span<const BandLimitedReading> readings, std::ptrdiff_t shift, std::span<double> values) const;

private:
    std::span<const double> samples_;
    Wrapping wrapping_;
};

}  // namespace Tarnwick::DSO::Maths
