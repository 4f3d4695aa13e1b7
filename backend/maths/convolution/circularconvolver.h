// Circular convolution with one kernel, prepared once for a period.
//     y[k] = sum_m x[m] h[(k - m) mod L]
// The method depends on the kernel and the period alone, never on the samples:
//   boxcar   equal taps on consecutive lags: window sums by doubling, divided by the width where the tap is 1/width
//   direct   up to kDirectTaps non-zero taps: one multiplication per tap and sample; an identity is exact
//   blocks   short dense kernels, blocks shorter than the period: overlap-save over the periodic continuation
//   padded   periods up to kPaddedPeriod: one transform that holds L + K - 1 real values (ringtransform.h)
//   split    longer ones (splitconvolver.h); padded where no power of two brings their parts into the cache
// Error below 4 eps log2(L) max|x| sum|h| against the direct sum. Each repetition is convolved alone: its neighbours in
// the record change no bit of its result. A NaN spreads over the whole repetition in blocks, padded and split,
// and as far as the taps reach in the others.
// Source: A. V. Oppenheim, R. W. Schafer, "Discrete-Time Signal Processing", 3rd ed., sections 8.6 and 8.7.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "framework/export.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

// Where one method becomes quicker than the next, measured with script/bench on AVX2 (docs/performance.md). Both sides
// of each threshold are held by the test.
inline constexpr std::size_t kDirectTaps = 32;       // [non-zero taps] that a direct sum takes at most
inline constexpr std::size_t kPaddedPeriod = 65536;  // [samples] the longest period in one padded transform: 1 MiB
inline constexpr std::size_t kBlockShare = 8;        // blocks while the kernel spans at most 1/8 of the period
inline constexpr std::size_t kBlockKernels = 4;      // [kernel lengths] a block's transform holds at least
inline constexpr std::size_t kShortestBlock = 4096;  // [samples] and at least this many

enum class ConvolutionMethod { Zero, Boxcar, Direct, Blocks, Padded, Split };

/// Buffers of a convolution. They grow as needed and serve any number of convolutions, one at a time.
struct ConvolutionWork {
    AlignedBuffer<double> values;
    AlignedBuffer<double> rows;
    AlignedBuffer<double> grid;
};

class TARNWICK_FRAMEWORK_API CircularConvolver {
public:
    /// @param kernel  any number of taps; those a period apart act alike and are added
    /// @param period  L, at least 1
    CircularConvolver(std::span<const double> kernel, std::size_t period);
    ~CircularConvolver();
    CircularConvolver(CircularConvolver&&) noexcept;
    CircularConvolver& operator=(CircularConvolver&&) noexcept;
    CircularConvolver(const CircularConvolver&) = delete;
    CircularConvolver& operator=(const CircularConvolver&) = delete;

    /// @param samples  L values
    /// @param result   L values, all written; must not overlap the samples
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
