#include "framework/maths/spectrum.h"

#include <algorithm>

#include "framework/maths/alignedbuffer.h"
#include "framework/maths/fft.h"

namespace Tarnwick::DSO::SystemFramework::Maths {

std::vector<double> RealInverse(std::span<const Complex> bins)
{
    if (bins.empty())
        return {};
    // Through an aligned buffer: the last bits of a transform depend on how its array is aligned.
    AlignedBuffer<Complex> buffer(bins.size());
    std::copy(bins.begin(), bins.end(), buffer.Data());
    ComplexTransform::Of(bins.size())->Inverse(buffer.Data());
    std::vector<double> values(bins.size());
    const auto count = static_cast<double>(bins.size());
    std::transform(buffer.Data(), buffer.Data() + bins.size(), values.begin(),
                   [count](Complex value) { return value.real() / count; });
    return values;
}

}  // namespace Tarnwick::DSO::SystemFramework::Maths
