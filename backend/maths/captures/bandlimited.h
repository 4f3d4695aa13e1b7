// A record read between its samples, as the band-limited waveform that they stand for.
//     y(t) = sum_k x[k] s(t - k),  s(u) = sinc(u) w(u / 24),  each row of weights scaled to sum 1
// with the Kaiser window w of beta 9: up to 0.43 of the sample rate the error is about 1e-5 of the rms. A sample itself is
// read exactly. Source: A. V. Oppenheim, R. W. Schafer, "Discrete-Time Signal Processing", 3rd ed., sections 4.2 and 7.5.3.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/captures/symbolresponse.h"
#include "maths/transforms/alignedbuffer.h"

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

/// The same phases of one UI after the other, where a UI has whole samples: all at once, which is several times as fast as one
/// after the other. A value differs from BandLimitedRecord's by the rounding of its sum, 48 eps of the largest sample.
class TARNWICK_FRAMEWORK_API BandLimitedPhases {
public:
    /// @param readings  of UI 0, at least one. Eight at a time are read, the quicker the fewer samples they are made of
    explicit BandLimitedPhases(std::span<const BandLimitedReading> readings);
    /// Values that Read gives a UI: as many as readings, and zeros up to a multiple of eight.
    std::size_t Pitch() const { return lines_ * kLine; }
    /// Of the samples that the values of UI 0 are made of the first, and their number.
    std::ptrdiff_t FirstSample() const { return first_; }
    std::size_t SampleCount() const { return sampleCount_; }
    /// values[i Pitch() + k] = y(position of readings[k] + i samplesPerUi), i = 0 .. uiCount - 1
    /// @param samples  from FirstSample() on, up to the last one that the last UI needs
    void Read(const double* samples, std::size_t samplesPerUi, std::size_t uiCount, double* values) const;
    /// The same values, to the bit, phase by phase: to[k][i], i = 0 .. uiCount - 1
    /// @param to  Pitch() of them, the last ones of which receive the zeros
    void ReadApart(const double* samples, std::size_t samplesPerUi, std::size_t uiCount,
                   std::span<double* const> to) const;

private:
    friend class PhaseScreening;
    static constexpr std::size_t kLine = 8;  // phases whose weights lie side by side
    std::size_t lines_;
    std::ptrdiff_t first_;
    std::size_t sampleCount_;
    AlignedBuffer<double> weights_;
    std::vector<std::size_t> used_;  // of each line the first sample that counts and the one behind the last
};

/// Which UI may hold a value beyond extremes that are known already, at any of the phases: all that do, and a few more. Values are
/// made in single precision and of the samples next to them. What the others add is bounded by the second differences, and a UI
/// counts when a value comes nearer to an extreme than that bound and all roundings.
class TARNWICK_FRAMEWORK_API PhaseScreening {
public:
    /// @param phases   outlives this
    /// @param samples  the record, a few stretches of which tell the range; UI with samples far out of it always count
    PhaseScreening(const BandLimitedPhases& phases, std::span<const double> samples);
    /// The limits that UI are screened with, as they follow from extremes at each phase.
    /// @param limits  twice as many as phases.Pitch(), rounded up to a multiple of 16
    void SetLimits(std::span<const double> low, std::span<const double> high, std::span<float> limits) const;
    std::size_t LimitCount() const { return 2 * Pitch(); }
    /// counts[i] = whether UI i may hold a value below the low or above the high that limits[i] were made of, or equal to it
    /// @param samples  as BandLimitedPhases::Read
    void Screen(const double* samples, std::size_t samplesPerUi, std::span<const float* const> limits,
                std::span<unsigned char> counts);

private:
    static constexpr std::size_t kLine = 2 * BandLimitedPhases::kLine;
    std::size_t Pitch() const { return (phases_->lines_ + 1) / 2 * kLine; }

    // As ScreenBank; margin and share of the second difference for scaled samples.
    struct Bank {
        AlignedBuffer<float> weights;
        std::vector<std::size_t> used;
        double largest = 0.0;  // sum of the weights' magnitudes at a phase
        double margin = 0.0;
        double perBend = 0.0;
    };
    void Keep(Bank& bank, std::size_t phase, std::size_t first, std::span<const double> weights) const;

    const BandLimitedPhases* phases_;
    Bank narrow_;
    Bank wide_;
    std::vector<float> scaled_;
    double middle_ = 0.0;
    double scale_ = 0.0;  // 0: all UI count
};

/// sum[k] += stretches[i][k]
/// @param stretches  of as many samples as the sum has
TARNWICK_FRAMEWORK_API void AddStretches(std::span<const double* const> stretches, std::span<double> sum);

}  // namespace Tarnwick::DSO::Maths
