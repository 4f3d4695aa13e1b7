#include "maths/convolution/circularconvolver.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <optional>
#include <vector>

#include "maths/convolution/convolutionengine.h"
#include "maths/convolution/hotloops.h"
#include "maths/convolution/ringtransform.h"
#include "maths/convolution/splitconvolver.h"

namespace Tarnwick::DSO::Maths {

namespace {

using Engine = CircularConvolver::Engine;

// The kernel over one period.
std::vector<double> Fold(std::span<const double> kernel, std::size_t period)
{
    std::vector<double> folded(std::min(kernel.size(), period), 0.0);
    for (std::size_t begin = 0; begin < kernel.size(); begin += period) {
        const auto part = kernel.subspan(begin, std::min(period, kernel.size() - begin));
        std::transform(part.begin(), part.end(), folded.begin(), folded.begin(), std::plus<>());
    }
    return folded;
}

// `count` samples of the periodic continuation, from index `start` on.
void CopyPeriodic(std::span<const double> period, std::ptrdiff_t start, std::size_t count, double* out)
{
    const auto length = static_cast<std::ptrdiff_t>(period.size());
    auto at = static_cast<std::size_t>(((start % length) + length) % length);
    while (count > 0) {
        const std::size_t run = std::min(count, period.size() - at);
        out = std::copy_n(period.data() + at, run, out);
        count -= run;
        at = 0;
    }
}

class ZeroEngine final : public Engine {
public:
    void Convolve(std::span<const double>, std::span<double> result, ConvolutionWork&) const override
    {
        std::fill(result.begin(), result.end(), 0.0);
    }
};

// How far a set of lags reaches out of the period at either end.
class Reach {
public:
    Reach(std::ptrdiff_t lowestLag, std::ptrdiff_t highestLag)
        : before_(static_cast<std::size_t>(std::max<std::ptrdiff_t>(highestLag, 0))),
          after_(static_cast<std::size_t>(std::max<std::ptrdiff_t>(-lowestLag, 0)))
    {
    }
    /// Calls run(x, begin, count) for the stretches that make up the period: x[i] is sample begin + i and may be read
    /// for i = -before .. count + after - 1. Only the stretches whose reach goes past an end are copied.
    template <typename Run>
    void ForEachStretch(std::span<const double> samples, AlignedBuffer<double>& buffer, Run run) const
    {
        const auto copied = [&](std::size_t begin, std::size_t count) {
            if (count == 0)
                return;
            const std::size_t size = before_ + count + after_;
            CopyPeriodic(samples, static_cast<std::ptrdiff_t>(begin) - static_cast<std::ptrdiff_t>(before_), size,
                         buffer.Reserve(size));
            run(buffer.Data() + before_, begin, count);
        };
        if (before_ + after_ >= samples.size()) {
            copied(0, samples.size());
            return;
        }
        const std::size_t inside = samples.size() - before_ - after_;
        copied(0, before_);
        run(samples.data() + before_, before_, inside);
        copied(before_ + inside, after_);
    }

private:
    std::size_t before_;
    std::size_t after_;
};

// Lags in the second half of the period are short negative ones.
std::ptrdiff_t SignedLag(std::size_t lag, std::size_t period)
{
    return static_cast<std::ptrdiff_t>(lag) - static_cast<std::ptrdiff_t>(2 * lag > period ? period : 0);
}

class DirectEngine final : public Engine {
public:
    DirectEngine(std::span<const double> taps, std::size_t period) : reach_(0, 0)
    {
        std::ptrdiff_t lowest = 0;
        std::ptrdiff_t highest = 0;
        for (std::size_t lag = 0; lag < taps.size(); ++lag) {
            if (taps[lag] == 0.0)
                continue;
            taps_.push_back({SignedLag(lag, period), taps[lag]});
            lowest = std::min(lowest, taps_.back().lag);
            highest = std::max(highest, taps_.back().lag);
        }
        reach_ = Reach(lowest, highest);
    }
    void Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const override
    {
        reach_.ForEachStretch(samples, work.values, [&](const double* x, std::size_t begin, std::size_t count) {
            Loops().sumTaps(x, taps_.data(), taps_.size(), result.data() + begin, count);
        });
    }

private:
    std::vector<Tap> taps_;
    Reach reach_;
};

struct Window {
    std::ptrdiff_t firstLag;
    std::size_t width;
    double value;
};

// Equal taps on two or more consecutive lags, which may wrap round the period.
std::optional<Window> FindWindow(std::span<const double> taps, std::size_t period)
{
    const auto isTap = [](double tap) { return tap != 0.0; };
    const auto width = static_cast<std::size_t>(std::count_if(taps.begin(), taps.end(), isTap));
    if (width < 2)
        return std::nullopt;
    const double value = *std::find_if(taps.begin(), taps.end(), isTap);
    const auto at = [&](std::size_t lag) { return lag < taps.size() ? taps[lag] : 0.0; };
    std::size_t first = 0;
    if (width < period) {
        while (!(at(first) != 0.0 && at((first + period - 1) % period) == 0.0))
            ++first;
    }
    for (std::size_t m = 0; m < width; ++m)
        if (at((first + m) % period) != value)
            return std::nullopt;
    const bool wraps = first + width > period;
    return Window{static_cast<std::ptrdiff_t>(first) - static_cast<std::ptrdiff_t>(wraps ? period : 0), width, value};
}

class BoxcarEngine final : public Engine {
public:
    explicit BoxcarEngine(Window window)
        : width_(window.width),
          lastLag_(window.firstLag + static_cast<std::ptrdiff_t>(window.width) - 1),
          reach_(window.firstLag, lastLag_),
          factor_(window.value)
    {
        // Where the tap is 1/n as a double, the sum is divided by n: the mean of equal samples is then exact, which a
        // product with the rounded 1/n is not (n = 49 is the first to fail).
        const double divisor = std::round(1.0 / window.value);
        if (std::isfinite(divisor) && 1.0 / divisor == window.value)
            divisor_ = divisor;
    }
    void Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const override
    {
        const std::size_t block = std::min(std::max(kShortestRun, 4 * width_), result.size());
        double* scratch = work.rows.Reserve(2 * (block + width_));
        reach_.ForEachStretch(samples, work.values, [&](const double* x, std::size_t begin, std::size_t count) {
            for (std::size_t at = 0; at < count; at += block)
                Loops().sumWindow(x + at - lastLag_, width_, divisor_, factor_, result.data() + begin + at,
                                  std::min(block, count - at), scratch);
        });
    }

private:
    static constexpr std::size_t kShortestRun = 768;  // [samples] a block's sums stay in a first-level cache of 32 KiB
    std::size_t width_;
    std::ptrdiff_t lastLag_;
    Reach reach_;
    double factor_;
    double divisor_ = 0.0;  // 0: multiply by the factor
};

// One kernel in a ring of real values.
class RingEngine : public Engine {
protected:
    RingEngine(std::span<const double> taps, std::size_t length)
        : transform_(RingTransform::Values::Real, length), spectrum_(transform_.SpectrumSize())
    {
        ConvolutionWork work;
        transform_.TransformKernel({taps.data(), taps.size()}, 1.0, spectrum_.Data(), work);
    }
    const RingTransform& Transform() const { return transform_; }
    const double* Spectrum() const { return spectrum_.Data(); }

private:
    RingTransform transform_;
    AlignedBuffer<double> spectrum_;
};

// Blocks of the periodic continuation (overlap-save).
class BlocksEngine final : public RingEngine {
public:
    BlocksEngine(std::span<const double> taps, std::size_t length) : RingEngine(taps, length), history_(taps.size() - 1)
    {
    }
    void Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const override
    {
        const std::size_t step = Transform().Length() - history_;
        for (std::size_t begin = 0; begin < result.size(); begin += step) {
            const std::size_t count = std::min(step, result.size() - begin);
            const double* block = nullptr;
            if (begin < history_) {
                double* values = work.values.Reserve(history_ + count);
                CopyPeriodic(samples, static_cast<std::ptrdiff_t>(begin) - static_cast<std::ptrdiff_t>(history_),
                             history_ + count, values);
                block = values;
            } else {
                block = samples.data() + (begin - history_);
            }
            Transform().Convolve({block, history_ + count}, Spectrum(), {result.data() + begin, count, history_}, work);
        }
    }

private:
    std::size_t history_;
};

// The whole product, period and kernel together: the period and, in front of it, as much of the one before as the ring
// holds, which is more than the kernel reaches back.
class PaddedEngine final : public RingEngine {
public:
    PaddedEngine(std::span<const double> taps, std::size_t period) : RingEngine(taps, period + taps.size() - 1) {}
    void Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const override
    {
        const std::size_t gap = Transform().Length() - samples.size();
        Transform().Convolve({samples.data(), samples.size(), gap, 1.0}, Spectrum(),
                             {result.data(), result.size(), gap}, work);
    }
};

struct Choice {
    ConvolutionMethod method;
    std::size_t length = 0;  // of the transform, or the number of rows
};

Choice Choose(std::span<const double> taps, std::size_t period)
{
    const auto nonZero =
        static_cast<std::size_t>(std::count_if(taps.begin(), taps.end(), [](double tap) { return tap != 0.0; }));
    if (nonZero == 0)
        return {ConvolutionMethod::Zero};
    if (FindWindow(taps, period))
        return {ConvolutionMethod::Boxcar};
    if (nonZero <= kDirectTaps)
        return {ConvolutionMethod::Direct};
    const std::size_t block = std::bit_ceil(std::max(kShortestBlock, kBlockKernels * taps.size()));
    if (taps.size() <= period / kBlockShare && block < period)
        return {ConvolutionMethod::Blocks, block};
    if (period > kPaddedPeriod) {
        if (const auto rows = SplitConvolver::RowsFor(period))
            return {ConvolutionMethod::Split, *rows};
    }
    return {ConvolutionMethod::Padded};
}

}  // namespace

CircularConvolver::CircularConvolver(std::span<const double> kernel, std::size_t period) : period_(period)
{
    std::vector<double> taps = Fold(kernel, period);
    while (!taps.empty() && taps.back() == 0.0)
        taps.pop_back();
    const Choice choice = Choose(taps, period);
    method_ = choice.method;
    switch (method_) {
        case ConvolutionMethod::Zero: engine_ = std::make_unique<ZeroEngine>(); break;
        case ConvolutionMethod::Boxcar: engine_ = std::make_unique<BoxcarEngine>(*FindWindow(taps, period)); break;
        case ConvolutionMethod::Direct: engine_ = std::make_unique<DirectEngine>(taps, period); break;
        case ConvolutionMethod::Padded: engine_ = std::make_unique<PaddedEngine>(taps, period); break;
        case ConvolutionMethod::Split:
            taps.resize(period, 0.0);
            engine_ = std::make_unique<SplitConvolver>(taps, choice.length);
            break;
        case ConvolutionMethod::Blocks: engine_ = std::make_unique<BlocksEngine>(taps, choice.length); break;
    }
}

CircularConvolver::~CircularConvolver() = default;
CircularConvolver::CircularConvolver(CircularConvolver&&) noexcept = default;
CircularConvolver& CircularConvolver::operator=(CircularConvolver&&) noexcept = default;

void CircularConvolver::Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const
{
    engine_->Convolve(samples, result, work);
}

}  // namespace Tarnwick::DSO::Maths
