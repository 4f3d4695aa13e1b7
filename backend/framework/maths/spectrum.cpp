#include "framework/maths/spectrum.h"

#include <algorithm>

#include "framework/maths/fft.h"

namespace Tarnwick::DSO::SystemFramework::Maths {

std::vector<double> HermitianBins::Inverse()
{
    if (count_ == 0)
        return {};
    ComplexTransform::Of(count_)->Inverse(buffer_.Data());
    std::vector<double> values(count_);
    const auto count = static_cast<double>(count_);
    std::transform(buffer_.Data(), buffer_.Data() + count_, values.begin(),
                   [count](Complex value) { return value.real() / count; });
    return values;
}

std::vector<double> RealInverse(std::span<const Complex> bins)
{
    HermitianBins copy(bins.size());
    std::copy(bins.begin(), bins.end(), copy.Bins().begin());
    return copy.Inverse();
}

}  // namespace Tarnwick::DSO::SystemFramework::Maths
