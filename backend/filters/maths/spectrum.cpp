#include "filters/maths/spectrum.h"

#include <algorithm>

#include "framework/maths/alignedbuffer.h"
#include "framework/maths/fft.h"

namespace Tarnwick::DSO::Filters::Maths {

using Complex = std::complex<double>;

std::vector<Complex> Mirrored(std::span<const Complex> half)
{
    if (half.empty())
        return {};
    std::vector<Complex> bins(2 * half.size() - 1);
    bins[0] = half[0];
    for (std::size_t k = 1; k < half.size(); ++k) {
        bins[k] = half[k];
        bins[bins.size() - k] = std::conj(half[k]);
    }
    return bins;
}

std::vector<double> RealInverse(std::span<const Complex> bins)
{
    if (bins.empty())
        return {};
    // Through an aligned buffer: the last bits of a transform depend on how its array is aligned.
    SystemFramework::Maths::AlignedBuffer<Complex> buffer(bins.size());
    std::copy(bins.begin(), bins.end(), buffer.Data());
    SystemFramework::Maths::ComplexTransform::Of(bins.size())->Inverse(buffer.Data());
    std::vector<double> values(bins.size());
    const auto count = static_cast<double>(bins.size());
    std::transform(buffer.Data(), buffer.Data() + bins.size(), values.begin(),
                   [count](Complex value) { return value.real() / count; });
    return values;
}

}  // namespace Tarnwick::DSO::Filters::Maths
