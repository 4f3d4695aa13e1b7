#include "filters/maths/spectrum.h"

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

}  // namespace Tarnwick::DSO::Filters::Maths
