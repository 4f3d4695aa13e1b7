// Circular convolution with one kernel, prepared once for a period.
//     y[k] = sum_m x[m] h[(k - m) mod L]
// The way depends on the kernel and the period alone, never on the data:
//   boxcar   equal taps on consecutive lags: a window sum by doubling, divided by the width where the tap is 1/width
//   direct   at most kDirectTaps non-zero taps: one multiplication a tap and sample; an identity is exact
//   blocks   short dense kernels, blocks shorter than the period: overlap-save over the periodic extension
//   exact    periods without a prime factor above 7: one real transform of length L
//   padded   other periods up to kPaddedPeriod: one transform that holds L + K - 1 real values, see columntransform.h
//   split    longer ones: see splitconvolver.h
// Each repetition is transformed alone: what stands beside it changes no bit of its result. A NaN spreads over the
// repetition in the transformed ways and over the taps' reach in the others.
// Source: A. V. Oppenheim, R. W. Schafer, "Discrete-Time Signal Processing", 3rd ed., sections 8.6 and 8.7.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "framework/export.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

inline constexpr std::size_t kDirectTaps = 32;
inline constexpr std::size_t kPaddedPeriod = 65536;
inline constexpr std::size_t kBlockShare = 8;        // blocks while the kernel spans at most 1/8 of the period
inline constexpr std::size_t kShortestBlock = 4096;  // transform length of a block, at least 4 kernel lengths

enum class ConvolutionMethod { Zero, Boxcar, Direct, Blocks, Exact, Padded, Split };

/// Buffers of a convolution; they grow as needed and may be used again. One at a time uses them.
struct ConvolutionWork {
    AlignedBuffer<double> values;
    AlignedBuffer<Complex> bins;
    AlignedBuffer<Complex> rows;
    AlignedBuffer<Complex> tail;
};

class TARNWICK_FRAMEWORK_API CircularConvolver {
public:
    /// @param kernel  taps, of any number; folded modulo the period
    /// @param period  L, at least 1
    CircularConvolver(std::span<const double> kernel, std::size_t period);
    ~CircularConvolver();
    CircularConvolver(CircularConvolver&&) noexcept;
    CircularConvolver& operator=(CircularConvolver&&) noexcept;
    CircularConvolver(const CircularConvolver&) = delete;
    CircularConvolver& operator=(const CircularConvolver&) = delete;

    /// @param samples  L values
    /// @param result   L values, not overlapping the samples; all are written
    void Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const;

    ConvolutionMethod Method() const { return method_; }
    std::size_t Period() const { return period_; }

    class Engine;

private:
    std::size_t period_;
    ConvolutionMethod method_;
    std::unique_ptr<const Engine> engine_;
};

}  // namespace Tarnwick::DSO::Maths
