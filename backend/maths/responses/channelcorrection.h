// The kernel that gives a measured channel the response of a reference receiver:
//     K(f) = Q(f) taper(f) BT4(f; cutoff) / BT4(f; bandwidth),   Q = R / C
// with C and R the transforms of the channel's and the reference's impulse responses. Both are smoothed with the same
// Gaussian, which cancels in the quotient, and aligned by their peaks, so the correction does not move the waveform. R
// is held to be a fourth-order Bessel-Thomson response of the channel's bandwidth, hence channel times kernel is BT4 at
// the cutoff. Gain at DC is not corrected: every response here has unit area.
// Not valid for a capture whose half sample rate lies below the end of the correction: what the kernel holds above it
// folds back.
// Source of BT4: W. E. Thomson, "Delay networks having maximally flat frequency characteristics", Proc. IEE 96 (1949)
// 487-490.
#pragma once

#include <complex>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// BT4(f; to) / BT4(f; from), the fourth-order Bessel-Thomson responses that are 3 dB down at `to` and `from` [Hz].
TARNWICK_FRAMEWORK_API std::complex<double> RetargetingRatio(double frequency, double from, double to);

/// An impulse response in a form that can be compared: convolved circularly with `kernel`; inverted if its most negative
/// value is at least as large as its largest; rotated, so that its peak is at index kernel.size()/2 - 1; less its baseline,
/// the mean of the first `baselineCount` values; divided by its sum. NaN and infinity when that sum is zero.
/// @param baselineCount  at most signal.size(); 0: no baseline
TARNWICK_FRAMEWORK_API std::vector<double> AlignedImpulseResponse(std::span<const double> signal,
                                                                  std::span<const double> kernel,
                                                                  std::size_t baselineCount);

/// The evenly spaced points on which the correction is worked out; its window is one period.
struct CorrectionGrid {
    std::size_t length;  // even, at least 2
    double step;         // [s]
    double Window() const { return step * static_cast<double>(length); }
    double Frequency(std::size_t bin) const { return static_cast<double>(bin) / Window(); }
};

/// A table of a measured impulse response: any scale, sign and offset, uniformly sampled.
struct MeasuredResponse {
    std::span<const double> values;
    double interval;  // [s]; 0: the values span the window
};

/// Reads a table: of an odd number of values the first is the sample interval [s] and the rest, which may be none, the
/// values.
/// @return nothing when the interval is not between 1e-15 s and 1e-9 s, a value is not finite, or all are the same
TARNWICK_FRAMEWORK_API std::optional<MeasuredResponse> ReadTable(std::span<const double> table);

/// The response at the grid's points by linear interpolation, less its median and with a largest deviation of 1. A response
/// shorter than the window is continued with its first value; a longer one is cut to half a window on each side of its
/// peak.
/// @param response  at least 2 values
TARNWICK_FRAMEWORK_API std::vector<double> OnGrid(const MeasuredResponse& response, const CorrectionGrid& grid);

struct CorrectionSettings {
    CorrectionGrid grid;
    double smoothingBandwidth;    // [Hz] of the Gaussian
    double channelBandwidth;      // [Hz] of the reference
    double cutoff;                // [Hz] that the reference is brought to
    double end;                   // [Hz] at or above the channel bandwidth: the taper's zero, unless sampling ends it
    std::size_t baselineCount;    // leading points whose mean is the baseline, at most grid.length
    double largestGain = 10.0;    // of Q: 20 dB, so that a notch in the channel does not become a peak of noise
    double smallestShare = 0.01;  // of the smoothing Gaussian, 40 dB: what lies below counts as noise
};

/// Bins 0 .. grid.length/2 of Q: the quotient where the channel's response is reliable (at most `end` and above
/// smallestShare), between reliable neighbours linear in real and imaginary part, beyond the last its value.
/// @param channel    grid.length values from AlignedImpulseResponse; likewise the reference
/// @param smoothing  grid.length taps of the Gaussian that both were smoothed with
TARNWICK_FRAMEWORK_API std::vector<std::complex<double>> ChannelQuotient(std::span<const double> channel,
                                                                         std::span<const double> reference,
                                                                         std::span<const double> smoothing,
                                                                         const CorrectionSettings& settings);

/// The impulse response of a fourth-order Bessel-Thomson receiver on the grid.
TARNWICK_FRAMEWORK_API std::vector<double> BesselThomsonImpulse(double cutoff, const CorrectionGrid& grid);

/// Where the correction fades out: 1 up to `start`, a raised cosine to 0 at `end`.
struct CorrectionTaper {
    double start;  // [Hz]
    double end;    // [Hz]
};

/// From the channel bandwidth to the settings' end. Where that lies above half the sample rate the taper ends there, or what
/// stands above would fold back, and starts at 0.8 of it or at the channel bandwidth, whichever is lower.
TARNWICK_FRAMEWORK_API CorrectionTaper TaperOf(const CorrectionSettings& settings, double sampleInterval);

/// Bins 0 .. grid.length/2 of K.
/// @param quotient  bins 0 .. grid.length/2 of Q
TARNWICK_FRAMEWORK_API std::vector<std::complex<double>> CorrectionSpectrum(
    std::span<const std::complex<double>> quotient, const CorrectionSettings& settings, const CorrectionTaper& taper);

/// The impulse response of K at whole multiples of the capture's sample interval within half a window, each added to
/// tap m mod `taps`, so that a pattern shorter than the window is convolved exactly. The sum is 1. Linear between points
/// eight times as dense as the grid. Error below 0.01 dB.
/// @param spectrum        bins 0 .. grid.length/2
/// @param sampleInterval  [s]
/// @param taps            at least 1
TARNWICK_FRAMEWORK_API std::vector<double> SampledCorrection(std::span<const std::complex<double>> spectrum,
                                                             const CorrectionGrid& grid, double sampleInterval,
                                                             std::size_t taps);

/// The taps for a channel and a reference. An empty channel needs no correction; an empty reference stands for the
/// Bessel-Thomson response itself. Tables without a usable response give values that are not finite.
TARNWICK_FRAMEWORK_API std::vector<double> CorrectionTaps(const MeasuredResponse& channel,
                                                          const MeasuredResponse& reference,
                                                          const CorrectionSettings& settings, double sampleInterval,
                                                          std::size_t taps);

/// Error of the channel's magnitude behind its correction [dB], up to 1.5 times the cutoff, from a clean measurement.
inline constexpr double kCorrectedMagnitudeErrorDb = 0.072;

}  // namespace Tarnwick::DSO::Maths
