#include "maths/convolution/splitconvolver.h"

#include <utility>

#include "maths/transforms/roots.h"

namespace Tarnwick::DSO::Maths {

namespace {

// [complex values] of one row's transform, padded: 1 MiB, which the second-level cache holds, and, where the factors of
// two give out before that, twice as much, which is still quicker than one transform of the period. Measured.
constexpr std::size_t kBestTransform = 65536;
constexpr std::size_t kLongestTransform = 131072;

}  // namespace

std::optional<std::size_t> SplitConvolver::RowsFor(std::size_t period)
{
    for (const std::size_t limit : {kBestTransform, kLongestTransform})
        for (std::size_t rows = 2; rows <= kMostRows && period % rows == 0; rows *= 2)
            if (2 * (period / rows) - 1 <= limit)
                return rows;
    return std::nullopt;
}

SplitConvolver::SplitConvolver(std::span<const double> kernel, std::size_t rows)
    : rows_(rows),
      length_(kernel.size() / rows),
      real_(RingTransform::Values::Real, 2 * length_),
      complex_(RingTransform::Values::Complex, 2 * length_ - 1)
{
    for (std::size_t k = 0; k <= rows_ / 2; ++k)
        wraps_.push_back(RootOfUnity(k, rows_));

    ConvolutionWork work;
    const SplitRows split = Rows(work);
    Loops().splitColumns(kernel.data(), rows_, length_, split);

    const std::size_t inner = rows_ / 2 - 1;
    double* spectrum = spectrum_.Reserve(2 * real_.SpectrumSize() + inner * complex_.SpectrumSize());
    const double scale = 1.0 / static_cast<double>(rows_);  // of the transform down the columns
    for (const double* row : {split.first, split.middle}) {
        real_.TransformKernel({row, length_}, scale, spectrum, work);
        spectrum += real_.SpectrumSize();
    }
    for (const double* row = split.inner; row < split.inner + 2 * inner * length_; row += 2 * length_) {
        complex_.TransformKernel({row, row + length_, length_}, scale, spectrum, work);
        spectrum += complex_.SpectrumSize();
    }
}

SplitRows SplitConvolver::Rows(ConvolutionWork& work) const
{
    double* values = work.values.Reserve(2 * length_);
    return {values, values + length_, work.rows.Reserve((rows_ - 2) * length_)};
}

void SplitConvolver::Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const
{
    const SplitRows split = Rows(work);
    Loops().splitColumns(samples.data(), rows_, length_, split);

    const double* spectrum = spectrum_.Data();
    for (const auto& [row, wrap] : {std::pair{split.first, 1.0}, std::pair{split.middle, -1.0}}) {  // w^(q/2) = -1
        const std::size_t gap = real_.Length() - length_;
        real_.Convolve({row, length_, gap, wrap}, spectrum, {row, length_, gap}, work);
        spectrum += real_.SpectrumSize();
    }
    for (std::size_t k = 1; k < rows_ / 2; ++k) {
        double* row = split.inner + 2 * (k - 1) * length_;
        const std::size_t gap = length_ - 1;
        complex_.Convolve({row, row + length_, length_, gap, wraps_[k].real(), wraps_[k].imag()}, spectrum,
                          {row, row + length_, length_, gap}, work);
        spectrum += complex_.SpectrumSize();
    }
    Loops().joinColumns(split, rows_, length_, result.data());
}

}  // namespace Tarnwick::DSO::Maths
