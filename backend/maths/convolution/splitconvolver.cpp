#include "maths/convolution/splitconvolver.h"

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
      real_(ColumnTransform::Values::Real, length_, length_),
      complex_(ColumnTransform::Values::Complex, length_, length_)
{
    for (std::size_t k = 0; k <= rows_ / 2; ++k)
        wraps_.push_back(RootOfUnity(k, rows_));

    ConvolutionWork work;
    const SplitRows split = Rows(work);
    Loops().splitColumns(kernel.data(), rows_, length_, split);

    const std::size_t inner = rows_ / 2 - 1;
    Complex* spectrum = spectrum_.Reserve(2 * real_.Bins() + inner * complex_.Bins());
    const double scale = 1.0 / static_cast<double>(rows_);  // of the transform down the columns
    for (const double* row : {split.first, split.middle}) {
        real_.TransformKernel(row, length_, scale, spectrum, work);
        spectrum += real_.Bins();
    }
    for (std::size_t k = 0; k < inner; ++k) {
        complex_.TransformKernel(split.inner + k * length_, length_, scale, spectrum, work);
        spectrum += complex_.Bins();
    }
}

SplitRows SplitConvolver::Rows(ConvolutionWork& work) const
{
    double* values = work.values.Reserve(2 * length_);
    return {values, values + length_, work.rows.Reserve((rows_ / 2 - 1) * length_)};
}

void SplitConvolver::Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const
{
    const SplitRows split = Rows(work);
    Loops().splitColumns(samples.data(), rows_, length_, split);

    const Complex* spectrum = spectrum_.Data();
    real_.Convolve(split.first, spectrum, 1.0, split.first, work);
    spectrum += real_.Bins();
    real_.Convolve(split.middle, spectrum, -1.0, split.middle, work);  // w^(q/2)
    spectrum += real_.Bins();
    for (std::size_t k = 1; k < rows_ / 2; ++k) {
        Complex* row = split.inner + (k - 1) * length_;
        complex_.Convolve(row, spectrum, wraps_[k], row, work);
        spectrum += complex_.Bins();
    }
    Loops().joinColumns(split, rows_, length_, result.data());
}

}  // namespace Tarnwick::DSO::Maths
