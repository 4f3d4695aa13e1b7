#include "maths/convolution/ringtransform.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <utility>

#include "maths/transforms/factors.h"
#include "maths/transforms/roots.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kRowStep = 8;    // the loops take eight columns at a time
constexpr std::size_t kMostLanes = 8;  // of any target

std::size_t RowLength(std::size_t atLeast)
{
    std::size_t length = (atLeast + kRowStep - 1) / kRowStep * kRowStep;
    while (!HasOnlyFactors(length, {2, 3, 5}))
        length += kRowStep;
    return length;
}

struct Shape {
    std::size_t rowCount;
    std::size_t rowLength;
};

// The fewest points; of equal ones a row whose length is a power of four times an odd number, which needs no step by two.
Shape ShapeFor(std::size_t points, std::size_t lanes)
{
    Shape best{};
    std::size_t least = std::numeric_limits<std::size_t>::max();
    for (std::size_t count = lanes; count <= kMostRingRows; count *= 2) {
        const std::size_t length = RowLength((points + count - 1) / count);
        const std::size_t cost = 2 * count * length + static_cast<std::size_t>(std::countr_zero(length)) % 2;
        if (cost < least) {
            least = cost;
            best = {count, length};
        }
    }
    return best;
}

// exp(-2 pi i n / count) for many n: products of two table values, so that one large table costs the roots of two small.
class ManyRoots {
public:
    explicit ManyRoots(std::size_t count) : bits_(static_cast<std::size_t>(std::bit_width(count)) / 2)
    {
        const std::size_t step = std::size_t{1} << bits_;
        for (std::size_t n = 0; n < step; ++n)
            fine_.push_back(RootOfUnity(n, count));
        for (std::size_t n = 0; n < count; n += step)
            coarse_.push_back(RootOfUnity(n, count));
    }
    Complex Of(std::size_t n) const
    {
        const Complex a = coarse_[n >> bits_];
        const Complex b = fine_[n & ((std::size_t{1} << bits_) - 1)];
        return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
    }

private:
    std::size_t bits_;
    std::vector<Complex> fine_;
    std::vector<Complex> coarse_;
};

// Fives, threes and a two first, fours last, where the blocks are in the cache.
std::vector<RingLevel> LevelsFor(std::size_t length)
{
    std::vector<RingLevel> levels;
    const auto add = [&](std::size_t radix) {
        levels.push_back({radix, length, 1});
        length /= radix;
    };
    for (const std::size_t radix : {5, 3})
        while (length % radix == 0)
            add(radix);
    if (std::countr_zero(length) % 2 != 0)
        add(2);
    while (length > 1)
        add(4);
    for (std::size_t i = levels.size() - 1; i > 0; --i)
        levels[i - 1].nodes = 1 + levels[i - 1].radix * levels[i].nodes;
    return levels;
}

// The roots of a group of rows, depth first. A block z^n = exp(-2 pi i turns / count) with radix p multiplies by the
// p-th root; its parts are those of that root times the p-th roots of one.
class RootWriter {
public:
    RootWriter(std::size_t count, std::size_t lanes, const std::vector<RingLevel>& levels, double* to)
        : count_(count), lanes_(lanes), levels_(levels), roots_(count), to_(to)
    {
    }
    void Write(std::size_t level, std::array<std::size_t, kMostLanes> turns)
    {
        const std::size_t radix = levels_[level].radix;
        for (std::size_t lane = 0; lane < lanes_; ++lane) {
            turns[lane] /= radix;
            const Complex root = roots_.Of(turns[lane]);
            to_[lane] = root.real();
            to_[lane + lanes_] = root.imag();
        }
        to_ += 2 * lanes_;
        if (level + 1 == levels_.size())
            return;
        for (std::size_t part = 0; part < radix; ++part) {
            Write(level + 1, turns);
            for (std::size_t lane = 0; lane < lanes_; ++lane)
                turns[lane] += count_ / radix;
        }
    }

private:
    std::size_t count_;
    std::size_t lanes_;
    const std::vector<RingLevel>& levels_;
    ManyRoots roots_;
    double* to_;
};

}  // namespace

RingTransform::RingTransform(Values values, std::size_t length, const HotLoops& loops) : loops_(&loops)
{
    const bool real = values == Values::Real;
    const auto [rowCount, rowLength] = ShapeFor(real ? (length + 1) / 2 : length, loops.lanes);
    plan_.rowCount = rowCount;
    plan_.rowLength = rowLength;
    plan_.groupPitch = 2 * loops.lanes * rowLength + kRowStep;  // off the powers of two: rows compete for cache sets
    length_ = (real ? 2 : 1) * Bins();

    // w = exp(-2 pi i / (4 q)) in the ring of real values: w^q = -i.
    inputFactors_.resize(2 * rowCount);
    for (std::size_t t = 0; t < rowCount; ++t) {
        const Complex factor = real ? RootOfUnity(t, 4 * rowCount) : Complex(1.0);
        inputFactors_[t] = factor.real();
        inputFactors_[rowCount + t] = factor.imag();
    }
    plan_.inputReal = inputFactors_.data();
    plan_.inputImag = inputFactors_.data() + rowCount;

    levels_ = LevelsFor(rowLength);
    plan_.levels = levels_.data();
    plan_.roots = roots_.Reserve(2 * rowCount * levels_.front().nodes);
    const std::size_t quarterTurns = 4 * Bins();
    RootWriter writer(quarterTurns, loops.lanes, levels_, roots_.Data());
    for (std::size_t group = 0; group < rowCount; group += loops.lanes) {
        std::array<std::size_t, kMostLanes> turns{};
        for (std::size_t lane = 0; lane < loops.lanes; ++lane)
            turns[lane] = (4 * (group + lane) + (real ? 1 : 0)) * rowLength;
        writer.Write(0, turns);
    }
}

bool RingTransform::Holds(std::size_t length, const HotLoops& loops)
{
    const auto [rowCount, rowLength] = ShapeFor(length, loops.lanes);
    return rowCount * rowLength == length;
}

std::vector<std::size_t> RingTransform::BinOrder() const
{
    std::vector<std::size_t> order{0};
    std::size_t parts = 1;  // of a block of this level in the whole row
    for (const RingLevel& level : levels_) {
        std::vector<std::size_t> next;
        for (const std::size_t bin : order)
            for (std::size_t part = 0; part < level.radix; ++part)
                next.push_back(bin + part * parts);
        parts *= level.radix;
        order = std::move(next);
    }
    return order;
}

double* RingTransform::Rows(ConvolutionWork& work) const
{
    return work.grid.Reserve(plan_.rowCount / loops_->lanes * plan_.groupPitch);
}

void RingTransform::TransformRows(double scale, double* spectrum, ConvolutionWork& work) const
{
    double* rows = Rows(work);
    loops_->rowsToBins(plan_, rows);
    const std::size_t group = 2 * loops_->lanes * plan_.rowLength;
    for (std::size_t k = 0; k < plan_.rowCount; k += loops_->lanes, rows += plan_.groupPitch)
        spectrum =
            std::transform(rows, rows + group, spectrum,
                           [factor = scale / static_cast<double>(Bins())](double part) { return factor * part; });
}

void RingTransform::TransformKernel(const RealInput& kernel, double scale, double* spectrum,
                                    ConvolutionWork& work) const
{
    loops_->realToRows(plan_, kernel, Rows(work));
    TransformRows(scale, spectrum, work);
}

void RingTransform::TransformKernel(const ComplexInput& kernel, double scale, double* spectrum,
                                    ConvolutionWork& work) const
{
    loops_->complexToRows(plan_, kernel, Rows(work));
    TransformRows(scale, spectrum, work);
}

void RingTransform::Convolve(const RealInput& input, const double* spectrum, const RealOutput& output,
                             ConvolutionWork& work) const
{
    double* rows = Rows(work);
    loops_->realToRows(plan_, input, rows);
    loops_->multiplyRows(plan_, spectrum, rows);
    loops_->realFromRows(plan_, rows, output);
}

void RingTransform::Convolve(const ComplexInput& input, const double* spectrum, const ComplexOutput& output,
                             ConvolutionWork& work) const
{
    double* rows = Rows(work);
    loops_->complexToRows(plan_, input, rows);
    loops_->multiplyRows(plan_, spectrum, rows);
    loops_->complexFromRows(plan_, rows, output);
}

void RingTransform::Transform(const PairsInput& input, const std::vector<std::size_t>& order, const PairsOutput& output,
                              ConvolutionWork& work) const
{
    double* rows = Rows(work);
    loops_->pairsToRows(plan_, input, rows);
    loops_->rowsToBins(plan_, rows);
    loops_->binsToPairs(plan_, rows, order.data(), output);
}

}  // namespace Tarnwick::DSO::Maths
